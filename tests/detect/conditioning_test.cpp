// Signal conditioning stages on inputs small enough to check by hand.
#include <gtest/gtest.h>

#include <cmath>
#include <tuple>

#include "detect/detect_support.hpp"
#include "reference/detector.hpp"

namespace {

using namespace kelo::ref;
using namespace kelo::test;

TEST(Widths, At200HzAndTheShortestUsableRecording) {
  const Widths w = widths_for(200.0);
  EXPECT_EQ((V{double(w.spreadHalfWidth), double(w.featureHalfWidth), double(w.envelopeHalfWidth),
               double(w.templateHalfWidth), w.smoothingSpan, w.minRegionLength}),
            (V{40, 5, 20, 16, 600, 40}));
  EXPECT_EQ(widths_for(100.0).templateHalfWidth, 8);  // below the refinement's 10
  // n >= fs + 1 (3 >= 3.5 fails); no hold at all below 1 Hz; unusable rates.
  for (const auto& [n, fs, fits] : std::vector<std::tuple<std::size_t, double, bool>>{
           {200, 200, false}, {201, 200, true}, {1, 1, false}, {2, 1, true}, {3, 2.5, false},
           {0, 0.5, true}, {100000, 0, false}, {100000, -200, false}, {100000, kNaN, false},
           {100000, kInf, false}})
    EXPECT_EQ(fits_edge_holds(n, fs), fits) << n << " at " << fs;
}

TEST(EdgeHold, HeadThenTail) {
  // The tail reads element n - h after the head hold; fewer than h + 1
  // elements stay untouched.
  for (auto [x, h, held] : std::vector<std::tuple<V, int64_t, V>>{
           {{0, 0, 5, 6, 7, 0, 0}, 2, {5, 5, 5, 6, 7, 7, 7}}, {{1, 2, 3}, 2, {3, 3, 3}}, {{1, 2, 3}, 3, {1, 2, 3}}}) {
    edge_hold(x, h);
    EXPECT_EQ(x, held) << h;
  }
}

TEST(SlidingMeasures, SpreadSlopeRangesAndEnvelope) {
  const double unit = std::sqrt(7.0 / 3.0);  // std of (1, 2, 4); edges held
  const V s = local_spread(V{1, 2, 4, 8, 16}, 1);
  for (std::size_t k = 0; k < 5; ++k) EXPECT_DOUBLE_EQ(s[k], (V{1, 1, 2, 4, 4})[k] * unit) << k;
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

TEST(CandidateRegions, CrossingsAndTheFixesAtTheEnds) {
  // {above (threshold 0.5), starts, ends}: begins above, ends above, both;
  // a single crossing leaves one list empty: no fix, no region.
  const std::vector<std::tuple<V, V, V>> cases{
      {{0, 1, 1, 0, 0, 1, 0}, {1, 5}, {3, 6}}, {{1, 1, 0, 0, 1, 0}, {1, 4}, {2, 5}},
      {{0, 1, 0, 0, 1, 1}, {1, 4}, {2, 6}},    {{1, 0, 0, 1}, {1, 3}, {1, 4}},
      {{0, 0, 1, 1}, {}, {}}, {{1, 1, 0, 0}, {}, {}}, {{1, 1, 1}, {}, {}}, {{1}, {}, {}}, {{}, {}, {}}};
  for (const auto& [above, start, end] : cases) {
    const Regions r = candidate_regions(above, V(above.size(), 0.5));
    EXPECT_EQ(r.start, start) << testing::PrintToString(above);
    EXPECT_EQ(r.end, end) << testing::PrintToString(above);
  }
  // Strictly above only; NaN is never above.
  const Regions r = candidate_regions(V{1, 2, 1, kNaN, 1}, V{1, 1, 1, 0, 1});
  EXPECT_EQ(r.start, V{1});
  EXPECT_EQ(r.end, V{2});
}

}  // namespace
