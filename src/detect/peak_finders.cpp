// Peak finders of the QRS detector and the exported absolute-value kernel.
#include "detect/peak_finders.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <vector>

#include "keloecgsolver/detect.h"
#include "keloecgsolver/rt_nonfinite.h"
#include "runtime/boundary.hpp"
#include "runtime/emx.hpp"

namespace kelo::detect {

Peak m_findsmallpeak(std::span<const double> x) {
  Peak peak{rtMinusInf, rtMinusInf};
  for (std::size_t k = 1; k + 1 < x.size(); ++k) {
    if (is_local_max(x, k) && x[k] > peak.amplitude) {
      peak.position = static_cast<double>(k + 1);
      peak.amplitude = x[k];
    }
  }
  return peak;
}

Peak m_b_findsmallpeak(const RefineWindow& x) { return m_findsmallpeak(x); }

Peak m_findbigpeak(std::span<const double> x) {
  Peak peak{rtMinusInf, rtMinusInf};
  const std::size_t length = x.size();
  // One pass over the local extremes. The feet of a maximum are the last
  // local minimum before it (since the previous maximum) and the last one
  // before the next maximum; a missing left foot is the first sample, and
  // a maximum with no minimum before the next maximum does not compete.
  // After the last maximum a missing right foot is the last sample. All
  // positions are 1-based.
  constexpr double kNone = 1.0;  // no minimum since the last maximum
  double minimum = kNone;
  double top = 0.0, leftFoot = kNone;
  bool pending = false;
  const auto settle = [&](double rightFoot) {
    const double p = x[static_cast<std::size_t>(top) - 1];
    // The fall after the peak weighs 1.3 against 1.0 for the rise into it.
    const double score = 1.3 * (p - x[static_cast<std::size_t>(rightFoot) - 1]) +
                         (p - x[static_cast<std::size_t>(leftFoot) - 1]);
    if (score > peak.amplitude) {
      peak.amplitude = score;
      peak.position = top;
    }
  };
  // The extremes are few: find them 64 samples at a time as bit masks
  // (no branch per sample), then visit them in order.
  for (std::size_t base = 1; base + 1 < length; base += 64) {
    const std::size_t end = std::min(base + 64, length - 1);
    uint64_t minima = 0, maxima = 0;
    for (std::size_t k = base; k < end; ++k) {
      minima |= static_cast<uint64_t>(is_local_min(x, k)) << (k - base);
      maxima |= static_cast<uint64_t>(is_local_max(x, k)) << (k - base);
    }
    for (uint64_t events = minima | maxima; events != 0; events &= events - 1) {
      const int bit = std::countr_zero(events);
      const auto position = static_cast<double>(base + static_cast<std::size_t>(bit) + 1);
      if ((minima >> bit) & 1U) {
        minimum = position;
        continue;
      }
      if (pending && minimum != kNone) settle(minimum);
      pending = true;
      top = position;
      leftFoot = minimum;
      minimum = kNone;
    }
  }
  if (pending) settle(minimum == kNone ? static_cast<double>(length) : minimum);
  if (peak.position > 0.0) peak.amplitude = x[static_cast<std::size_t>(peak.position) - 1];
  return peak;
}

void m_eml_li_find(const emxArray_boolean_T* mask, emxArray_int32_T* indices) {
  auto all = elements(mask);
  std::size_t length = 0;
  if (mask != nullptr && mask->numDimensions >= 1) {
    const int32_t extent = mask->numDimensions >= 2 ? mask->size[1] : mask->size[0];
    length = extent > 0 ? static_cast<std::size_t>(extent) : 0;
  }
  if (length > all.size()) length = all.size();
  int32_t count = 0;
  for (std::size_t k = 0; k < length; ++k) count += all[k] ? 1 : 0;
  if (!resize_row(indices, count)) return;
  auto out = elements(indices);
  std::size_t j = 0;
  for (std::size_t k = 0; k < length && j < out.size(); ++k)
    if (all[k]) out[j++] = static_cast<int32_t>(k + 1);
}

}  // namespace kelo::detect

extern "C" {

KELO_API void m_abs(const emxArray_real_T* x, emxArray_real_T* y) {
  if (x == nullptr || y == nullptr || x->numDimensions < 1 || x->size == nullptr) return;
  const int32_t n = x->size[0] < 0 ? 0 : x->size[0];
  if (!kelo::guarded([&] { return kelo::resize_column(y, n); }, [&] { kelo::empty(y); return false; }))
    return;
  auto in = kelo::elements(x);
  auto out = kelo::elements(y);
  // Clearing the sign bit: -0 becomes +0 and a NaN stays NaN.
  for (std::size_t k = 0; k < out.size() && k < in.size(); ++k) out[k] = std::fabs(in[k]);
}

}  // extern "C"
