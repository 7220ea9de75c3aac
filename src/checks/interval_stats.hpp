// Kernels of the signal and RR checks: maximum, successive differences,
// mean, standard deviation and median over the fixed-length work arrays of
// the checks, with 1-based index ranges.
//
// The divisors are formed the way the checks have always formed them: the
// index span last - first is rounded half away from zero and saturated to
// int32; the mean divides by span + 1, the standard deviation multiplies the
// sum of squares by the reciprocal 1 / span. These are not the statistics
// kernels of the detection unit, and their bits differ from a plain
// division: keep them as they are.
//
// Every loop is also bounded by the array it walks, so no count can make a
// kernel read or write outside its array; the checks clamp their counts to
// the fixed lengths before they call these, so the bounds never cut a range
// for valid calls.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>

#include "runtime/numeric.hpp"

namespace kelo::checks {

// Element k (1-based) of an array, span or vector.
template <class Array>
auto& at(Array& a, int64_t k) {
  return a[static_cast<std::size_t>(k - 1)];
}

struct MaxAt {
  double value;
  int32_t index;  // 1-based
};

// Largest of x(1 .. n), n clamped to the array. The running maximum starts
// at -10000 with index 1 and is replaced only by a strictly greater element,
// so the first of equal maxima wins and an array at or below -10000 (or an
// empty range) gives -10000 at index 1.
inline MaxAt m_findMax(std::span<const double> x, int32_t n) {
  MaxAt best{-10000.0, 1};
  const int64_t last = std::min<int64_t>(n, static_cast<int64_t>(x.size()));
  for (int64_t k = 1; k <= last; ++k) {
    if (x[static_cast<std::size_t>(k - 1)] > best.value) {
      best = {x[static_cast<std::size_t>(k - 1)], static_cast<int32_t>(k)};
    }
  }
  return best;
}

// d = x (the whole array), then d(k) = d(k+1) - d(k) for k = 1 .. n-1 in
// place: the first n-1 elements become the successive differences, the
// rest stay copies of x. Integer differences saturate at the int32 limits.
inline int32_t difference(int32_t next, int32_t current) { return kelo::sat_sub(next, current); }
inline double difference(double next, double current) { return next - current; }

template <class T>
void m_calcDiff(std::span<const T> x, int32_t n, std::span<T> d) {
  const std::size_t len = std::min(x.size(), d.size());
  std::copy_n(x.begin(), len, d.begin());
  const int64_t last = std::min<int64_t>(static_cast<int64_t>(n) - 1, static_cast<int64_t>(len) - 1);
  for (int64_t k = 0; k < last; ++k) {
    const auto i = static_cast<std::size_t>(k);
    d[i] = difference(d[i + 1], d[i]);
  }
}

// round(last - first) as int32, saturating: the index span of a range.
inline int32_t index_span(double first, int32_t last) {
  return kelo::round_to_int32(static_cast<double>(last) - first);
}

// Sum of x(first .. last) in order, in double.
template <class T>
double range_sum(std::span<const T> x, double first, int32_t last) {
  double sum = 0.0;
  const int64_t hi = std::min<int64_t>(last, static_cast<int64_t>(x.size()));
  for (int64_t k = std::max<int64_t>(kelo::to_int32_sat(first), 1); k <= hi; ++k) {
    sum += static_cast<double>(x[static_cast<std::size_t>(k - 1)]);
  }
  return sum;
}

// Mean of x(first .. last): the sum divided by round(last - first) + 1.
// An empty range (last < first) sums to 0.
template <class T>
double m_calcMean(std::span<const T> x, double first, int32_t last) {
  const int32_t divisor = kelo::sat_add(index_span(first, last), 1);
  return range_sum(x, first, last) / static_cast<double>(divisor);
}

// Standard deviation of x(first .. last) about mean: the sum of squared
// deviations times 1 / round(last - first), then the square root. Two
// values give 1 / 0 = Inf times 0 = NaN.
template <class T>
double m_calcSd(std::span<const T> x, double first, int32_t last, double mean) {
  double sum = 0.0;
  const int64_t hi = std::min<int64_t>(last, static_cast<int64_t>(x.size()));
  for (int64_t k = std::max<int64_t>(kelo::to_int32_sat(first), 1); k <= hi; ++k) {
    const double dev = static_cast<double>(x[static_cast<std::size_t>(k - 1)]) - mean;
    sum += dev * dev;
  }
  return std::sqrt(sum * (1.0 / static_cast<double>(index_span(first, last))));
}

// Median of x(1 .. n), sorting those elements ascending in place. Odd n:
// the element at round((n + 1) / 2); even n: the mean of the elements at
// round(n / 2) and round(n / 2) + 1. n must be at least 1 and at most the
// array's size (the callers guarantee both).
//
// The elements are finite doubles here (differences of int32 positions), for
// which any ascending sort gives the same sequence as the bubble sort that
// defines the order (n - 1 full passes swapping a strictly greater left
// neighbour); a stable sort is used, which also keeps equal values in their
// order, and the tests compare the two.
inline double m_calcMedian(std::span<double> x, int32_t n) {
  const auto count = static_cast<std::size_t>(std::clamp<int64_t>(n, 0, static_cast<int64_t>(x.size())));
  std::stable_sort(x.begin(), x.begin() + static_cast<std::ptrdiff_t>(count));
  if ((n & 1) != 0) {
    const int32_t mid = kelo::round_to_int32((static_cast<double>(n) + 1.0) / 2.0);
    return x[static_cast<std::size_t>(mid - 1)];
  }
  const int32_t lower = kelo::round_to_int32(static_cast<double>(n) / 2.0);
  return (x[static_cast<std::size_t>(lower - 1)] + x[static_cast<std::size_t>(lower)]) / 2.0;
}

// m_calcMedian's value, by selection instead of a sort (x keeps the first
// n elements in some order). The same value for data without NaN or
// negative zero, such as differences of integer positions: the middle
// elements of any ascending order are then the same numbers.
inline double median_by_selection(std::span<double> x, int32_t n) {
  const auto count = static_cast<std::ptrdiff_t>(std::clamp<int64_t>(n, 0, static_cast<int64_t>(x.size())));
  const auto first = x.begin();
  if ((n & 1) != 0) {
    const int32_t mid = kelo::round_to_int32((static_cast<double>(n) + 1.0) / 2.0);
    std::nth_element(first, first + (mid - 1), first + count);
    return x[static_cast<std::size_t>(mid - 1)];
  }
  const int32_t lower = kelo::round_to_int32(static_cast<double>(n) / 2.0);
  std::nth_element(first, first + (lower - 1), first + count);
  const double upper = *std::min_element(first + lower, first + count);
  return (x[static_cast<std::size_t>(lower - 1)] + upper) / 2.0;
}

}  // namespace kelo::checks
