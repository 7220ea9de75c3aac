// Statistics kernels: NaN and tie rules of the extrema, the median's
// overflow-safe midpoint, divisors of the standard deviation, rounding.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <tuple>
#include <utility>

#include "keloecgsolver/kernels.h"
#include "keloecgsolver/rt_nonfinite.h"
#include "runtime/numeric.hpp"
#include "support/emx_builders.hpp"
#include "support/sum_order.hpp"

namespace {

using kelo::test::bits;
using kelo::test::column;
using kelo::test::row;
using kelo::test::values;

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();

TEST(Extrema, SkipNaNsAndKeepTheFirstOfEqualValues) {
  EXPECT_EQ(m_max(column({kNaN, 3, kNaN, 5, 5})), 5.0);
  EXPECT_TRUE(std::isnan(m_max(column({kNaN, kNaN}))));
  EXPECT_TRUE(std::isnan(m_max(column({kNaN}))));
  EXPECT_EQ(m_min(column({2, -1, -1})), -1.0);
  EXPECT_EQ(m_b_max(row({-3, kNaN, -7})), -3.0);
  EXPECT_EQ(m_b_min(row({kNaN, 4, kNaN, 2, 9})), 2.0);
  EXPECT_EQ(m_max(column({-kInf, -5})), -5.0);
  // Of equal extremes the first is kept: visible through the sign of zero.
  EXPECT_TRUE(std::signbit(m_max(column({-0.0, 0.0}))));
  EXPECT_FALSE(std::signbit(m_min(column({0.0, -0.0}))));
  EXPECT_TRUE(std::isnan(m_max(column({}))));  // never used by the library; defined here
}

TEST(Median, OddEvenNaNAndEmpty) {
  EXPECT_EQ(m_median(column({4, 1, 3, 2})), 2.5);
  EXPECT_EQ(m_median(column({9, 1, 5})), 5.0);
  EXPECT_TRUE(std::isnan(m_median(column({1, kNaN, 3}))));
  EXPECT_TRUE(std::isnan(m_median(column({}))));
  EXPECT_EQ(m_median(column({-kInf, 1})), -kInf);
  EXPECT_TRUE(std::isnan(m_median(column({-kInf, kInf}))));
  // Two large values of one sign: a + (b - a) / 2 stays finite where
  // (a + b) / 2 would overflow.
  EXPECT_DOUBLE_EQ(m_median(column({1.7e308, 1.5e308})), 1.6e308);
  EXPECT_DOUBLE_EQ(m_median(column({-1.7e308, -1.5e308})), -1.6e308);
  EXPECT_EQ(m_vectormedian(column({7})), 7.0);
}

TEST(Median, ColumnWiseOverAMatrix) {
  kelo::EmxReal m(2);
  kelo::resize(m.get(), {3, 2});
  const double data[6] = {3, 1, 2, /* column 2 */ 10, kNaN, 30};
  std::copy(data, data + 6, m.span().begin());
  kelo::EmxReal y(2);
  m_b_median(m, y);
  EXPECT_EQ(y->size[0], 1);
  ASSERT_EQ(y->size[1], 2);
  EXPECT_EQ(y->data[0], 2.0);
  EXPECT_TRUE(std::isnan(y->data[1]));

  kelo::resize(m.get(), {0, 4});
  m_b_median(m, y);
  ASSERT_EQ(y->size[1], 4);
  for (double v : values(y)) EXPECT_TRUE(std::isnan(v));
}

TEST(MeanAndStd, DivisorsAndEmptyInputs) {
  EXPECT_TRUE(std::isnan(m_mean(row({}))));
  EXPECT_EQ(m_mean(row({1, 2, 3, 6})), 3.0);
  // The sum starts from the first element, so an all-negative-zero row has
  // a negative-zero mean.
  EXPECT_TRUE(std::signbit(m_mean(row({-0.0, -0.0}))));
  EXPECT_EQ(m_std(column({42})), 0.0);  // n - 1 from two values on, n below
  EXPECT_EQ(m_std(column({1, 2})), std::sqrt(0.5));
  EXPECT_EQ(m_std(column({1, 2, 3, 4})), std::sqrt(5.0 / 3.0));
  EXPECT_TRUE(std::isnan(m_std(column({}))));
  EXPECT_TRUE(std::isnan(m_std(column({1, kInf}))));
}

TEST(ElementWise, PowerSignRepmatLength) {
  kelo::EmxReal y(1);
  m_power(column({-1.5, 1.1, kNaN}), y);
  auto v = values(y);
  EXPECT_EQ(v[0], -3.375);
  EXPECT_EQ(std::bit_cast<uint64_t>(v[1]), std::bit_cast<uint64_t>(std::pow(1.1, 3.0)));
  EXPECT_TRUE(std::isnan(v[2]));

  auto s = column({-0.0, -2, 3, kNaN});
  m_refp1_sign(s);
  v = values(s);
  EXPECT_FALSE(std::signbit(v[0]));
  EXPECT_EQ(v[1], -1.0);
  EXPECT_EQ(v[2], 1.0);
  EXPECT_TRUE(std::isnan(v[3]));

  kelo::EmxReal r(2);
  m_repmat(2.5, 3.9, r);
  EXPECT_EQ(values(r), (std::vector<double>{2.5, 2.5, 2.5}));
  m_repmat(1.0, -2.0, r);
  EXPECT_EQ(r->size[1], 0);

  kelo::EmxReal empty(2);
  kelo::resize(empty.get(), {0, 5});
  EXPECT_EQ(m_b_length(empty), 0.0);
  EXPECT_EQ(m_length(row({1, 2})), 2.0);
}

// Rounding half away from zero, and saturation at the 32-bit limits: each
// limit with the value just inside it and the one just outside.
TEST(Limits, RoundingAndSaturationAt32Bits) {
  constexpr int32_t kMax = INT32_MAX, kMin = INT32_MIN;
  // floor(v + 0.5) and ceil(v - 0.5): 0.49999999999999994 + 0.5 is 1.0.
  for (const auto& [v, want] : std::vector<std::pair<double, int32_t>>{
           {2.5, 3}, {-2.5, -3}, {2.4999999999999996, 2}, {0.49999999999999994, 1}, {2147483646.5, kMax},
           {2147483647.5, kMax}, {2147483648.0, kMax}, {-2147483647.5, kMin}, {-2147483648.5, kMin}, {kNaN, 0}})
    EXPECT_EQ(kelo::round_to_int32(v), want) << v;
  // {a, b, a + b, a - b}
  for (const auto& [a, b, sum, difference] : std::vector<std::tuple<int32_t, int32_t, int32_t, int32_t>>{
           {kMax, 1, kMax, kMax - 1}, {kMax - 1, 1, kMax, kMax - 2}, {kMin, -1, kMin, kMin + 1},
           {kMin + 1, -1, kMin, kMin + 2}, {kMin, 1, kMin + 1, kMin}, {kMax, -1, kMax - 1, kMax},
           {-1, kMin, kMin, kMax}, {0, kMin, kMin, kMax}}) {
    EXPECT_EQ(kelo::sat_add(a, b), sum) << a << " + " << b;
    EXPECT_EQ(kelo::sat_sub(a, b), difference) << a << " - " << b;
  }
  for (const auto& [a, b, quotient] : std::vector<std::tuple<int32_t, double, int32_t>>{
           {5, 2, 3}, {-5, 2, -3}, {1073741824, 0.5, kMax}, {-1073741824, 0.5, kMin}, {1, 0, kMax},
           {-1, 0, kMin}, {0, 0, 0}})
    EXPECT_EQ(m_mrdivide(a, b), quotient) << a << " / " << b;
  for (const auto& [a, b, product] : std::vector<std::tuple<int32_t, int32_t, int32_t>>{
           {65536, 32768, kMax}, {-65536, 32768, kMin}, {65536, -32769, kMin}, {46341, 46340, 2147441940},
           {46341, 46341, kMax}, {-46341, 46341, kMin}, {kMin, -1, kMax}, {kMin, 1, kMin}, {-7, 6, -42}})
    EXPECT_EQ(m_mul_s32_s32_s32_sat(a, b), product) << a << " * " << b;
}

// The mean and the standard deviation sum from the first element to the
// last, bit for bit; also on values 2^-28 apart around 1e6, where the last
// bits of the mean decide every square.
TEST(MeanAndStd, SumInTheWrittenOrder) {
  std::vector<double> near(101);
  for (std::size_t k = 0; k < near.size(); ++k) near[k] = 1e6 + std::ldexp(double(k * 37 % 23), -28);
  for (const std::vector<double>& x : {kelo::test::scattered(101, 5), near}) {
    double sum = x[0], reversed = x[0];
    for (std::size_t k = 1; k < x.size(); ++k) sum += x[k];
    for (std::size_t k = x.size() - 1; k >= 1; --k) reversed += x[k];
    ASSERT_NE(bits(sum), bits(reversed)) << "the data no longer tell the orders apart";
    const double mean = sum / 101.0;
    double squares = 0.0;
    for (double v : x) squares += (v - mean) * (v - mean);
    EXPECT_EQ(bits(m_mean(row(x))), bits(mean));
    EXPECT_EQ(bits(m_std(column(x))), bits(std::sqrt(squares / 100.0)));
  }
}

}  // namespace
