// The pieces of detectWaves, on plain spans.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "runtime/simd/isa.hpp"

namespace kelo::detect {

// The detector's positive outputs, ascending, without duplicates, rounded
// half away from zero to saturated int32 (1-based positions).
std::vector<int32_t> rpeak_positions(std::span<const double> ecg, int32_t fs,
                                     simd::Isa isa = simd::best_isa());

// 2 when the largest |sample| exceeds 0.97 * fullScale, else 3 when the
// rhythm is irregular, else 1.
int32_t excerpt_grade(std::span<const double> ecg, double fullScale,
                      std::span<const int32_t> peaks);

}  // namespace kelo::detect
