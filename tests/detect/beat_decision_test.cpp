// Beat decision stages: provisional peaks in lengthened regions, the
// template, the two scans and their boundary rules, the correlation limit,
// the refinement, the correlation pass and the search-back.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "detect/detector.hpp"
#include "support/synthetic_ecg.hpp"

namespace {

using namespace kelo::detect;
using V = std::vector<double>;
constexpr double kInf = std::numeric_limits<double>::infinity();

// A bump of height 1 at 1-based position p on a flat line of n samples.
V bump(std::size_t n, std::size_t p) {
  V x(n, 0.0);
  x[p - 2] = x[p] = 0.5;
  x[p - 1] = 1.0;
  return x;
}

TEST(ProvisionalPeaks, ShortRegionIsLengthenedAndKeptLonger) {
  // (10, 20) is shorter than 40 samples: its end becomes 50 and reaches the
  // bump at 45; (10, 50) is exactly 40 long; (80, 90) is capped at n = 100.
  Regions r{{10, 10, 80}, {20, 50, 90}};
  const V peaks = provisional_peaks(bump(100, 45), r, 40.0);
  EXPECT_EQ(r.end, (V{50, 50, 100}));
  EXPECT_EQ(peaks, (V{45, 45, -kInf}));  // a flat region has no peak
  V kept = peaks;
  keep_placed(r, kept);
  EXPECT_EQ(r.start, (V{10, 10}));
  EXPECT_EQ(kept, (V{45, 45}));
}

TEST(BeatTemplate, MedianOfMeanRemovedBeatsWithZeroRows) {
  // Peak 1 is too near the start (1 - 1 = 0): a zero row that still counts.
  // Peak 3 may end on the last sample (n >= p + hw): (0, 3, 0) - 1.
  EXPECT_EQ(beat_template(V{1, 0, 3, 0}, V{1, 3}, 1), (V{-0.5, 1, -0.5}));
  EXPECT_EQ(beat_template(V{0, 1, 4, 1, 0, 2, 8, 2, 0}, V{3, 7, 9}, 1), (V{-1, 2, -1}));
  EXPECT_TRUE(std::isnan(beat_template(V{1, 2, 3}, V{}, 1)[1]));
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
  EXPECT_FALSE(scan_middle(ecg, tmpl, 16, 2).outOfRange);
  EXPECT_TRUE(scan_middle(ecg, tmpl, 17, 2).outOfRange);
  EXPECT_FALSE(scan_middle(ecg, tmpl, 5, 2).outOfRange);
  EXPECT_TRUE(scan_middle(ecg, tmpl, 4, 2).outOfRange);
  EXPECT_DOUBLE_EQ(scan_middle(ecg, tmpl, 10, 2).row[2], 1.0);
}

TEST(CorrelationLimit, ComparesWithTheLastSlotOfTheOutput) {
  EXPECT_EQ(correlation_limit(0.0, 1000, 0), 0.6);
  EXPECT_EQ(correlation_limit(200, 1000, 0), 0.6);   // 130 > 1000 is false
  EXPECT_EQ(correlation_limit(kInf, 1000, 0), 0.8);  // after a -Inf slot
  EXPECT_EQ(correlation_limit(std::nan(""), 1000, 0), 0.6);
  EXPECT_EQ(correlation_limit(200, 1000, 900), 0.8);  // a filled last slot
  EXPECT_EQ(correlation_limit(200, 1000, 870), 0.6);  // 130 > 130 is false
}

TEST(Refine, HighestLocalMaximumWithinTenSamplesIfTheWindowFits) {
  const V ecg = bump(50, 25);
  EXPECT_EQ(refine(ecg, 22), 25.0);
  EXPECT_EQ(refine(ecg, 33), 25.0);
  EXPECT_EQ(refine(ecg, 36), -kInf);  // 26 .. 46 falls, then is flat
  EXPECT_FALSE(refine(ecg, 10).has_value());
  EXPECT_TRUE(refine(ecg, 11).has_value());
  EXPECT_TRUE(refine(ecg, 40).has_value());
  EXPECT_FALSE(refine(ecg, 41).has_value());
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

// Synthetic beats at 0-based positions, their template (hw = 16) and
// regions -19 .. +21 around the listed beats.
struct Scene {
  V ecg, beatTemplate;
  Regions regions;
};

Scene scene(const std::vector<int64_t>& beats, const std::vector<int64_t>& around) {
  std::vector<kelo::test::Beat> b;
  V peaks;
  for (int64_t p : beats) {
    b.push_back({p});
    peaks.push_back(static_cast<double>(p + 1));
  }
  Scene s{kelo::test::synthetic_ecg(b, 1200), {}, {}};
  s.beatTemplate = beat_template(s.ecg, peaks, 16);
  for (int64_t p : around) {
    s.regions.start.push_back(static_cast<double>(p - 19));
    s.regions.end.push_back(static_cast<double>(p + 21));
  }
  return s;
}

TEST(CorrelationPass, OneRefinedBeatPerRegionInRegionOrder) {
  const Scene s = scene({300, 500, 700, 900}, {300, 500, 700});
  BeatList beats(6);
  correlation_pass(s.ecg, s.beatTemplate, s.regions, 16, beats);
  EXPECT_EQ(beats.rpeaks, (V{301, 501, 701, 0, 0, 0}));
  EXPECT_EQ(beats.lastRR, 200);
}

TEST(CorrelationPass, RegionsTouchingTheEndsAndPoorMatchesAreSkipped) {
  Scene s = scene({30, 300, 500, 1165}, {300, 500});
  s.regions.start.insert(s.regions.start.begin(), 1.0);  // q - hw <= 0 at q = 1
  s.regions.end.insert(s.regions.end.begin(), 60.0);
  s.regions.start.push_back(1150.0);
  s.regions.end.push_back(1184.0);  // 1184 + 16 = 1200 is not < 1200
  BeatList beats(8);
  correlation_pass(s.ecg, s.beatTemplate, s.regions, 16, beats);
  EXPECT_EQ(accepted_peaks(beats.rpeaks), (V{301, 501}));
  s.regions.end.back() = 1183.0;
  // A slow wave instead of the beat at 500 correlates poorly.
  for (int k = 470; k < 530; ++k) s.ecg[k] = std::sin((k - 470) / 60.0 * 3.14159);
  BeatList again(8);
  correlation_pass(s.ecg, s.beatTemplate, s.regions, 16, again);
  EXPECT_EQ(accepted_peaks(again.rpeaks), (V{301, 1166}));
}

TEST(SearchBackPass, FindsTheBeatInTheMiddleOfALongInterval) {
  const Scene s = scene({100, 300, 500, 700, 900}, {});
  auto run = [&](double feature) {
    BeatList beats(8);
    beats.rpeaks = {101, 301, 501, 901, 0, 0, 0, 0};
    beats.beatCount = 5;
    search_back(s.ecg, s.beatTemplate, V(1200, feature), V(1200, 1.0), 16, beats);
    return beats;
  };
  // Gap 2 centres on ceil((501 + 901) / 2) = 701; lastRR stays untouched.
  const BeatList found = run(1.0);
  EXPECT_EQ(found.rpeaks, (V{101, 301, 501, 901, 701, 0, 0, 0}));
  EXPECT_EQ(found.lastRR, 0);
  EXPECT_EQ(run(0.5).beatCount, 5u);  // feature must exceed half the threshold
}

}  // namespace
