// Excerpt grading: clipping by the raw maximum, irregular rhythm, the
// clamping of counts and the agreement of the two fixed lengths; and the
// kernels whose rounding the grades depend on.
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
};

Excerpt excerpt(std::size_t length, const std::vector<int32_t>& beats, double level = 0.0) {
  Excerpt e{std::vector<double>(length, level), std::vector<int32_t>(length, 0)};
  std::copy(beats.begin(), beats.end(), e.beats.begin());
  return e;
}

int32_t grade_long(const Excerpt& e, int32_t n, double fullScale, int32_t nBeats) {
  checkQuality_initialize();
  const int32_t g = checkQuality(e.ecg.data(), n, fullScale, e.beats.data(), nBeats);
  checkQuality_terminate();
  return g;
}

int32_t grade_short(const Excerpt& e, int32_t n, double fullScale, int32_t nBeats) {
  checkQualityShort_initialize();
  const int32_t g = checkQualityShort(e.ecg.data(), n, fullScale, e.beats.data(), nBeats);
  checkQualityShort_terminate();
  return g;
}

TEST(CheckQuality, RhythmGrades) {
  // Intervals 100, 100, 160: mean 120, sd sqrt(1200) = 34.6 > 30.
  auto irregular = excerpt(kLong, {0, 100, 200, 360});
  EXPECT_EQ(grade_long(irregular, kLong, 10.0, 4), 3);
  auto even = excerpt(kLong, {0, 100, 200, 300, 400});
  EXPECT_EQ(grade_long(even, kLong, 10.0, 5), 1);
  // Three beats are enough for a verdict: intervals 75, 125 have mean 100
  // and sd sqrt(2 * 25^2 / 1) = 35.4 > 25 ...
  EXPECT_EQ(grade_long(excerpt(kLong, {0, 75, 200}), kLong, 10.0, 3), 3);
  // ... while 90, 110 (sd 14.1) are regular enough.
  EXPECT_EQ(grade_long(excerpt(kLong, {0, 90, 200}), kLong, 10.0, 3), 1);
}

TEST(CheckQuality, FewBeatsNeverIrregular) {
  for (int32_t count : {-3, 0, 1, 2}) {
    auto e = excerpt(kLong, {0, 5000});
    EXPECT_EQ(grade_long(e, kLong, 10.0, count), 1) << count << " beats";
    EXPECT_EQ(grade_short(e, kShort, 10.0, count), 1) << count << " beats";
  }
}

TEST(CheckQuality, ClippingUsesTheRawMaximum) {
  const double fullScale = 1000.0;
  const double limit = 0.97 * fullScale;
  auto e = excerpt(kLong, {0, 100, 200, 360});
  e.ecg[500] = limit;
  EXPECT_EQ(grade_long(e, kLong, fullScale, 4), 3) << "at the limit: not clipped, rhythm tested";
  e.ecg[500] = std::nextafter(limit, 2.0 * limit);
  EXPECT_EQ(grade_long(e, kLong, fullScale, 4), 2) << "clipping wins over the rhythm";

  // Far negative swings with small positive values are not clipping.
  auto negative = excerpt(kLong, {0, 100, 200, 300}, 5.0);
  negative.ecg[700] = -5000.0;
  EXPECT_EQ(grade_long(negative, kLong, fullScale, 4), 1);
}

TEST(CheckQuality, SampleCountIsClampedToTheArray) {
  auto e = excerpt(kLong, {0, 100, 200, 300});
  e.ecg[kLong - 1] = 2000.0;
  EXPECT_EQ(grade_long(e, kLong + 1000, 1000.0, 4), 2) << "clamped to the whole array";
  EXPECT_EQ(grade_long(e, kLong - 1, 1000.0, 4), 1) << "the last sample is not examined";
  EXPECT_EQ(grade_long(e, 0, 1000.0, 4), 1);
  EXPECT_EQ(grade_long(e, -7, 1000.0, 4), 1);
  // With no sample examined the maximum is -10000, below any sane limit but
  // above this one.
  EXPECT_EQ(grade_long(e, 0, -20000.0, 4), 2);
}

