// Quality grading: the maximum search, the rhythm test with its IEEE
// degenerate cases, the windows and their grades.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "detect/window_quality.hpp"
#include "support/emx_builders.hpp"

namespace {

using namespace kelo::detect;
using I = std::vector<int32_t>;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(FindMax, FirstOfEqualMaximaFromMinus10000) {
  const std::vector<double> x{1, 3, 3, 2}, low{-20000, -10000}, nan{kNaN, 2, kNaN};
  EXPECT_EQ(m_findMax(x, 4).maxIndex, 2);
  EXPECT_EQ(m_findMax(x, 1).maxValue, 1);
  EXPECT_EQ(m_findMax(x, 99).maxValue, 3);  // n clamped to the length
  EXPECT_EQ(m_findMax(low, 2).maxValue, -10000.0);
  EXPECT_EQ(m_findMax(low, 2).maxIndex, 1);
  EXPECT_EQ(m_findMax(nan, 3).maxIndex, 2);
}

TEST(RhythmTest, QuarterOfTheMeanRR) {
  EXPECT_TRUE(irregular_rhythm(I{0, 100, 200, 360}));    // m = 120, s = 34.64 > 30
  EXPECT_FALSE(irregular_rhythm(I{0, 100, 200, 350}));   // s = 28.9 < 29.2
  EXPECT_FALSE(irregular_rhythm(I{10, 170, 330, 490}));  // s = 0
  // -0.0 > -0.0, and comparisons with NaN, are false.
  for (const I& few : {I{}, I{500}, I{500, 5000}}) EXPECT_FALSE(irregular_rhythm(few));
  // Both intervals saturate to 2147483647 instead of wrapping.
  EXPECT_FALSE(irregular_rhythm(I{-2147483647 - 1, 0, 2147483647}));
}

TEST(WindowCount, WholeWindowsOrOneWindow) {
  EXPECT_EQ(window_count(6000, 200, 10), 3);
  EXPECT_EQ(window_count(6100, 200, 10), 3);  // the tail is not graded
  EXPECT_EQ(window_count(6000, 200, 4), 1);   // below 5 s
  EXPECT_EQ(window_count(6000, 200, 5), 6);
  EXPECT_EQ(window_count(1000, 200, 10), 1);  // shorter than one window
  EXPECT_EQ(window_count(6000, 0, 10), 1);
  EXPECT_EQ(window_count(6000, -200, 10), 1);
}

I grades(const std::vector<double>& ecg, const I& peaks, int32_t windowSeconds = 10,
         int32_t fs = 200) {
  kelo::EmxInt32 out(1);
  m_checkWindowQuality(kelo::test::column(ecg), fs, 10.0, kelo::test::int_column(peaks),
                       windowSeconds, out);
  return kelo::test::values(out);
}

TEST(WindowQuality, GradesPerWindow) {
  std::vector<double> ecg(6000, 0.0);
  ecg[4500] = -9.8;  // clipped by its absolute value, in window 3
  // A peak on 2000 belongs to window 1 only, one on 2001 to window 2 only.
  EXPECT_EQ(grades(ecg, {400, 800, 1200, 1600, 2000, 2001, 4100, 4300}), (I{0, 3, 5}));
  EXPECT_EQ(grades(ecg, {2100, 2200, 2300, 2460}), (I{3, 6, 3}));  // RR 100, 100, 160
  EXPECT_EQ(grades(ecg, {4100, 4200, 4300, 4460}), (I{3, 3, 5}));  // clipping first
  EXPECT_EQ(grades(ecg, {100, 1900}), (I{0, 3, 3}));  // one interval: NaN spread
  EXPECT_EQ(grades(ecg, {6010, 6050, 6090}), (I{3, 3, 3}));  // ungraded tail
  // One window over everything: below 5 s, too short, no rate, empty.
  EXPECT_EQ(grades(ecg, {100, 5990}, 4), I{5});
  EXPECT_EQ(grades(std::vector<double>(1000, 0.0), {100}), I{3});
  EXPECT_EQ(grades(std::vector<double>(1000, 0.0), {100, 900}, 10, 0), I{0});
  EXPECT_EQ(grades({}, {}), I{3});
}

TEST(WindowQuality, ClippingIsStrictlyAbove97PercentOfFullScale) {
  std::vector<double> ecg(2000, 0.0);
  ecg[100] = 10 * 0.97;
  EXPECT_EQ(grades(ecg, {200, 400, 600}), I{0});
  ecg[100] = std::nextafter(10 * 0.97, 20.0);
  EXPECT_EQ(grades(ecg, {200, 400, 600}), I{5});
  ecg[100] = kNaN;  // never wins the maximum search
  EXPECT_EQ(grades(ecg, {200, 400, 600}), I{0});
}

}  // namespace
