// Span-based cores of the shared numeric kernels. The exported m_* kernels
// are thin wrappers over these; analysis units may call the cores directly
// on views of their work arrays (same arithmetic, same bits).
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "runtime/simd/isa.hpp"

namespace kelo::kern {

// ---- statistics ----
double mean(std::span<const double> x);     // left-to-right sum / n, NaN if empty
double std_dev(std::span<const double> x);  // divisor n - 1 (n for n < 2), NaN if empty
// Median: NaN when the vector is empty or holds a NaN; of an even count the
// mean of the two middle values (a + (b - a) / 2 when both are finite and
// of one sign). The middle values are found by selection on a copy, not by
// sorting; where a middle value is a zero, the zero (+0 or -0) that a
// stable sort would have put there is returned. `scratch` (at least
// x.size() elements, may not overlap x) saves the copy's allocation.
double vector_median(std::span<const double> x);
double median(std::span<const double> x);
double median(std::span<const double> x, std::span<double> scratch);
double max_value(std::span<const double> x);  // NaN-skipping, first extreme wins
double min_value(std::span<const double> x);

// ---- sorting ----
// 1-based positions listing x ascending: stable, NaN after all numbers.
void sort_index(std::span<const double> x, std::span<int32_t> idx);
std::vector<double> unique(std::span<const double> x);

// ---- signal ----
// Moving average with truncated ends; the windows that lie wholly inside x
// are summed by the vectorised kernels of the given path.
void smooth(std::span<const double> x, double span, std::span<double> y,
            const simd::Kernels& kernels = simd::best_kernels());
// The single output y(i) of the smoother with half-width h (already made
// odd and clamped): the sum in the smoother's order divided by the count.
double smooth_at(std::span<const double> x, std::size_t h, std::size_t i);
// The half-width that the smoother uses for a span over n samples.
std::size_t smooth_half_width(double span, std::size_t n);
double corr(std::span<const double> x, std::span<const double> y);

}  // namespace kelo::kern