TEST(CheckQuality, BeatCountIsClampedToTheArray) {
  // Every slot holds a beat, spaced regularly: too many beats count as the
  // whole array.
  Excerpt e{std::vector<double>(kShort, 0.0), std::vector<int32_t>(kShort)};
  for (int32_t k = 0; k < kShort; ++k) e.beats[k] = 10 * k;
  EXPECT_EQ(grade_short(e, kShort, 1.0, kShort + 50), 1);
  e.beats[kShort - 1] = e.beats[kShort - 2] + 20000;  // one long last interval
  EXPECT_EQ(grade_short(e, kShort, 1.0, INT32_MAX), 3);
  EXPECT_EQ(grade_short(e, kShort, 1.0, kShort - 1), 1);
}

TEST(CheckQuality, NullArraysAreNotGraded) {
  std::vector<double> ecg(kLong, 0.0);
  std::vector<int32_t> beats(kLong, 0);
  EXPECT_EQ(checkQuality(nullptr, kLong, 1.0, beats.data(), 3), 0);
  EXPECT_EQ(checkQuality(ecg.data(), kLong, 1.0, nullptr, 3), 0);
  EXPECT_EQ(checkQualityShort(nullptr, kShort, 1.0, nullptr, 3), 0);
}

TEST(CheckQuality, BothLengthsAgree) {
  std::mt19937 rng(7);
  std::normal_distribution<double> sample(0.0, 1.0);
  std::uniform_int_distribution<int32_t> rr(120, 200);
  for (int trial = 0; trial < 40; ++trial) {
    std::vector<int32_t> beats{30};
    while (beats.back() < kShort - 250) beats.push_back(beats.back() + rr(rng));
    auto longer = excerpt(kLong, beats);
    auto shorter = excerpt(kShort, beats);
    for (int32_t k = 0; k < kShort; ++k) longer.ecg[k] = shorter.ecg[k] = sample(rng);
    const double fullScale = 2.5 + 0.05 * trial;
    const auto count = static_cast<int32_t>(beats.size());
    EXPECT_EQ(grade_long(longer, kShort, fullScale, count), grade_short(shorter, kShort, fullScale, count));
  }
}

// ---- kernels -----------------------------------------------------------------

TEST(CheckKernels, MaximumTiesAndFloor) {
  const std::vector<double> x{1.0, 7.0, 7.0, -3.0};
  const auto best = kelo::checks::m_findMax(x, 4);
  EXPECT_EQ(best.value, 7.0);
  EXPECT_EQ(best.index, 2);
  const std::vector<double> low{-20000.0, -10000.0};
  const auto none = kelo::checks::m_findMax(low, 2);
  EXPECT_EQ(none.value, -10000.0);
  EXPECT_EQ(none.index, 1);
}

TEST(CheckKernels, DifferencesSaturateAndKeepTheTail) {
  const std::vector<int32_t> x{INT32_MIN, INT32_MAX, 5, 9, 11};
  std::vector<int32_t> d(5);
  kelo::checks::m_calcDiff<int32_t>(x, 4, d);
  EXPECT_EQ(d, (std::vector<int32_t>{INT32_MAX, 5 - INT32_MAX, 4, 9, 11}));
}

TEST(CheckKernels, StandardDeviationMultipliesByTheReciprocal) {
  // 1 / 3 is inexact, so sum * (1 / 3) and sum / 3 can differ in the last
  // bit; the grading uses the reciprocal. The data are chosen so that they
  // do differ.
  const std::vector<double> x{0.1, 0.7, 1.3, 2.9};
  const double mean = kelo::checks::m_calcMean<double>(x, 1.0, 4);
  EXPECT_EQ(mean, (((0.1 + 0.7) + 1.3) + 2.9) / 4.0);
  double sum = 0.0;
  for (double v : x) sum += (v - mean) * (v - mean);
  ASSERT_NE(sum * (1.0 / 3.0), sum / 3.0) << "test data no longer tell the two apart";
  EXPECT_EQ(kelo::checks::m_calcSd<double>(x, 1.0, 4, mean), std::sqrt(sum * (1.0 / 3.0)));
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
