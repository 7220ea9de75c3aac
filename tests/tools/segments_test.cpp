// Long excerpts detected in segments: the plan covers the excerpt with
// whole quality windows, the seams lose and double no beat, and the grades
// formed over joined beats are those detectWaves gives.
#include "segments.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>

#include "keloecgsolver/keloecgsolver.h"
#include "support/synthetic_ecg.hpp"

namespace {

using namespace keloecg;

TEST(Segments, PlanCoversTheExcerptWithWholeWindows) {
  struct Case {
    Excerpt excerpt;
    double segment_s;
    int window_s;
    std::size_t segments;
    std::int64_t core, overlap;
  };
  const Case cases[] = {
      {{0, 2 * 3600 * 200}, 600, 10, 12, 120000, 6000},  // two hours
      {{1000, 239999}, 600, 10, 1, 0, 0},                // just under two segments: one pass
      {{1000, 240000}, 600, 10, 2, 120000, 6000},
      {{0, 3 * 3600 * 200 + 12345}, 600, 7, 18, 119000, 7000},  // whole 7 s windows
      {{0, 3600 * 200}, 0, 10, 1, 0, 0},                         // one pass asked for
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.excerpt.length);
    const auto plan = plan_segments(c.excerpt, c.segment_s, c.window_s);
    ASSERT_EQ(plan.segments.size(), c.segments);
    EXPECT_EQ(std::pair(plan.segment, plan.overlap), std::pair(c.core, c.overlap));
    std::int64_t next = c.excerpt.start;
    for (const auto& s : plan.segments) {
      EXPECT_EQ(s.core_start, next);  // cores follow each other without gap
      next = s.core_end;
      EXPECT_EQ((s.core_start - c.excerpt.start) % (c.window_s * 200), 0);
      EXPECT_EQ(s.span.start, std::max(c.excerpt.start, s.core_start - plan.overlap));
      EXPECT_EQ(s.span.end(), std::min(c.excerpt.end(), s.core_end + plan.overlap));
    }
    EXPECT_EQ(next, c.excerpt.end());
    if (c.segments > 1) {
      EXPECT_LT(plan.segments.back().core_end - plan.segments.back().core_start, 2 * c.core);
    }
  }
}

