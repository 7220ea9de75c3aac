// Signal conditioning stages on inputs small enough to check by hand.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "detect/detector.hpp"

namespace {

using namespace kelo::detect;
using V = std::vector<double>;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

TEST(Widths, At200HzAndTheShortestUsableRecording) {
  const Widths w = widths_for(200.0);
  EXPECT_EQ((V{double(w.spreadHalfWidth), double(w.featureHalfWidth), double(w.envelopeHalfWidth),
               double(w.templateHalfWidth), w.smoothingSpan, w.minRegionLength}),
            (V{40, 5, 20, 16, 600, 40}));
  EXPECT_EQ(widths_for(100.0).templateHalfWidth, 8);  // below the refinement's 10
  EXPECT_FALSE(fits_edge_holds(200, 200.0));
  EXPECT_TRUE(fits_edge_holds(201, 200.0));
  EXPECT_FALSE(fits_edge_holds(1, 1.0));
  EXPECT_TRUE(fits_edge_holds(2, 1.0));
  EXPECT_FALSE(fits_edge_holds(3, 2.5));  // needs n >= fs + 1
  EXPECT_TRUE(fits_edge_holds(0, 0.5));   // no hold at all below 1 Hz
  for (double fs : {0.0, -200.0, kNaN, kInf}) EXPECT_FALSE(fits_edge_holds(100000, fs));
}

TEST(Centre, SubtractsTheMedianInPlace) {
  V x{3, 1, 2, 10};
  centre(x);
  EXPECT_EQ(x, (V{0.5, -1.5, -0.5, 7.5}));
  V withNaN{1, kNaN, 3};
  centre(withNaN);
  EXPECT_TRUE(std::isnan(withNaN[0]) && std::isnan(withNaN[2]));
}

TEST(EdgeHold, HeadThenTail) {
  V x{0, 0, 5, 6, 7, 0, 0};
  edge_hold(x, 2);
  EXPECT_EQ(x, (V{5, 5, 5, 6, 7, 7, 7}));
  V overlap{1, 2, 3};  // the tail reads element n - h after the head hold
  edge_hold(overlap, 2);
  EXPECT_EQ(overlap, (V{3, 3, 3}));
  edge_hold(overlap, 3);  // fewer than h + 1 elements: untouched
  EXPECT_EQ(overlap, (V{3, 3, 3}));
}

TEST(SlidingMeasures, SpreadSlopeRangesAndEnvelope) {
  const V s = local_spread(V{1, 2, 4, 8, 16}, 1);
  const double unit = std::sqrt(7.0 / 3.0);  // std of (1, 2, 4)
  EXPECT_DOUBLE_EQ(s[1], unit);
  EXPECT_DOUBLE_EQ(s[2], 2 * unit);
  EXPECT_DOUBLE_EQ(s[3], 4 * unit);
  EXPECT_TRUE(s[0] == s[1] && s[4] == s[3]);
  EXPECT_EQ(slope(V{1, 4, 9, 16, 25}), (V{0, 8, 12, 16, 0}));
  EXPECT_EQ(slope(V{1, 4}), (V{0, 0}));
  // ecg 0 1 3 0 0, slope 0 3 -1 -3 0: amplitude ranges 3, 3, 3 and slope
  // ranges 4, 6, 3; the first and last products stay 0 (no hold).
  const V ecg{0, 1, 3, 0, 0};
  EXPECT_EQ(range_product(ecg, slope(ecg), 1), (V{0, 36, 54, 27, 0}));
  EXPECT_EQ(range_product(V{0, kNaN, 2, 0, 0}, V(5, 0.0), 1)[1], 0.0);  // NaN skipped
  EXPECT_EQ(envelope(V{0, 1, 5, 2, 0, 0, 3}, 1), (V{5, 5, 5, 5, 2, 3, 3}));
}

TEST(Threshold, HalvedSmoothHeldOverFsSamplesPlusCubedSpread) {
  // fs = 2: odd span 5 and a hold of 2 samples. Smoothed and halved:
  // 5/3, 1.25, 1, 1, 1, 0, 0.4, 0.5, 2/3; elements 1..2 take element 3,
  // elements 8..9 take element 7; 4 * 0.5^3 is added at element 4.
  V spread(9, 0.0);
  spread[3] = 0.5;
  const V t = threshold_curve(V{0, 0, 10, 0, 0, 0, 0, 0, 4}, spread, 2.0);
  const V expected{1, 1, 1, 1.5, 1, 0, 0.4, 0.4, 0.4};
  for (std::size_t k = 0; k < 9; ++k) EXPECT_DOUBLE_EQ(t[k], expected[k]) << k;
  EXPECT_EQ(threshold_curve(V{6, 0, 0, 0, 6}, V(5, 0.0), 1.0), (V{1, 1, 0, 1, 1}));
}

void expect_regions(const V& above, const V& start, const V& end) {
  const Regions r = candidate_regions(above, V(above.size(), 0.5));
  EXPECT_EQ(r.start, start);
  EXPECT_EQ(r.end, end);
}

TEST(CandidateRegions, CrossingsAndTheFixesAtTheEnds) {
  expect_regions({0, 1, 1, 0, 0, 1, 0}, {1, 5}, {3, 6});
  expect_regions({1, 1, 0, 0, 1, 0}, {1, 4}, {2, 5});  // begins above
  expect_regions({0, 1, 0, 0, 1, 1}, {1, 4}, {2, 6});  // ends above
  expect_regions({1, 0, 0, 1}, {1, 3}, {1, 4});        // both
  // A single crossing leaves one list empty: no fix, no region.
  for (const V& above : {V{0, 0, 1, 1}, V{1, 1, 0, 0}, V{1, 1, 1}, V{1}, V{}})
    expect_regions(above, {}, {});
  // Strictly above only; NaN is never above.
  const Regions r = candidate_regions(V{1, 2, 1, kNaN, 1}, V{1, 1, 1, 0, 1});
  EXPECT_EQ(r.start, V{1});
  EXPECT_EQ(r.end, V{2});
}

}  // namespace
