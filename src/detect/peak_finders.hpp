// Peak finders of the QRS detector: the highest local maximum of a
// sequence, the local maximum with the largest weighted rise and fall, and
// a logical-index finder. Positions are 1-based. These routines are
// internal to the detection unit (hidden from the shared library).
#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "keloecgsolver/emx_array.h"

namespace kelo::detect {

// Amplitude and 1-based position of a peak; both are -Inf when no element
// qualifies.
struct Peak {
  double amplitude;
  double position;
};

// Samples c - 10 .. c + 10 around a beat candidate.
inline constexpr std::size_t kRefineLength = 21;
using RefineWindow = std::array<double, kRefineLength>;

// Element k (0-based, interior) is a local maximum when the rise into it is
// strict and the fall out of it may start with a plateau.
inline bool is_local_max(std::span<const double> x, std::size_t k) {
  return x[k] > x[k - 1] && x[k] >= x[k + 1];
}

// Local minimum: the fall into it may end in a plateau, the rise out of it
// is strict.
inline bool is_local_min(std::span<const double> x, std::size_t k) {
  return x[k - 1] >= x[k] && x[k + 1] > x[k];
}

// Highest interior local maximum; of equal heights the first wins.
Peak m_findsmallpeak(std::span<const double> x);

// The same over the fixed 21-sample refinement window (positions 2 .. 20).
Peak m_b_findsmallpeak(const RefineWindow& x);

// The local maximum p with the largest score 1.3 * (x(p) - x(b)) +
// (x(p) - x(a)), a and b being the local minima around it; the amplitude
// returned is the sample value x(p), not the score.
Peak m_findbigpeak(std::span<const double> x);

// indices becomes a 1 x count row of the 1-based positions of the true
// elements of the mask row (length = its second extent, or its only
// extent for a one-dimensional record), ascending.
void m_eml_li_find(const emxArray_boolean_T* mask, emxArray_int32_T* indices);

}  // namespace kelo::detect
