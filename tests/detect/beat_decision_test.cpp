// Beat decision stages: provisional peaks in lengthened regions, the
// template, the two scans and their boundary rules, the correlation limit,
// the refinement, the correlation pass and the search-back.
#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <span>
#include <tuple>
#include <utility>

#include "detect/detect_support.hpp"
#include "detect/detector.hpp"
#include "reference/detector.hpp"
#include "support/synthetic_ecg.hpp"

namespace {

using namespace kelo::ref;
using namespace kelo::test;

// A bump of height 1 at 1-based position p on a flat line of n samples.
V bump(std::size_t n, std::size_t p) {
  V x(n, 0.0);
  x[p - 2] = x[p] = 0.5;
  x[p - 1] = 1.0;
  return x;
}

TEST(ProvisionalPeaks, ShortRegionIsLengthenedAndKeptLonger) {
  // (10, 20) is shorter than 40 samples: its end becomes 50 and reaches the
  // bump at 45; (10, 50) is exactly 40 long, (11, 50) one less; (80, 90) is
  // capped at n = 100. The fast form does the same.
  kelo::detect::Regions fast{{10, 10, 80, 11}, {20, 50, 90, 50}};
  EXPECT_EQ(kelo::detect::provisional_peaks(bump(100, 45), fast, 40.0), (V{45, 45, -kInf, 45}));
  EXPECT_EQ(fast.end, (V{50, 50, 100, 51}));
  Regions r{{10, 10, 80, 11}, {20, 50, 90, 50}};
  V peaks = provisional_peaks(bump(100, 45), r, 40.0);
  EXPECT_EQ(r.end, (V{50, 50, 100, 51}));
  EXPECT_EQ(peaks, (V{45, 45, -kInf, 45}));  // a flat region has no peak
  keep_placed(r, peaks);
  EXPECT_EQ(r.start, (V{10, 10, 11}));
  EXPECT_EQ(peaks, (V{45, 45, 45}));
}

TEST(BeatTemplate, MedianOfMeanRemovedBeatsWithZeroRows) {
  // Peak 1 is too near the start (1 - 1 = 0): a zero row that still counts.
  // Peak 3 may end on the last sample (n >= p + hw): (0, 3, 0) - 1.
  EXPECT_EQ(beat_template(V{1, 0, 3, 0}, V{1, 3}, 1), (V{-0.5, 1, -0.5}));
  EXPECT_EQ(beat_template(V{0, 1, 4, 1, 0, 2, 8, 2, 0}, V{3, 7, 9}, 1), (V{-1, 2, -1}));
  EXPECT_TRUE(std::isnan(beat_template(V{1, 2, 3}, V{}, 1)[1]));
  EXPECT_EQ(kelo::detect::beat_template(V{1, 0, 3, 0}, V{1, 3}, 1), (V{-0.5, 1, -0.5})) << "the fast form";
}

TEST(Scans, ThreeBoundaryRules) {
  const V ecg = bump(20, 10);
  const V tmpl{0, 0.5, 1, 0.5, 0};  // hw = 2
  // Correlation pass: q - 2 > 0 and q + 2 < 20 for every q of the region.
  EXPECT_FALSE(scan_region(ecg, tmpl, 3, 17, 2).outOfRange);
  EXPECT_TRUE(scan_region(ecg, tmpl, 2, 17, 2).outOfRange);
  EXPECT_TRUE(scan_region(ecg, tmpl, 3, 18, 2).outOfRange);
  // Logical length end - start, one more coefficient computed.
  const CorrelationScan s = scan_region(ecg, tmpl, 5, 12, 2);
  EXPECT_EQ(s.logicalLength, 7u);
  ASSERT_EQ(s.row.size(), 8u);
  EXPECT_DOUBLE_EQ(s.row[5], 1.0);  // q = 10 is the bump itself
  EXPECT_NE(s.row[7], 0.0);
  // Search-back: q = mid - 2 .. mid + 2 with q - 2 > 0 and q + 2 <= 20.
  for (double mid : {5.0, 16.0}) EXPECT_FALSE(scan_middle(ecg, tmpl, mid, 2).outOfRange) << mid;
  for (double mid : {4.0, 17.0}) EXPECT_TRUE(scan_middle(ecg, tmpl, mid, 2).outOfRange) << mid;
  EXPECT_DOUBLE_EQ(scan_middle(ecg, tmpl, 10, 2).row[2], 1.0);
  // The fast scans keep the same rules.
  const kelo::detect::TemplateCorrelator fast(tmpl, kelo::simd::best_kernels());
  for (const auto& [start, end, out] : {std::tuple{3.0, 17.0, false}, {2.0, 17.0, true}, {3.0, 18.0, true}})
    EXPECT_EQ(kelo::detect::scan_region(ecg, fast, start, end).outOfRange, out) << start << " " << end;
  for (const auto& [mid, out] : {std::pair{5.0, false}, {16.0, false}, {4.0, true}, {17.0, true}})
    EXPECT_EQ(kelo::detect::scan_middle(ecg, fast, mid).outOfRange, out) << mid;
}

TEST(CorrelationLimit, ComparesWithTheLastSlotOfTheOutput) {
  for (double (*limit)(double, double, double) : {&correlation_limit, &kelo::detect::correlation_limit}) {
    EXPECT_EQ(limit(0.0, 1000, 0), 0.6);
    EXPECT_EQ(limit(kInf, 1000, 0), 0.8);  // after a -Inf slot
    EXPECT_EQ(limit(kNaN, 1000, 0), 0.6);
    EXPECT_EQ(limit(200, 1000, 900), 0.8);  // a filled last slot
    EXPECT_EQ(limit(200, 1000, 870), 0.6);  // 130 > 130 is false
  }
}

TEST(Refine, HighestLocalMaximumWithinTenSamplesIfTheWindowFits) {
  const V ecg = bump(50, 25);
  for (std::optional<double> (*refined)(std::span<const double>, double) : {&refine, &kelo::detect::refine}) {
    EXPECT_EQ(refined(ecg, 33), 25.0);
    EXPECT_EQ(refined(ecg, 36), -kInf);  // 26 .. 46 falls, then is flat
    // The window c - 10 .. c + 10 must lie within 1 .. 50.
    for (double c : {10.0, 41.0}) EXPECT_FALSE(refined(ecg, c).has_value()) << c;
    for (double c : {11.0, 40.0}) EXPECT_TRUE(refined(ecg, c).has_value()) << c;
  }
}

TEST(SearchBack, GapsAndTheirMiddles) {
  const V beats{100, 300, 500, 900};  // RR 200, 200, 400
  EXPECT_EQ(gap_indices(beats), V{2});
  EXPECT_EQ(gap_middle(beats, 2), 700);
  EXPECT_EQ(gap_middle(V{100, 500, 901}, 1), 701);  // ceil(700.5)
  EXPECT_EQ(gap_indices(V{100, 300, 660}), V{});    // exactly 1.8 times
  EXPECT_EQ(gap_indices(V{100, 300, 661}), V{1});
  EXPECT_EQ(gap_indices(V{100, 300}), V{});
  EXPECT_EQ(accepted_peaks(V{5, 0, -kInf, 7, 0}), (V{5, 7}));
}

}  // namespace
