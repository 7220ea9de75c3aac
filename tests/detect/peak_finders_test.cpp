// Peak finders: local-maximum rules and tie-breaks, the weighted rise and
// fall, the logical-index finder and the exported |x|.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "detect/peak_finders.hpp"
#include "keloecgsolver/detect.h"
#include "support/emx_builders.hpp"

namespace {

using namespace kelo::detect;
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

double small_at(std::vector<double> x) { return m_findsmallpeak(x).position; }
Peak big(std::vector<double> x) { return m_findbigpeak(x); }

TEST(FindSmallPeak, HighestInteriorMaximumFirstOfEqualsWins) {
  EXPECT_EQ(small_at({0, 1, 1, 0}), 2);  // a plateau counts from its first sample
  EXPECT_EQ(m_findsmallpeak(std::vector<double>{0, 1, 1, 0}).amplitude, 1);
  EXPECT_EQ(small_at({0, 2, 0, 2, 0}), 2);
  EXPECT_EQ(small_at({0, 1, 0, 3, 0, 2, 0}), 4);
  EXPECT_EQ(small_at({9, 1, 2, 1, 9}), 3);  // the ends never count
  EXPECT_EQ(small_at({0, kNaN, 0, 1, 0}), 4);
  for (auto x : {std::vector<double>{1, 2, 3}, {3, 2, 1}, {2, 2, 2}, {0, 1}, {}, {0, 0, 0, 1},
                 {0, 5, kNaN, 1, 0}}) {
    EXPECT_EQ(m_findsmallpeak(x).position, -kInf);
    EXPECT_EQ(m_findsmallpeak(x).amplitude, -kInf);
  }
}

TEST(FindSmallPeak, FixedWindowNeverReportsItsEnds) {
  RefineWindow w{};
  for (std::size_t k = 0; k < w.size(); ++k) w[k] = static_cast<double>(k);
  w[0] = 100.0;  // the largest values at both ends, rising in between
  EXPECT_EQ(m_b_findsmallpeak(w).position, -kInf);
  w[5] = 30.0;
  EXPECT_EQ(m_b_findsmallpeak(w).position, 6);
  EXPECT_EQ(m_b_findsmallpeak(w).amplitude, 30);
}

TEST(FindBigPeak, ScoreWeighsTheFall1_3AgainstTheRise) {
  // Maxima 2 and 4, minima 1 (default), 3 and 5 (the last sample):
  // 1.3 * 1 + 5 = 6.3 against 1.3 * 6 + 2 = 9.8. The sample value is
  // returned, not the score.
  EXPECT_EQ(big({0, 5, 4, 6, 0}).position, 4);
  EXPECT_EQ(big({0, 5, 4, 6, 0}).amplitude, 6);
  EXPECT_EQ(big({0, 4, 2, 4, 0}).position, 4);     // same total, larger fall wins
  EXPECT_EQ(big({0, 3, 0, 3, 0}).position, 2);     // equal scores: the first
  EXPECT_EQ(big({5, 6, 5, 0, 4, 0}).position, 5);  // not the highest sample
  EXPECT_EQ(big({0, 3, 1, 4, 2, 7, 0}).position, 6);
  // The last sample is the right foot of the last maximum even when high.
  EXPECT_EQ(big({0, 5, 0, 8, 7, 6}).position, 2);
  // The NaN hides the minimum after the high first maximum: it has no
  // right foot and is skipped.
  EXPECT_EQ(big({0, 9, 1, kNaN, 1, 3, 0}).position, 6);
  for (auto x : {std::vector<double>{}, {1}, {1, 2}, {1, 2, 3, 4}, {3, 3, 3}}) {
    EXPECT_EQ(big(x).position, -kInf);
    EXPECT_EQ(big(x).amplitude, -kInf);
  }
}

TEST(EmlLiFind, PositionsOfTrueElementsAsARow) {
  kelo::EmxBool mask(2);
  kelo::resize_row(mask.get(), 5);
  const bool bits[] = {false, true, true, false, true};
  std::copy(std::begin(bits), std::end(bits), mask.span().begin());
  kelo::EmxInt32 idx(2);
  m_eml_li_find(mask, idx);
  EXPECT_EQ(idx->size[0], 1);
  EXPECT_EQ(kelo::test::values(idx), (std::vector<int32_t>{2, 3, 5}));
  kelo::resize_row(mask.get(), 0);
  m_eml_li_find(mask, idx);
  EXPECT_EQ(idx->size[1], 0);
}

TEST(Abs, ClearsTheSignBitOverTheFirstExtent) {
  kelo::EmxReal y(1);
  m_abs(kelo::test::column({-1.5, -0.0, kNaN, -kInf}), y);
  const auto v = kelo::test::values(y);
  ASSERT_EQ(v.size(), 4u);
  EXPECT_EQ(v[0], 1.5);
  EXPECT_FALSE(std::signbit(v[1]));
  EXPECT_TRUE(std::isnan(v[2]));
  EXPECT_EQ(v[3], kInf);
  m_abs(kelo::test::row({-4, 5, 6}), y);  // a 1 x 3 row: first extent 1
  EXPECT_EQ(kelo::test::values(y), std::vector<double>{4});
  m_abs(nullptr, y);
  m_abs(kelo::test::column({1}), nullptr);
  EXPECT_EQ(kelo::test::values(y), std::vector<double>{4});
}

}  // namespace
