// Missed-beat search on synthetic ECG: a deleted beat found and merged,
// where the found beat is placed, the half-gap test, the merge that is not
// a full sort, the pass limit, the reference slope, and bad input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <vector>

#include "classify/refine_kernels.hpp"
#include "keloecgsolver/classify.h"
#include "keloecgsolver/lifecycle.h"
#include "support/synthetic_ecg.hpp"

namespace {

using kelo::test::Beat;
using kelo::test::BeatShape;

constexpr int32_t kLen = KELO_REFINE_LENGTH;

struct Refined {
  std::vector<int32_t> in;   // the beat list handed in (kLen entries)
  std::vector<int32_t> out;  // beatsOut
  int32_t n;
  int32_t count;
  std::vector<int32_t> dropped;  // 1-based R positions left out of the list
};

// Synthesises the beats, hands in all but the dropped ones and refines.
Refined refine(const std::vector<Beat>& beats, const std::set<std::size_t>& drop, double noise) {
  const auto x = kelo::test::synthetic_ecg(beats, kLen, {.noiseMv = noise});
  Refined r{std::vector<int32_t>(kLen, 0), std::vector<int32_t>(kLen, -1), 0, -1, {}};
  for (std::size_t i = 0; i < beats.size(); ++i) {
    const auto pos = static_cast<int32_t>(beats[i].position) + 1;
    if (drop.count(i) != 0) {
      r.dropped.push_back(pos);
    } else {
      r.in[static_cast<std::size_t>(r.n++)] = pos;
    }
  }
  refineQrsDetection_initialize();
  refineQrsDetection(x.data(), r.in.data(), r.n, 200, r.out.data(), &r.count);
  refineQrsDetection_terminate();
  return r;
}

// RR intervals alternating 150 and 170 samples.
std::vector<Beat> alternating_beats(int count, BeatShape shape = BeatShape::Normal) {
  std::vector<Beat> beats;
  int64_t p = 100;
  for (int i = 0; i < count; ++i, p += (i % 2 == 0 ? 150 : 170)) beats.push_back({p, shape});
  return beats;
}

// The first n output beats that are not input beats.
std::vector<int32_t> found(const Refined& r) {
  std::vector<int32_t> inputs(r.in.begin(), r.in.begin() + r.n), result;
  for (int32_t k = 0; k < r.n; ++k) {
    if (!std::binary_search(inputs.begin(), inputs.end(), r.out[k])) result.push_back(r.out[k]);
  }
  return result;
}

TEST(Refine, DeletedBeatIsFoundAndMergedInOrder) {
  const Refined r = refine(alternating_beats(60), {30}, 0.0);
  EXPECT_EQ(r.count, r.n);
  const auto added = found(r);
  ASSERT_EQ(added.size(), 1u);
  // Placed at the largest sample of the window that ends at the first
  // candidate of largest amplitude: on the P-wave side, before the R peak.
  EXPECT_GE(added[0], r.dropped[0] - 30);
  EXPECT_LT(added[0], r.dropped[0]);
  // The list: the new beat in order, the last input beat pushed past n,
  // everything after it untouched.
  std::vector<int32_t> expected = r.in;
  expected.insert(expected.begin() + 30, added[0]);
  expected.pop_back();
  EXPECT_EQ(r.out, expected);
}

TEST(Refine, WideBeatIsFoundAtItsPeak) {
  // A wide complex has its trough late, so the window ending at the first
  // best candidate contains the R peak.
  const Refined r = refine(kelo::test::regular_beats(100, 160, 220, BeatShape::Wide), {100}, 0.0);
  EXPECT_EQ(found(r), r.dropped);
  EXPECT_TRUE(std::is_sorted(r.out.begin(), r.out.begin() + r.n));
}

TEST(Refine, ListWithoutAcceptedBeatIsUnchanged) {
  // Regular beats: the candidate is accepted, but the beat lands 30 samples
  // before the true peak, 130 after the previous beat, short of the 139.5
  // that both halves of the gap need (mean 160.7 - 1.96 * sd 10.8).
  const Refined r = refine(kelo::test::regular_beats(100, 160, 220), {100}, 0.0);
  EXPECT_EQ(r.out, r.in);
  EXPECT_EQ(r.count, r.n);
  // No long gap at all.
  const Refined none = refine(alternating_beats(200), {}, 0.02);
  EXPECT_EQ(none.out, none.in);
}

TEST(Refine, StopsAfterFifteenPasses) {
  // Twenty gaps: each pass finds the beats of all open gaps but its merge
  // moves only the first into the list (the others are found again by the
  // next pass), so fifteen passes leave five gaps open.
  std::set<std::size_t> drop;
  for (std::size_t i = 0; i < 20; ++i) drop.insert(3 + 2 * i);
  const Refined r = refine(kelo::test::regular_beats(100, 160, 120), drop, 0.01);
  const auto added = found(r);
  ASSERT_EQ(added.size(), 15u);
  for (std::size_t k = 0; k < 15; ++k) {
    EXPECT_GE(added[k], r.dropped[k] - 30);
    EXPECT_LT(added[k], r.dropped[k]);
  }
  EXPECT_TRUE(std::is_sorted(r.out.begin(), r.out.begin() + r.n));
}

TEST(Refine, MergeIsOneInsertionStepPerBeat) {
  using kelo::refine::m_sortData;
  std::vector<int32_t> out(6, 0);
  // Appended in ascending order: only the first is moved into the list.
  m_sortData(std::vector<int32_t>{100, 500, 900, 300, 700, 42}, 3, 2, out);
  EXPECT_EQ(out, (std::vector<int32_t>{100, 300, 500, 900, 700, 42}));
  // Appended in descending order: both are.
  m_sortData(std::vector<int32_t>{100, 500, 900, 700, 300, 42}, 3, 2, out);
  EXPECT_EQ(out, (std::vector<int32_t>{100, 300, 500, 700, 900, 42}));
}

TEST(Refine, DeviationDividesByTheIndexSpan) {
  // Unlike the checks, which multiply by the reciprocal: the bits differ.
  const std::vector<double> a{0.1, 0.7, 1.3, 2.9};
  const double mean = kelo::refine::m_calcMean(a, 1, 4);
  double sum = 0.0;
  for (double v : a) sum += (v - mean) * (v - mean);
  ASSERT_NE(sum / 3.0, sum * (1.0 / 3.0));
  EXPECT_EQ(kelo::refine::m_calcSd(a, 1, 4, mean), std::sqrt(sum / 3.0));
}

// Largest first difference x[j+1] - x[j] over j = r - 12 .. r (1-based).
double max_slope(const std::vector<double>& x, int32_t r) {
  double best = -10000.0;
  for (int32_t j = r - 12; j <= r; ++j) best = std::max(best, x[j] - x[j - 1]);
  return best;
}

TEST(Refine, ReferenceSlopeFollowsThePolarityVote) {
  // The first beat is too early for a slope window: its slope stays 0 and
  // it does not vote. The other beats are identical.
  for (const BeatShape shape : {BeatShape::Normal, BeatShape::Inverted}) {
    std::vector<Beat> beats{{4, shape}};
    for (int64_t p = 199; p < 10000; p += 160) beats.push_back({p, shape});
    const auto x = kelo::test::synthetic_ecg(beats, kLen);
    std::vector<int32_t> r(kLen, 0);
    for (std::size_t k = 0; k < beats.size(); ++k) r[k] = static_cast<int32_t>(beats[k].position) + 1;
    const auto n = static_cast<int32_t>(beats.size());
    const auto st = kelo::refine::beat_statistics(x, r, n, 12);
    const double slope = max_slope(x, r[1]);
    if (shape == BeatShape::Normal) {
      EXPECT_EQ(st.vote, n - 1);
      // Upward: the maximum slopes of all beats, the first one's 0 included.
      EXPECT_NEAR(st.mS, slope * (n - 1) / n, 1e-12);
      EXPECT_GT(st.sS, 0.1 * slope);
    } else {
      EXPECT_EQ(st.vote, -(n - 1));
      // Downward: still the maximum slopes, from the second beat on.
      EXPECT_NEAR(st.mS, slope, 1e-12);
      EXPECT_LT(st.sS, 1e-12);
    }
  }
}

TEST(Refine, BadInputStaysInsideTheArrays) {
  const auto x = kelo::test::synthetic_ecg(alternating_beats(60), kLen, {.noiseMv = 0.01});
  std::vector<int32_t> in(kLen, 0), out(kLen, 0);
  int32_t count = -1;
  // Positions outside the signal and at its last sample, with long gaps,
  // under sane and absurd sampling rates.
  const std::vector<int32_t> odd{INT32_MIN, -50, 0, 1, 400, 2000, 35990, 36000, 36001, 70000, INT32_MAX};
  std::copy(odd.begin(), odd.end(), in.begin());
  for (int32_t fs : {200, 0, -200, 5000, INT32_MAX}) {
    refineQrsDetection(x.data(), in.data(), static_cast<int32_t>(odd.size()), fs, out.data(), &count);
    EXPECT_EQ(count, static_cast<int32_t>(odd.size()));
  }
  // Too many beats: the whole list is used and nothing can be appended.
  for (int32_t k = 0; k < kLen; ++k) in[k] = 1 + k;
  in[kLen / 2] = in[kLen / 2 - 1];
  refineQrsDetection(x.data(), in.data(), kLen + 7, 200, out.data(), &count);
  EXPECT_EQ(count, kLen);
  for (int32_t n : {-5, 0, 1}) {
    std::fill(out.begin(), out.end(), 3);
    refineQrsDetection(x.data(), in.data(), n, 200, out.data(), &count);
    EXPECT_EQ(count, n);
    EXPECT_EQ(out, in);
  }
  refineQrsDetection(nullptr, in.data(), 10, 200, out.data(), &count);
  refineQrsDetection(x.data(), in.data(), 10, 200, out.data(), nullptr);
  EXPECT_EQ(count, 1);
}

}  // namespace
