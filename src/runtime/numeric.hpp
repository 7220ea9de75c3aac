// Rounding and saturating integer arithmetic shared by every unit.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace kelo {

inline constexpr int32_t kInt32Max = std::numeric_limits<int32_t>::max();
inline constexpr int32_t kInt32Min = std::numeric_limits<int32_t>::min();

// Round to nearest, halves away from zero: floor(v + 0.5) for v >= 0,
// ceil(v - 0.5) below 0. NaN stays NaN.
inline double round_half_away(double v) {
  return v >= 0.0 ? std::floor(v + 0.5) : std::ceil(v - 0.5);
}

// Double to int32 by truncation, saturating at the int32 limits; NaN gives 0.
inline int32_t to_int32_sat(double v) {
  if (std::isnan(v)) return 0;
  if (v >= 2147483648.0) return kInt32Max;
  if (v < -2147483648.0) return kInt32Min;
  return static_cast<int32_t>(v);
}

// Round half away from zero, then convert with saturation.
inline int32_t round_to_int32(double v) { return to_int32_sat(round_half_away(v)); }

inline int32_t clamp_to_int32(int64_t v) {
  if (v > kInt32Max) return kInt32Max;
  if (v < kInt32Min) return kInt32Min;
  return static_cast<int32_t>(v);
}

inline int32_t sat_add(int32_t a, int32_t b) {
  return clamp_to_int32(static_cast<int64_t>(a) + b);
}

inline int32_t sat_sub(int32_t a, int32_t b) {
  return clamp_to_int32(static_cast<int64_t>(a) - b);
}

}  // namespace kelo
