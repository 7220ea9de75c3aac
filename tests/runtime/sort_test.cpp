// Stable index sort with NaN last, unique with its grouping rule, int sort.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>

#include "keloecgsolver/kernels.h"
#include "runtime/kernels.hpp"
#include "support/emx_builders.hpp"

namespace {

using kelo::test::row;
using kelo::test::values;

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();

std::vector<int32_t> sort_index(const std::vector<double>& x) {
  std::vector<int32_t> idx(x.size());
  kelo::kern::sort_index(x, idx);
  return idx;
}

TEST(SortIndex, AscendingStableWithNaNsLast) {
  EXPECT_EQ(sort_index({2, kNaN, 1, 2}), (std::vector<int32_t>{3, 1, 4, 2}));
  EXPECT_EQ(sort_index({kNaN, 5, kNaN, -1, 5}), (std::vector<int32_t>{4, 2, 5, 1, 3}));
  EXPECT_EQ(sort_index({}), std::vector<int32_t>{});
  EXPECT_EQ(sort_index({7}), std::vector<int32_t>{1});
  // Zeros of either sign are equal and keep their input order.
  EXPECT_EQ(sort_index({0.0, -0.0, 0.0, -1}), (std::vector<int32_t>{4, 1, 2, 3}));
}

// The bottom-up merge must produce the unique stable order for every
// length, including the odd lengths whose last run is short.
TEST(SortIndex, MatchesAStableSortOnRandomInputs) {
  std::mt19937 rng(20261121);
  std::uniform_int_distribution<int> pick(0, 9);
  for (int n : {2, 3, 5, 8, 9, 31, 64, 100, 257, 1000}) {
    std::vector<double> x(n);
    for (double& v : x) {
      const int k = pick(rng);
      v = k == 0 ? kNaN : k == 1 ? -0.0 : k == 2 ? 0.0 : k == 3 ? -kInf : static_cast<double>(k % 4);
    }
    std::vector<int32_t> expected(n);
    std::iota(expected.begin(), expected.end(), 1);
    std::stable_sort(expected.begin(), expected.end(), [&](int32_t p, int32_t q) {
      const double a = x[p - 1], b = x[q - 1];
      return !std::isnan(a) && (std::isnan(b) || a < b);
    });
    EXPECT_EQ(sort_index(x), expected) << "n = " << n;
  }
}

std::vector<double> unique(const std::vector<double>& x) {
  kelo::EmxReal b(2);
  m_unique(row(x), b);
  EXPECT_EQ(b->size[0], 1);
  return values(b);
}

TEST(Unique, MergesEqualValuesOnly) {
  EXPECT_EQ(unique({5, 3, 5, 1}), (std::vector<double>{1, 3, 5}));
  EXPECT_EQ(unique({}), std::vector<double>{});
  // Values one unit in the last place apart stay apart, also where the
  // next value lies in the binade below (half the spacing).
  const double next = std::nextafter(1.0, 2.0), below = std::nextafter(-1.0, 0.0);
  EXPECT_EQ(unique({next, 1.0, 1.0}), (std::vector<double>{1.0, next}));
  EXPECT_EQ(unique({below, -1.0}), (std::vector<double>{-1.0, below}));
  const double tiny = 4.94065645841247E-324;
  EXPECT_EQ(unique({tiny, 0.0, tiny}), (std::vector<double>{0.0, tiny}));
}

TEST(Unique, InfinitiesOnceAndEveryNaNKept) {
  auto b = unique({kNaN, 2, kNaN, 2});
  ASSERT_EQ(b.size(), 3u);
  EXPECT_EQ(b[0], 2.0);
  EXPECT_TRUE(std::isnan(b[1]));
  EXPECT_TRUE(std::isnan(b[2]));
  EXPECT_EQ(unique({kInf, -kInf, kInf, 0}), (std::vector<double>{-kInf, 0, kInf}));
  b = unique({-kInf, kNaN, -kInf, kInf});
  ASSERT_EQ(b.size(), 3u);
  EXPECT_EQ(b[0], -kInf);
  EXPECT_EQ(b[1], kInf);
  EXPECT_TRUE(std::isnan(b[2]));
}

TEST(Unique, SignedZerosMergeIntoTheFirstInSortedOrder) {
  auto b = unique({-0.0, 0.0});
  ASSERT_EQ(b.size(), 1u);
  EXPECT_TRUE(std::signbit(b[0]));
  b = unique({0.0, -0.0, 3});
  ASSERT_EQ(b.size(), 2u);
  EXPECT_FALSE(std::signbit(b[0]));
}

TEST(IntSort, SortsInPlace) {
  auto x = kelo::test::int_column({3, -1, 3, 0, -2147483647 - 1, 2147483647});
  m_refp1_sort(x);
  EXPECT_EQ(values(x), (std::vector<int32_t>{-2147483647 - 1, -1, 0, 3, 3, 2147483647}));
}

}  // namespace
