// Quality grading: the maximum search, the rhythm test with its IEEE
// degenerate cases, the windows and their grades.
#include <gtest/gtest.h>

#include <cmath>
#include <tuple>
#include <utility>

#include "detect/detect_support.hpp"
#include "detect/window_quality.hpp"

namespace {

using namespace kelo::detect;
using namespace kelo::test;

TEST(FindMax, FirstOfEqualMaximaFromMinus10000) {
  // {x, n, value, 1-based index}: n is clamped to the length; a NaN never wins.
  for (const auto& [x, n, value, index] : std::vector<std::tuple<V, int64_t, double, int32_t>>{
           {{1, 3, 3, 2}, 4, 3, 2}, {{1, 3, 3, 2}, 1, 1, 1}, {{1, 3, 3, 2}, 99, 3, 2},
           {{-20000, -10000}, 2, -10000, 1}, {{kNaN, 2, kNaN}, 3, 2, 2}}) {
    EXPECT_EQ(m_findMax(x, n).maxValue, value) << n;
    EXPECT_EQ(m_findMax(x, n).maxIndex, index) << n;
  }
}

TEST(RhythmTest, QuarterOfTheMeanRR) {
  EXPECT_FALSE(irregular_rhythm(I{0, 90, 240, 360}));    // s = 30 is a quarter of m = 120
  EXPECT_TRUE(irregular_rhythm(I{0, 89, 240, 360}));     // s = 31
  EXPECT_FALSE(irregular_rhythm(I{10, 170, 330, 490}));  // s = 0
  // -0.0 > -0.0, and comparisons with NaN, are false.
  for (const I& few : {I{}, I{500}, I{500, 5000}}) EXPECT_FALSE(irregular_rhythm(few));
  // Both intervals saturate to 2147483647 instead of wrapping.
  EXPECT_FALSE(irregular_rhythm(I{-2147483647 - 1, 0, 2147483647}));
}

TEST(WindowCount, WholeWindowsOrOneWindow) {
  // The tail is not graded; below 5 s, shorter than one window, or no rate:
  // one window.
  for (const auto& [n, fs, seconds, count] : std::vector<std::tuple<int32_t, int32_t, int32_t, double>>{
           {6000, 200, 10, 3}, {7999, 200, 10, 3}, {8000, 200, 10, 4}, {6000, 200, 4, 1}, {6000, 200, 5, 6},
           {1000, 200, 10, 1}, {6000, 0, 10, 1}, {6000, -200, 10, 1}})
    EXPECT_EQ(window_count(n, fs, seconds), count) << n << " " << fs << " " << seconds;
}

I grades(const V& ecg, const I& peaks, int32_t windowSeconds = 10, int32_t fs = 200) {
  kelo::EmxInt32 out(1);
  m_checkWindowQuality(column(ecg), fs, 10.0, int_column(peaks), windowSeconds, out);
  return values(out);
}

TEST(WindowQuality, GradesPerWindow) {
  V ecg(6000, 0.0);
  ecg[4500] = -9.8;  // clipped by its absolute value, in window 3
  const std::vector<std::pair<I, I>> cases{
      {{1000, 2000, 2001, 3000, 4100, 4300}, {0, 0, 5}},  // 2000 in window 1 only, 2001 in 2 only
      {{2000, 1000, 3000, 2001, 4300, 4100}, {0, 0, 5}},  // the same, in no order
      {{2100, 2200, 2300, 2460}, {3, 6, 3}},              // RR 100, 100, 160
      {{4100, 4200, 4300, 4460}, {3, 3, 5}},              // clipping first
      {{100, 1900}, {0, 3, 3}},                           // one interval: NaN spread
      {{6010, 6050, 6090}, {3, 3, 3}}};                   // ungraded tail
  for (const auto& [peaks, want] : cases) EXPECT_EQ(grades(ecg, peaks), want) << peaks[0];
  // One window over everything: below 5 s, too short, no rate, empty.
  EXPECT_EQ(grades(ecg, {100, 5990}, 4), I{5});
  EXPECT_EQ(grades(V(1000, 0.0), {100}), I{3});
  EXPECT_EQ(grades(V(1000, 0.0), {100, 900}, 10, 0), I{0});
  EXPECT_EQ(grades({}, {}), I{3});
}

TEST(WindowQuality, ClippingIsStrictlyAbove97PercentOfFullScale) {
  // The largest magnitude starts at -10000: an empty excerpt is clipped
  // only when 0.97 times the full scale lies below that (-10310, not -10309).
  EXPECT_EQ(run_detect_waves({}, 200, -10309.0).quality, 1);
  EXPECT_EQ(run_detect_waves({}, 200, -10310.0).quality, 2);
  // {sample, window grade, detectWaves grade}; NaN never wins the maximum.
  for (const auto& [v, grade, quality] : std::vector<std::tuple<double, int32_t, int32_t>>{
           {10 * 0.97, 0, 1}, {std::nextafter(10 * 0.97, 20.0), 5, 2}, {kNaN, 0, 1}}) {
    V ecg(2000, 0.0);
    ecg[100] = v;
    EXPECT_EQ(grades(ecg, {200, 400, 600}), I{grade}) << v;
    EXPECT_EQ(run_detect_waves(ecg, 200).quality, quality) << v;
  }
}

}  // namespace
