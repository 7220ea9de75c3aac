// Beat matching: the 150 ms window, one-to-one pairing, the largest number
// of matches (checked against an exhaustive matcher), the figures.
#include "beat_match.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>

namespace {

using keloecg::match_beats;
using V = std::vector<double>;

TEST(BeatMatch, WorkedExamples) {
  // The window is inclusive at 150 ms.
  auto r = match_beats(V{1.0, 2.0, 3.0}, V{1.150, 2.0 - 0.150, 3.1501});
  EXPECT_EQ(r.reference_match, (std::vector<std::int64_t>{0, 1, -1}));
  EXPECT_EQ(r.detection_match, (std::vector<std::int64_t>{0, 1, -1}));
  EXPECT_EQ(std::tuple(r.counts.true_positives, r.counts.false_negatives, r.counts.false_positives), std::tuple(2, 1, 1));
  // Times from sample numbers at 360 and 200 Hz, exactly 150 ms apart.
  EXPECT_EQ(match_beats(V{54.0 / 360.0}, V{0.0}).counts.true_positives, 1);
  // Two detections around one reference: the nearer one matches.
  r = match_beats(V{1.0}, V{0.9, 1.01});
  EXPECT_EQ(r.reference_match[0], 1);
  EXPECT_EQ(r.counts.false_positives, 1);
  EXPECT_NEAR(r.mean_abs_offset_s, 0.01, 1e-12);
  // One detection between two references pairs with only one of them.
  r = match_beats(V{1.0, 1.2}, V{1.1});
  EXPECT_EQ(std::tuple(r.counts.true_positives, r.counts.false_negatives, r.counts.false_positives), std::tuple(1, 1, 0));
  // The nearest pairing (0.15 with 0.14) would leave both 0 and 0.29 alone.
  EXPECT_EQ(match_beats(V{0.0, 0.15}, V{0.14, 0.29}).counts.true_positives, 2);
  EXPECT_EQ(match_beats({}, V{1.0}).counts.false_positives, 1);
}

// The size of a maximum matching by augmenting paths.
std::int64_t exhaustive_matches(const V& ref, const V& det, double w) {
  std::vector<int> owner(det.size(), -1);
  std::int64_t matches = 0;
  for (std::size_t i = 0; i < ref.size(); ++i) {
    std::vector<bool> seen(det.size(), false);
    std::function<bool(std::size_t)> augment = [&](std::size_t r) {
      for (std::size_t j = 0; j < det.size(); ++j) {
        if (seen[j] || std::abs(det[j] - ref[r]) > w + 1e-9) continue;
        seen[j] = true;
        if (owner[j] < 0 || augment(static_cast<std::size_t>(owner[j]))) {
          owner[j] = static_cast<int>(r);
          return true;
        }
      }
      return false;
    };
    matches += augment(i);
  }
  return matches;
}

TEST(BeatMatch, AgreesWithAnExhaustiveMatcherOnDenseRandomBeats) {
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> gap(0.05, 0.45), jitter(-0.2, 0.2);
  std::bernoulli_distribution drop(0.2), extra(0.3);
  for (int trial = 0; trial < 300; ++trial) {
    V ref, det;
    double t = 0;
    for (int k = 0; k < 25; ++k) {
      ref.push_back(t += gap(rng));
      if (!drop(rng)) det.push_back(t + jitter(rng));
      if (extra(rng)) det.push_back(t + jitter(rng));
    }
    std::sort(det.begin(), det.end());
    const auto r = match_beats(ref, det);
    ASSERT_EQ(r.counts.true_positives, exhaustive_matches(ref, det, 0.150)) << "trial " << trial;
    // Every pair lies within the window and is recorded both ways.
    for (std::size_t i = 0; i < ref.size(); ++i) {
      if (r.reference_match[i] < 0) continue;
      const auto j = static_cast<std::size_t>(r.reference_match[i]);
      EXPECT_LE(std::abs(det[j] - ref[i]), 0.150 + 1e-9);
      EXPECT_EQ(r.detection_match[j], static_cast<std::int64_t>(i));
    }
  }
}

TEST(BeatMatch, Figures) {
  keloecg::MatchCounts c{90, 10, 30}, none;
  EXPECT_DOUBLE_EQ(c.sensitivity(), 0.9);
  EXPECT_DOUBLE_EQ(c.positive_predictivity(), 0.75);
  EXPECT_DOUBLE_EQ(c.f1(), 180.0 / 220.0);
  EXPECT_TRUE(std::isnan(none.sensitivity()));
  none += c;
  EXPECT_EQ(std::pair(none.references(), none.detections()), std::pair(std::int64_t{100}, std::int64_t{120}));
}

}  // namespace
