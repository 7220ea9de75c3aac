// Signal kernels: the smoother's end rule and summation order, correlation,
// find, differences, the two filters, the local-range gradient and the
// saturating multiply.
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <tuple>

#include "keloecgsolver/kernels.h"
#include "support/emx_builders.hpp"
#include "support/sum_order.hpp"

namespace {

using kelo::test::column;
using kelo::test::values;

std::vector<double> smooth(const std::vector<double>& x, double span) {
  kelo::EmxReal y(1);
  m_smooth_emlc(column(x), span, y);
  return values(y);
}

// The smoother built the long way: a zero-padded column of sums to which
// shifted copies of x are added one shift at a time, a column of counts
// built the same way, the middle n entries of both divided.
std::vector<double> smooth_reference(const std::vector<double>& x, double span) {
  const double s = 2.0 * std::ceil(span / 2.0) - 1.0;
  const std::size_t n = x.size(), si = static_cast<std::size_t>(s);
  const std::size_t h = static_cast<std::size_t>(std::floor(s / 2.0));
  std::vector<double> sums(n + si - 1, 0.0), counts(n + si - 1, 0.0);
  for (std::size_t i = 0; i < n; ++i) {
    sums[i] = x[i];
    counts[i] = 1.0;
  }
  for (std::size_t k = 1; k <= si - 1; ++k)
    for (std::size_t i = 0; i < n; ++i) {
      sums[i + k] += x[i];
      counts[i + k] += 1.0;
    }
  std::vector<double> y(n);
  for (std::size_t i = 0; i < n; ++i) y[i] = sums[i + h] / counts[i + h];
  return y;
}

TEST(Smooth, WorkedExamplesAndEndRule) {
  EXPECT_EQ(smooth({1, 2, 3, 4}, 3), (std::vector<double>{1.5, 2, 3, 3.5}));
  EXPECT_EQ(smooth({1, 2, 3, 4}, 2), (std::vector<double>{1, 2, 3, 4}));  // s = 1
  EXPECT_EQ(smooth({1, 2, 3, 4}, 4), smooth({1, 2, 3, 4}, 3));           // s = 3
  EXPECT_EQ(smooth({}, 5), std::vector<double>{});
  EXPECT_EQ(smooth({3, 5}, 0), (std::vector<double>{3, 5}));  // below 1: no smoothing
  EXPECT_EQ(smooth({3, 5}, std::numeric_limits<double>::quiet_NaN()), (std::vector<double>{3, 5}));
}

// The direct form sums each window in the same order as the long
// construction, so the two agree bit for bit, the windows cut on one side
// near the ends and spans wider than the signal included.
TEST(Smooth, BitIdenticalToTheLongConstruction) {
  std::mt19937 rng(7);
  std::normal_distribution<double> noise(0.0, 1e3);
  for (std::size_t n : {1, 2, 7, 50, 601}) {
    std::vector<double> x(n);
    for (double& v : x) v = noise(rng);
    for (double span : {1.0, 3.0, 4.0, 11.0, 41.5, 600.0, 1500.0}) {
      const auto got = smooth(x, span);
      const auto want = smooth_reference(x, span);
      ASSERT_EQ(got.size(), want.size());
      for (std::size_t i = 0; i < n; ++i)
        ASSERT_EQ(std::bit_cast<uint64_t>(got[i]), std::bit_cast<uint64_t>(want[i]))
            << "n " << n << " span " << span << " i " << i;
    }
  }
}

// The correlation sums every column from its first row to its last, bit for
// bit: means, the cross sum and both standard deviations. A constant column,
// or a single row, gives NaN.
TEST(Correlation, SumsInTheWrittenOrderAndDegenerateColumns) {
  EXPECT_NEAR(m_corr_emlc(column({1, 2, 3}), column({1, 3, 2})), 0.5, 1e-15);
  EXPECT_TRUE(std::isnan(m_corr_emlc(column({2, 2, 2}), column({1, 2, 3}))));
  EXPECT_TRUE(std::isnan(m_corr_emlc(column({1}), column({1}))));
  // x: values 2^-28 apart around 1e6, where the last bits of the mean
  // decide every deviation.
  std::vector<double> x(64);
  for (std::size_t k = 0; k < x.size(); ++k) x[k] = 1e6 + std::ldexp(double(k * 37 % 23), -28);
  const std::vector<double> y = kelo::test::scattered(64, 2);
  const auto written_out = [&](bool reversed) {
    const auto sum = [&](auto term) {
      double s = 0.0;
      for (std::size_t i = 0; i < 64; ++i) s += term(reversed ? 63 - i : i);
      return s;
    };
    const double mx = sum([&](std::size_t k) { return x[k]; }) / 64.0;
    const double my = sum([&](std::size_t k) { return y[k]; }) / 64.0;
    const double c12 = sum([&](std::size_t k) { return (x[k] - mx) * (y[k] - my); }) / 63.0;
    const double sx = std::sqrt(sum([&](std::size_t k) { return (x[k] - mx) * (x[k] - mx); }) / 63.0);
    const double sy = std::sqrt(sum([&](std::size_t k) { return (y[k] - my) * (y[k] - my); }) / 63.0);
    return c12 / (sx * sy);
  };
  ASSERT_NE(kelo::test::bits(written_out(false)), kelo::test::bits(written_out(true)));
  EXPECT_EQ(kelo::test::bits(m_corr_emlc(column(x), column(y))), kelo::test::bits(written_out(false)));
}

TEST(FindAndDiff, PositionsDifferencesAndEmptyShapes) {
  kelo::EmxReal d(1);
  m_find(kelo::test::mask({false, true, true, false, true}), d);
  EXPECT_EQ(values(d), (std::vector<double>{2, 3, 5}));
  m_find(kelo::test::mask({false}), d);
  EXPECT_TRUE(values(d).empty());
  kelo::EmxInt32 i(1);
  m_b_eml_li_find(kelo::test::mask({true, false, true}), i);
  EXPECT_EQ(values(i), (std::vector<int32_t>{1, 3}));
  m_b_eml_li_find(kelo::test::mask({}), i);
  EXPECT_TRUE(values(i).empty());

  kelo::EmxReal y(2);
  m_diff(column({1, 4, 9, 16}), y);
  EXPECT_EQ(values(y), (std::vector<double>{3, 5, 7}));
  m_diff(column({5}), y);
  EXPECT_EQ(y->size[0], 0);
  EXPECT_EQ(y->size[1], 0);
}

std::vector<double> filter(bool low, const std::vector<double>& x) {
  kelo::EmxReal y(1);
  if (low) m_b_filter(column(x), y);
  else m_filter(column(x), y);
  return values(y);
}

TEST(Filters, ImpulseAndStepResponses) {
  // {low-pass?, b(1..3), a(2..3)}: the first three impulse samples follow
  // the transposed direct form exactly.
  for (const auto& [low, b, a] : std::vector<std::tuple<bool, std::array<double, 3>, std::array<double, 2>>>{
           {true, {0.3913357725017686, 0.7826715450035372, 0.3913357725017686}, {0.36952737735124136, 0.19581571265583317}},
           {false, {0.9780304792065597, -1.9560609584131194, 0.9780304792065597}, {-1.9555782403150355, 0.9565436765112033}}}) {
    const auto h = filter(low, {1, 0, 0, 0});
    ASSERT_EQ(h.size(), 4u);
    EXPECT_EQ(h[0], b[0]);
    EXPECT_EQ(h[1], b[1] - a[0] * h[0]);
    EXPECT_EQ(h[2], (b[2] - a[1] * h[0]) - a[0] * h[1]);
  }
  // DC gain of the low-pass is 1, of the high-pass 0.
  const std::vector<double> step(4000, 1.0);
  EXPECT_NEAR(filter(true, step).back(), 1.0, 1e-9);
  EXPECT_NEAR(filter(false, step).back(), 0.0, 1e-9);
}

TEST(Gradient, RangeWithItsStartingValuesAndMean) {
  kelo::EmxReal g(1), gs(1);
  std::vector<double> x(12);
  for (std::size_t i = 0; i < x.size(); ++i) x[i] = static_cast<double>(i);
  m_gradientIEM(column(x), g, gs);
  // Positions 6 and 7 (1-based) have full windows; the ends stay 0.
  EXPECT_EQ(values(g), (std::vector<double>{0, 0, 0, 0, 0, 10, 10, 0, 0, 0, 0, 0}));
  EXPECT_EQ(values(gs)[5], 20.0 / 11.0);
  // The running maximum starts at 0.0, the running minimum at 100000.0.
  m_gradientIEM(column(std::vector<double>(11, -3.0)), g, gs);
  EXPECT_EQ(values(g)[5], 3.0);
  m_gradientIEM(column(std::vector<double>(11, 250000.0)), g, gs);
  EXPECT_EQ(values(g)[5], 150000.0);
  m_gradientIEM(column({5, 9, 1}), g, gs);
  EXPECT_EQ(values(gs), (std::vector<double>{0, 0, 0}));
}

// The wide product is exact (the saturated one is checked at its limits
// with the other saturating operations).
TEST(IntegerMultiply, WideProductIsExact) {
  std::mt19937 rng(3);
  std::uniform_int_distribution<int32_t> any(std::numeric_limits<int32_t>::min(),
                                             std::numeric_limits<int32_t>::max());
  for (int i = 0; i < 10000; ++i) {
    const int32_t a = any(rng), b = i % 3 == 0 ? any(rng) % 70000 : any(rng);
    uint32_t hi = 0, lo = 0;
    m_mul_wide_s32(a, b, &hi, &lo);
    const int64_t exact = static_cast<int64_t>(a) * b;
    ASSERT_EQ((static_cast<uint64_t>(hi) << 32) | lo, static_cast<uint64_t>(exact)) << a << " * " << b;
  }
}

}  // namespace
