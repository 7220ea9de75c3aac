// Kernels of the missed-beat search over its fixed-length arrays (1-based
// inclusive ranges). They are this routine's own: the names match kernels
// of other units, the definitions do not (the standard deviation divides by
// round(last - first) instead of multiplying by its reciprocal, the extremes
// start from +-10000, ...).
//
// Searches over the signal only cover the part of their range that lies
// inside the array, so no position handed in by a caller can make them read
// outside it; for ranges inside the array this changes nothing.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>

#include "runtime/numeric.hpp"

namespace kelo::refine {

inline constexpr int32_t kLength = 36000;

// The signal length every search is bounded by.
constexpr int32_t m_length() { return kLength; }

// Element k (1-based) of an array, span or vector.
template <class Array>
auto& at(Array& a, int64_t k) {
  return a[static_cast<std::size_t>(k - 1)];
}

// a / b rounded half away from zero, as int32 (saturating).
inline int32_t m_mrdivide(int32_t a, double b) {
  return kelo::round_to_int32(static_cast<double>(a) / b);
}

// The 0-based index range of 1-based first .. last, cut to the array.
struct IndexRange {
  std::size_t begin;
  std::size_t end;  // one past the last
};

inline IndexRange inside(std::size_t size, int64_t first, int64_t last) {
  const int64_t lo = std::max<int64_t>(first, 1);
  const int64_t hi = std::min<int64_t>(last, static_cast<int64_t>(size));
  if (hi < lo) return {0, 0};
  return {static_cast<std::size_t>(lo - 1), static_cast<std::size_t>(hi)};
}

// sum(a[first..last]) / (rnd(last - first) + 1); an empty range sums to 0.
inline double m_calcMean(std::span<const double> a, int32_t first, int32_t last) {
  double sum = 0.0;
  const IndexRange r = inside(a.size(), first, last);
  for (std::size_t i = r.begin; i < r.end; ++i) sum += a[i];
  return sum / static_cast<double>(kelo::sat_add(kelo::sat_sub(last, first), 1));
}

// sqrt(sum((a[i] - mean)^2) / rnd(last - first)) over first .. last.
inline double m_calcSd(std::span<const double> a, int32_t first, int32_t last, double mean) {
  double sum = 0.0;
  const IndexRange r = inside(a.size(), first, last);
  for (std::size_t i = r.begin; i < r.end; ++i) {
    const double dev = a[i] - mean;
    sum += dev * dev;
  }
  return std::sqrt(sum / static_cast<double>(kelo::sat_sub(last, first)));
}

struct ValueAt {
  double value;
  int32_t index;  // 1-based
};

// Largest of a[first..last] from -10000 and the first position holding it;
// position 1 when nothing exceeds -10000 (or the range is empty).
inline ValueAt m_b_findMax(std::span<const double> a, int64_t first, int64_t last) {
  ValueAt best{-10000.0, 1};
  const IndexRange r = inside(a.size(), first, last);
  for (std::size_t i = r.begin; i < r.end; ++i) {
    if (a[i] > best.value) best = {a[i], static_cast<int32_t>(i + 1)};
  }
  return best;
}

inline double m_findMax(std::span<const double> a, int64_t first, int64_t last) {
  return m_b_findMax(a, first, last).value;
}

// Smallest of a[first..last] from 10000.
inline double m_findMin(std::span<const double> a, int64_t first, int64_t last) {
  double best = 10000.0;
  const IndexRange r = inside(a.size(), first, last);
  for (std::size_t i = r.begin; i < r.end; ++i) {
    if (a[i] < best) best = a[i];
  }
  return best;
}

// b if a < b or a is NaN, else rnd(a): the larger of a bound and a position.
inline int32_t m_max(double a, int32_t b) {
  return (a < static_cast<double>(b) || std::isnan(a)) ? b : kelo::round_to_int32(a);
}

// b if a >= b or a is NaN, else rnd(a): the smaller of a position and a bound.
inline int32_t m_min(int32_t b, double a) {
  return (a >= static_cast<double>(b) || std::isnan(a)) ? b : kelo::round_to_int32(a);
}

// The larger of two values with its index 1 or 2: index 1 on ties, and a
// NaN first value loses to a number.
inline ValueAt m_b_max(double first, double second) {
  if ((std::isnan(first) && !std::isnan(second)) || second > first) return {second, 2};
  return {first, 1};
}

// Largest / smallest of all entries, skipping NaN (NaN if all are NaN).
inline double m_c_max(std::span<const double> a) {
  double best = std::nan("");
  for (const double v : a) {
    if (!std::isnan(v) && (std::isnan(best) || v > best)) best = v;
  }
  return best;
}

inline double m_b_min(std::span<const double> a) {
  double best = std::nan("");
  for (const double v : a) {
    if (!std::isnan(v) && (std::isnan(best) || v < best)) best = v;
  }
  return best;
}

// First index in first .. last with a[i] == value; 1 if none.
inline int32_t m_findIdx(std::span<const double> a, int32_t first, int32_t last, double value) {
  const IndexRange r = inside(a.size(), first, last);
  for (std::size_t i = r.begin; i < r.end; ++i) {
    if (a[i] == value) return static_cast<int32_t>(i + 1);
  }
  return 1;
}

// Merge of the beats appended after the first n: out = temp, then `added`
// insertion steps from t = n + added - 1 (0-based, the last appended
// entry). A step walks the entry at t down while it is smaller than its
// predecessor; when the entry at t is not smaller than its predecessor at
// the start of a step, the next step starts one entry earlier. This is not
// a full sort, and it is kept as it is: a later appended beat that is not
// smaller than the one before it stays where it was appended.
inline void m_sortData(std::span<const int32_t> temp, int32_t n, int32_t added, std::span<int32_t> out) {
  std::copy_n(temp.begin(), std::min(temp.size(), out.size()), out.begin());
  int32_t t = kelo::sat_sub(kelo::sat_add(n, added), 1);
  const auto size = static_cast<int32_t>(out.size());
  for (int32_t step = 0; step < added; ++step) {
    const auto smaller_than_predecessor = [&](int32_t i) {
      return i > 0 && i < size && out[static_cast<std::size_t>(i)] < out[static_cast<std::size_t>(i - 1)];
    };
    if (!smaller_than_predecessor(t)) {
      --t;
      continue;
    }
    for (int32_t i = t; smaller_than_predecessor(i); --i) {
      std::swap(out[static_cast<std::size_t>(i)], out[static_cast<std::size_t>(i - 1)]);
    }
  }
}

// Statistics of the beats that one pass of the search works with.
struct BeatStats {
  double mRR, sRR;  // RR intervals
  double mA, sA;    // QRS amplitudes
  double mS, sS;    // reference slope
  int32_t vote;     // > 0: upward complexes dominate
};

// The statistics of the first n of `beats` over the signal x, computed in
// the search's static work arrays (so not re-entrant). x and beats hold
// kLength elements.
BeatStats beat_statistics(std::span<const double> x, std::span<const int32_t> beats, int32_t n,
                          int32_t w);

}  // namespace kelo::refine
