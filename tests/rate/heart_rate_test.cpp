// Heart rate from beat positions: worked examples, rounding, the three
// variants agreeing, and the guards against reading outside the input.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "keloecgsolver/heart_rate.h"
#include "keloecgsolver/lifecycle.h"
#include "support/emx_builders.hpp"

namespace {

double hr_var(const std::vector<int32_t>& beats, int32_t fs, int32_t n = -1) {
  calcHRvar_initialize();
  auto rec = kelo::test::int_column(beats);
  const double hr = calcHRvar(rec, n < 0 ? static_cast<int32_t>(beats.size()) : n, fs);
  calcHRvar_terminate();
  return hr;
}

template <std::size_t Length>
double hr_fixed(const std::vector<int32_t>& beats, int32_t fs, double (*fn)(const int32_t*, int32_t, int32_t)) {
  std::vector<int32_t> full(Length, 0);
  std::copy(beats.begin(), beats.end(), full.begin());
  return fn(full.data(), static_cast<int32_t>(beats.size()), fs);
}

// The rate computed the plain way: saturating differences, bubble sort with
// m - 1 full passes, median by parity, 60 / (median / fs) rounded half away
// from zero.
double hr_reference(std::vector<int32_t> b, int32_t n, int32_t fs) {
  const int32_t m = n - 1;
  for (int32_t k = 0; k < m; ++k) {
    const int64_t d = static_cast<int64_t>(b[k + 1]) - b[k];
    b[k] = static_cast<int32_t>(std::clamp<int64_t>(d, INT32_MIN, INT32_MAX));
  }
  for (int32_t pass = 0; pass < m - 1; ++pass)
    for (int32_t k = 0; k + 1 < m; ++k)
      if (b[k] > b[k + 1]) std::swap(b[k], b[k + 1]);
  const double median = m % 2 == 1 ? b[(m + 1) / 2 - 1]
                                   : (static_cast<double>(b[m / 2 - 1]) + b[m / 2]) / 2.0;
  const double v = 60.0 / (median / fs);
  return v >= 0 ? std::floor(v + 0.5) : std::ceil(v - 0.5);
}

TEST(HeartRate, WorkedExamples) {
  EXPECT_EQ(hr_var({100, 260, 410, 580, 740}, 200), 75.0);
  EXPECT_EQ(hr_var({0, 160}, 200), 75.0);
  EXPECT_EQ(hr_var({0, 150, 320}, 200), 75.0);     // two intervals: their mean
  EXPECT_EQ(hr_var({0, 140}, 200), 86.0);          // 85.714...
  EXPECT_EQ(hr_var({0, 240, 480}, 290), 73.0);     // 72.5 rounds away from zero
  EXPECT_EQ(hr_var({0, 120}, 113), 56.0);          // 60 / (120 / 113) is 56.49999999999999
  EXPECT_EQ(hr_var({0, 200, 400, 600, 800}, 200), 60.0);
  EXPECT_EQ(hr_var({0, 400, 410, 810}, 200), 30.0);  // unsorted intervals 400 10 400
  EXPECT_EQ(hr_var({0, 10, 400, 410}, 200), 1200.0); // median of 10 390 10 is 10
  EXPECT_EQ(hr_var({50, 50}, 200), std::numeric_limits<double>::infinity());
  // Descending beats give negative intervals and a negative rate, rounded
  // away from zero.
  EXPECT_EQ(hr_var({300, 140}, 200), -75.0);
  // The interval saturates at the int32 range instead of wrapping.
  EXPECT_EQ(hr_var({-2147483647 - 1, 2147483647}, 200), 0.0);
}

TEST(HeartRate, LeavesTheInputAloneAndNeverReadsOutsideIt) {
  auto rec = kelo::test::int_column({0, 400, 410, 810});
  calcHRvar(rec, 4, 200);
  EXPECT_EQ(kelo::test::values(rec), (std::vector<int32_t>{0, 400, 410, 810}));
  EXPECT_TRUE(std::isnan(hr_var({100}, 200)));
  EXPECT_TRUE(std::isnan(hr_var({100, 300}, 200, 3)));
  EXPECT_TRUE(std::isnan(calcHRvar(kelo::test::int_column({100, 300}), -5, 200)));
  EXPECT_TRUE(std::isnan(calcHRvar(nullptr, 2, 200)));
  EXPECT_TRUE(std::isnan(calcHR(nullptr, 2, 200)));
  // Every element of the array may be a beat, one more may not.
  std::vector<int32_t> whole(KELO_CALCHR_SHORT_LENGTH);
  for (std::size_t k = 0; k < whole.size(); ++k) whole[k] = static_cast<int32_t>(200 * k);
  EXPECT_EQ(calcHRshort(whole.data(), KELO_CALCHR_SHORT_LENGTH, 200), 60.0);
  EXPECT_TRUE(std::isnan(calcHRshort(whole.data(), KELO_CALCHR_SHORT_LENGTH + 1, 200)));
  EXPECT_TRUE(std::isnan(calcHRshort(whole.data(), 1, 200)));
}

// All three variants on unsorted lists of many lengths, against the plain
// computation; beats beyond the first n have no influence.
TEST(HeartRate, AllVariantsMatchThePlainBubbleSort) {
  calcHR_initialize();
  calcHRshort_initialize();
  std::mt19937 rng(5);
  std::uniform_int_distribution<int32_t> any(-5000, 5000);
  for (int32_t n : {2, 3, 4, 9, 10, 101, 500}) {
    std::vector<int32_t> beats(n);
    for (int32_t& b : beats) b = any(rng);
    for (int32_t fs : {200, 250}) {
      const double expected = hr_reference(beats, n, fs);
      EXPECT_EQ(hr_var(beats, fs), expected) << n;
      EXPECT_EQ(hr_fixed<KELO_CALCHR_LENGTH>(beats, fs, calcHR), expected) << n;
      EXPECT_EQ(hr_fixed<KELO_CALCHR_SHORT_LENGTH>(beats, fs, calcHRshort), expected) << n;
    }
  }
  std::vector<int32_t> full(KELO_CALCHR_LENGTH, 999999);
  const int32_t five[5] = {0, 200, 400, 600, 800};
  std::copy(five, five + 5, full.begin());
  EXPECT_EQ(calcHR(full.data(), 5, 200), 60.0);
  EXPECT_EQ(calcHRshort(full.data(), 5, 200), 60.0);
}

}  // namespace
