// Span-based cores of the shared numeric kernels. The exported m_* kernels
// are thin wrappers over these; analysis units may call the cores directly
// on views of their work arrays (same arithmetic, same bits).
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace kelo::kern {

// ---- statistics ----
double mean(std::span<const double> x);     // left-to-right sum / n, NaN if empty
double std_dev(std::span<const double> x);  // divisor n - 1 (n for n < 2), NaN if empty
double vector_median(std::span<const double> x);
double median(std::span<const double> x);   // NaN if empty
double max_value(std::span<const double> x);  // NaN-skipping, first extreme wins
double min_value(std::span<const double> x);

// ---- sorting ----
// 1-based positions listing x ascending: stable, NaN after all numbers.
void sort_index(std::span<const double> x, std::span<int32_t> idx);
std::vector<double> unique(std::span<const double> x);

// ---- signal ----
void smooth(std::span<const double> x, double span, std::span<double> y);
double corr(std::span<const double> x, std::span<const double> y);

}  // namespace kelo::kern
