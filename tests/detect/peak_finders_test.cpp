// Peak finders: local-maximum rules and tie-breaks, the weighted rise and
// fall, and the exported |x|.
#include <gtest/gtest.h>

#include <cmath>
#include <span>
#include <utility>

#include "detect/detect_support.hpp"
#include "detect/peak_finders.hpp"
#include "reference/detector.hpp"

namespace {

using namespace kelo::detect;
using namespace kelo::test;

// Each {x, 1-based position} case, the amplitude being the sample there
// (-Inf for both when there is no peak).
void expect_peaks(Peak (*finder)(std::span<const double>), const std::vector<std::pair<V, double>>& cases) {
  for (const auto& [x, at] : cases) {
    const Peak p = finder(x);
    EXPECT_EQ(p.position, at) << testing::PrintToString(x);
    EXPECT_EQ(p.amplitude, at > 0 ? x[std::size_t(at) - 1] : -kInf) << testing::PrintToString(x);
  }
}

TEST(FindSmallPeak, HighestInteriorMaximumFirstOfEqualsWins) {
  // A plateau counts from its first sample; the ends never count; a NaN
  // neighbour is never below; -Inf when there is no interior maximum.
  expect_peaks(m_findsmallpeak, {
      {{0, 1, 1, 0}, 2}, {{0, 2, 0, 2, 0}, 2}, {{0, 1, 0, 3, 0, 2, 0}, 4}, {{9, 1, 2, 1, 9}, 3},
      {{0, kNaN, 0, 1, 0}, 4}, {{1, 2, 3}, -kInf}, {{3, 2, 1}, -kInf}, {{2, 2, 2}, -kInf},
      {{0, 1}, -kInf}, {{}, -kInf}, {{0, 0, 0, 1}, -kInf}, {{0, 5, kNaN, 1, 0}, -kInf}});
}

TEST(FindBigPeak, ScoreWeighsTheFall1_3AgainstTheRise) {
  // {0, 5, 4, 6, 0}: maxima 2 and 4 with feet 1 | 3 | 5 (the last sample):
  // 1.3 * 1 + 5 = 6.3 against 1.3 * 6 + 2 = 9.8; the sample value, not the
  // score, is returned. Equal totals: the larger fall wins; equal scores:
  // the first. The last sample is the right foot of the last maximum even
  // when high; a NaN hides the foot after the maximum at 2, which is skipped.
  // Scores 23 and 22.98: 1.25 instead of 1.3 would give 22.5 and 22.6. The
  // reference form, which records the extremes in arrays first, agrees.
  for (Peak (*finder)(std::span<const double>) : {&m_findbigpeak, &kelo::ref::m_findbigpeak})
    expect_peaks(finder, {
        {{0, 5, 4, 6, 0}, 4}, {{0, 4, 2, 4, 0}, 4}, {{0, 3, 0, 3, 0}, 2}, {{5, 6, 5, 0, 4, 0}, 5},
        {{0, 3, 1, 4, 2, 7, 0}, 6}, {{0, 5, 0, 8, 7, 6}, 2}, {{0, 9, 1, kNaN, 1, 3, 0}, 6},
        {{0, 10, 0, 13.1, 5.5}, 2}, {{}, -kInf}, {{1}, -kInf}, {{1, 2}, -kInf}, {{1, 2, 3, 4}, -kInf},
        {{3, 3, 3}, -kInf}});
}

TEST(Abs, ClearsTheSignBitOverTheFirstExtent) {
  kelo::EmxReal y(1);
  m_abs(column({-1.5, -0.0, kNaN, -kInf}), y);
  const V v = values(y);
  ASSERT_EQ(v.size(), 4u);
  EXPECT_TRUE(v[0] == 1.5 && !std::signbit(v[1]) && std::isnan(v[2]) && v[3] == kInf);
  m_abs(row({-4, 5, 6}), y);  // a 1 x 3 row: first extent 1
  m_abs(nullptr, y);
  m_abs(column({1}), nullptr);
  EXPECT_EQ(values(y), V{4});
}

}  // namespace
