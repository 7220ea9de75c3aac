// The analysis on the library: statuses as the bridge reports them,
// positions in the whole recording, and the beat review of the report.
#include "analysis.hpp"

#include <gtest/gtest.h>

#include "support/synthetic_ecg.hpp"

namespace {

using namespace keloecg;

// 30 s at 200 Hz: beats every 160 samples from 100, with light noise.
Prepared at_200(const std::vector<kelo::test::Beat>& beats, std::optional<double> full_scale = std::nullopt) {
  Recording r;
  r.path = "synthetic";
  r.fs = 200;
  r.lead_names = {""};
  r.samples = beats.empty() ? std::vector<double>(6000, 0.0)
                            : kelo::test::synthetic_ecg(beats, 6000, {.noiseMv = 0.02});
  r.full_scale = full_scale;
  r.total_samples = static_cast<std::int64_t>(r.samples.size());
  return prepare(std::move(r), {});
}

QrsResult qrs(const Prepared& p, const AnalysisSettings& s) { return run_qrs(p, choose_excerpt(p, s, RunKind::Qrs), s); }

const auto kBeats = kelo::test::regular_beats(100, 160, 37);

TEST(Analysis, StatusesFollowTheBridge) {
  AnalysisSettings s;
  auto q = qrs(at_200({}), s);  // flat
  EXPECT_EQ(q.status, KELO_STATUS_NO_USABLE_BEATS);
  EXPECT_FALSE(q.heart_rate);
  EXPECT_EQ(q.window_grades, (std::vector<int>{3, 3, 3}));

  const auto clean = at_200(kBeats, 5.0);
  q = qrs(clean, s);
  EXPECT_EQ(q.status, KELO_STATUS_SUCCESS);
  EXPECT_EQ(q.heart_rate, 75.0);
  EXPECT_EQ(q.full_scale, 5.0);
  // A full scale of 0.5 mV makes the 1 mV R waves clipped: status 5, and
  // the heart rate is still given.
  s.full_scale = 0.5;
  q = qrs(clean, s);
  EXPECT_EQ(q.excerpt_grade, 2);
  EXPECT_EQ(q.status, KELO_STATUS_CLIPPED);
  EXPECT_EQ(q.heart_rate, 75.0);

  // Positions count from the start of the recording, not of the excerpt.
  s.full_scale.reset();
  s.start_s = 5.0;
  q = qrs(clean, s);
  ASSERT_FALSE(q.r_peaks.empty());
  for (auto peak : q.r_peaks) {
    EXPECT_GE(peak, 1000);
    EXPECT_EQ((peak - 100) % 160, 0) << peak;  // exactly on a synthetic R peak
  }
}

TEST(Analysis, ReviewFindsTheOddBeatAndTheExtraDetection) {
  auto beats = kBeats;
  beats[20].shape = kelo::test::BeatShape::Wide;
  const auto p = at_200(beats);
  QrsResult q;  // the beats as a detector would list them, whatever this one finds
  q.excerpt = {0, 6000};
  for (const auto& b : beats) q.r_peaks.push_back(b.position);
  auto review = review_beats(p, q);
  ASSERT_EQ(review.classes.size(), beats.size());
  for (std::size_t k = 0; k < beats.size(); ++k) EXPECT_EQ(review.classes[k], k == 20 ? 0 : 1) << k;
  EXPECT_TRUE(review.rr_removed.empty());

  // A spurious detection 40 samples after beat 10: the RR check removes it
  // and keeps the normal beat before it.
  q.r_peaks.insert(q.r_peaks.begin() + 11, beats[10].position + 40);
  review = review_beats(p, q);
  EXPECT_EQ(review.rr_removed, (std::vector<std::size_t>{11}));
  EXPECT_EQ(review.classes[11], 0);
}

}  // namespace