// Two segments of a plan with its seam at 100000 (overlap 6000): each case
// gives the beats each segment found, the joined list and, for each joined
// beat, the segment whose label it carries (that of the segment whose core
// holds it when that one found it, else the other's).
TEST(Segments, SeamsLoseAndDoubleNoBeat) {
  SegmentPlan plan;
  plan.segment = 100000;
  plan.overlap = 6000;
  plan.segments = {{{0, 106000}, 0, 100000}, {{94000, 106000}, 100000, 200000}};
  struct Case {
    const char* what;
    std::vector<std::int64_t> left, right, joined;
    bool agreed;
    std::string labelled_by;  // L or R per joined beat
  };
  const Case cases[] = {
      {"both agree", {90000, 97000, 99000, 101000, 103000, 105900}, {94100, 97000, 99000, 101000, 103000, 150000},
       {90000, 97000, 99000, 101000, 103000, 150000}, true, "LLLRRR"},
      // The beat at the seam is found one sample apart by the two: kept once,
      // from the segment that agrees on the pair nearest the seam.
      {"shifted at the seam", {97000, 98000, 99990, 102000, 103000}, {97000, 98000, 100001, 102000, 103000, 104000},
       {97000, 98000, 100001, 102000, 103000, 104000}, true, "LLRRRR"},
      // No two consecutive beats agree: each side keeps its own half; the
      // beat both saw 2 samples apart across the seam is kept once, the one
      // only the left saw beyond the seam is added.
      {"no agreement", {95000, 99999, 101000}, {95001, 100001, 103000, 107000}, {95000, 99999, 101000, 103000, 107000},
       false, "LLLRR"},
      {"no beats near the seam", {50000, 60000}, {150000, 160000}, {50000, 60000, 150000, 160000}, false, "LLRR"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    std::vector<Seam> seams;
    const auto joined = join_segments(plan, {c.left, c.right}, seams);
    EXPECT_EQ(joined, c.joined);
    ASSERT_EQ(seams.size(), 1u);
    EXPECT_EQ(seams[0].at, 100000);
    EXPECT_EQ(seams[0].agreed, c.agreed);

    // Labels 100 + i for the left segment's beat i, 200 + i for the right's.
    std::vector<int> left_labels, right_labels, expected;
    for (std::size_t i = 0; i < c.left.size(); ++i) left_labels.push_back(100 + static_cast<int>(i));
    for (std::size_t i = 0; i < c.right.size(); ++i) right_labels.push_back(200 + static_cast<int>(i));
    ASSERT_EQ(c.labelled_by.size(), joined.size());
    for (std::size_t i = 0; i < joined.size(); ++i) {
      const auto& from = c.labelled_by[i] == 'L' ? c.left : c.right;
      const auto at = std::find(from.begin(), from.end(), joined[i]);
      ASSERT_NE(at, from.end()) << joined[i];
      expected.push_back((c.labelled_by[i] == 'L' ? 100 : 200) + static_cast<int>(at - from.begin()));
    }
    EXPECT_EQ(joined_labels(plan, {c.left, c.right}, {left_labels, right_labels}, joined), expected);
  }
}

// The grades formed over given beats equal those of detectWaves over its
// own beats: regular, irregular and clipped excerpts, one window or many.
TEST(Segments, GradesEqualThoseOfTheLibrary) {
  std::mt19937 random(3);
  std::set<int> seen;
  detectWaves_initialize();
  for (int trial = 0; trial < 12; ++trial) {
    SCOPED_TRACE(trial);
    std::vector<kelo::test::Beat> beats;
    std::uniform_int_distribution<int> rr(trial % 3 == 0 ? 80 : 150, trial % 3 == 0 ? 260 : 170);
    for (long pos = 100; pos < 11800; pos += rr(random)) beats.push_back({pos});
    auto x = kelo::test::synthetic_ecg(beats, 12000, {.noiseMv = 0.02, .seed = static_cast<std::uint32_t>(trial)});
    const double full_scale = trial % 4 == 1 ? 0.9 : 10.0;
    const int window_s = trial % 2 ? 4 : 10;
    emxArray_real_T* ecg = emxCreateWrapper_real_T(x.data(), static_cast<std::int32_t>(x.size()), 1);
    emxArray_int32_T* peaks = emxCreate_int32_T(0, 1);
    emxArray_int32_T* windows = emxCreate_int32_T(1, 1);
    std::int32_t grade = 0;
    detectWaves(ecg, full_scale, 200, window_s, peaks, &grade, windows);
    std::vector<std::int64_t> found(peaks->data, peaks->data + peaks->size[0]);
    for (auto& p : found) --p;  // 0-based
    EXPECT_EQ(excerpt_grade(x, found, full_scale), grade);
    if (windows->size[0] == 1) {
      EXPECT_EQ(window_grade(x, found, full_scale), windows->data[0]);
    }
    seen.insert(grade);
    emxDestroyArray_real_T(ecg);
    emxDestroyArray_int32_T(peaks);
    emxDestroyArray_int32_T(windows);
  }
  detectWaves_terminate();
  EXPECT_EQ(seen, (std::set<int>{1, 2, 3}));
  // Fewer than three beats never make an excerpt irregular.
  const std::vector<double> flat(1000, 0.0);
  for (std::vector<std::int64_t> few : {std::vector<std::int64_t>{}, {10}, {10, 900}}) {
    EXPECT_EQ(excerpt_grade(flat, few, 1.0), 1);
    EXPECT_EQ(window_grade(flat, few, 1.0), few.size() < 2 ? 3 : 0);
  }
}

}  // namespace
