// Data for checking summation orders: values spread over many binary
// exponents, so that sums taken in different orders round differently.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace kelo::test {

inline std::vector<double> scattered(std::size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> mantissa(-1.0, 1.0);
  std::uniform_int_distribution<int> exponent(-12, 12);
  std::vector<double> v(n);
  for (double& x : v) x = std::ldexp(mantissa(rng), exponent(rng));
  return v;
}

inline uint64_t bits(double v) { return std::bit_cast<uint64_t>(v); }

}  // namespace kelo::test
