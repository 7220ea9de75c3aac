// Excerpt grading: clipping by the raw maximum, irregular rhythm, clamped
// counts, the two lengths agreeing, and the rounding of the kernels.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "checks/interval_stats.hpp"
#include "keloecgsolver/checks.h"
#include "keloecgsolver/lifecycle.h"

namespace {

constexpr int32_t kLong = KELO_CHECK_LENGTH;
constexpr int32_t kShort = KELO_CHECK_SHORT_LENGTH;

struct Excerpt {
  std::vector<double> ecg;
  std::vector<int32_t> beats;

  Excerpt(std::size_t length, const std::vector<int32_t>& b, double level = 0.0)
      : ecg(length, level), beats(length, 0) {
    std::copy(b.begin(), b.end(), beats.begin());
  }
  int32_t grade(int32_t n, double fullScale, int32_t nBeats) const {
    checkQuality_initialize();
    return ecg.size() == kLong ? checkQuality(ecg.data(), n, fullScale, beats.data(), nBeats)
                               : checkQualityShort(ecg.data(), n, fullScale, beats.data(), nBeats);
  }
};

TEST(CheckQuality, RhythmGrades) {
  // Intervals 100, 100, 160: mean 120, sd sqrt(1200) = 34.6 > 30.
  EXPECT_EQ(Excerpt(kLong, {0, 100, 200, 360}).grade(kLong, 10.0, 4), 3);
  EXPECT_EQ(Excerpt(kLong, {0, 100, 200, 300, 400}).grade(kLong, 10.0, 5), 1);
  // Three beats suffice: 75, 125 (sd 35.4 > 25) against 90, 110 (sd 14.1).
  EXPECT_EQ(Excerpt(kShort, {0, 75, 200}).grade(kShort, 10.0, 3), 3);
  EXPECT_EQ(Excerpt(kShort, {0, 90, 200}).grade(kShort, 10.0, 3), 1);
  // Fewer than three beats never give a verdict (NaN statistics).
  for (int32_t count : {-3, 0, 1, 2}) {
    EXPECT_EQ(Excerpt(kLong, {0, 5000}).grade(kLong, 10.0, count), 1) << count;
  }
}

TEST(CheckQuality, ClippingUsesTheRawMaximumOfTheFirstN) {
  const double limit = 0.97 * 1000.0;
  Excerpt e(kLong, {0, 100, 200, 360});
  e.ecg[500] = limit;
  EXPECT_EQ(e.grade(kLong, 1000.0, 4), 3) << "at the limit: not clipped, rhythm tested";
  e.ecg[500] = std::nextafter(limit, 2.0 * limit);
  EXPECT_EQ(e.grade(kLong, 1000.0, 4), 2) << "clipping wins over the rhythm";
  EXPECT_EQ(e.grade(500, 1000.0, 4), 3) << "sample 501 is not examined";

  Excerpt negative(kLong, {0, 100, 200, 300}, 5.0);
  negative.ecg[700] = -5000.0;  // far negative swings are not clipping
  EXPECT_EQ(negative.grade(kLong, 1000.0, 4), 1);

  Excerpt last(kLong, {0, 100, 200, 300});
  last.ecg[kLong - 1] = 2000.0;
  EXPECT_EQ(last.grade(kLong + 1000, 1000.0, 4), 2) << "n clamped to the whole array";
  // No sample examined: the maximum is -10000.
  EXPECT_EQ(last.grade(-7, 1000.0, 4), 1);
  EXPECT_EQ(last.grade(0, -20000.0, 4), 2);
}

TEST(CheckQuality, BeatCountIsClampedToTheArray) {
  Excerpt e(kShort, {});
  for (int32_t k = 0; k < kShort; ++k) e.beats[k] = 10 * k;
  EXPECT_EQ(e.grade(kShort, 1.0, kShort + 50), 1);
  e.beats[kShort - 1] = e.beats[kShort - 2] + 20000;  // one long last interval
  EXPECT_EQ(e.grade(kShort, 1.0, INT32_MAX), 3);
  EXPECT_EQ(e.grade(kShort, 1.0, kShort - 1), 1);
  EXPECT_EQ(checkQuality(nullptr, kLong, 1.0, e.beats.data(), 3), 0);
  EXPECT_EQ(checkQualityShort(e.ecg.data(), kShort, 1.0, nullptr, 3), 0);
}

TEST(CheckQuality, BothLengthsAgree) {
  std::mt19937 rng(7);
  std::normal_distribution<double> sample(0.0, 1.0);
  std::uniform_int_distribution<int32_t> rr(120, 200);
  for (int trial = 0; trial < 40; ++trial) {
    std::vector<int32_t> beats{30};
    while (beats.back() < kShort - 250) beats.push_back(beats.back() + rr(rng));
    Excerpt longer(kLong, beats), shorter(kShort, beats);
    for (int32_t k = 0; k < kShort; ++k) longer.ecg[k] = shorter.ecg[k] = sample(rng);
    const double fullScale = 2.5 + 0.05 * trial;
    const auto count = static_cast<int32_t>(beats.size());
    EXPECT_EQ(longer.grade(kShort, fullScale, count), shorter.grade(kShort, fullScale, count));
  }
}

TEST(CheckKernels, DeviationUsesTheReciprocal) {
  // sum * (1 / 3) and sum / 3 differ in the last bit for these data.
  const std::vector<double> v{0.1, 0.7, 1.3, 2.9};
  const double mean = kelo::checks::m_calcMean<double>(v, 1.0, 4);
  double sum = 0.0;
  for (double e : v) sum += (e - mean) * (e - mean);
  ASSERT_NE(sum * (1.0 / 3.0), sum / 3.0) << "test data no longer tell the two apart";
  EXPECT_EQ(kelo::checks::m_calcSd<double>(v, 1.0, 4, mean), std::sqrt(sum * (1.0 / 3.0)));
}

TEST(CheckKernels, MedianMatchesBubbleSort) {
  std::mt19937 rng(11);
  std::uniform_int_distribution<int32_t> v(-40, 40);
  for (int32_t n = 1; n < 60; ++n) {
    std::vector<double> x(static_cast<std::size_t>(n) + 3, 99.0);
    for (int32_t k = 0; k < n; ++k) x[k] = v(rng);
    std::vector<double> bubble = x;
    for (int32_t pass = 0; pass < n - 1; ++pass)
      for (int32_t k = 0; k + 1 < n; ++k)
        if (bubble[k] > bubble[k + 1]) std::swap(bubble[k], bubble[k + 1]);
    const double expected = n % 2 == 1 ? bubble[(n + 1) / 2 - 1] : (bubble[n / 2 - 1] + bubble[n / 2]) / 2.0;
    EXPECT_EQ(kelo::checks::m_calcMedian(x, n), expected);
    EXPECT_EQ(x, bubble) << "sorted prefix and untouched tail";
  }
}

}  // namespace
