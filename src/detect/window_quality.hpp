// Quality grading of an ECG excerpt: the maximum search shared by the
// excerpt and window grades, the rhythm test, and the per-window grades.
// Internal to the detection unit (hidden from the shared library).
#pragma once

#include <cstdint>
#include <span>

#include "keloecgsolver/emx_array.h"

namespace kelo::detect {

struct MaxResult {
  double maxValue;
  int32_t maxIndex;  // 1-based
};

// Largest of x(1 .. n), n clamped to the length of x. The running maximum
// starts at -10000.0 with index 1 and only a strictly greater element
// replaces it: the first of equal maxima wins, NaNs never win, and values
// all at or below -10000.0 give -10000.0 at index 1.
MaxResult m_findMax(std::span<const double> x, int64_t n);

// The value m_findMax gives over |x(k)| (sign bits cleared), without the
// copy of the magnitudes: the largest |x(k)|, NaNs skipped, or -10000.0.
double largest_magnitude(std::span<const double> x);

// True when the standard deviation of the RR intervals of the ascending
// peak list exceeds a quarter of their mean. Intervals are int32 with
// saturation; the mean divides by (count - 1) and the deviation by
// (count - 2), as IEEE doubles: with fewer than three peaks the result is
// -0.0, NaN or NaN and the test is false.
bool irregular_rhythm(std::span<const int32_t> peaks);

// Number of quality windows: floor(N / fs / windowSeconds) when that many
// whole windows fit and windowSeconds >= 5, else 1. A rate of 0 or below
// gives 1 (a zero rate would otherwise ask for infinitely many windows).
double window_count(int32_t n, int32_t fs, int32_t windowSeconds);

// One grade per window into windowQualities (first extent W): 0 usable,
// 3 fewer than two R peaks, 5 clipped, 6 irregular. Nothing happens when a
// record pointer is NULL.
void m_checkWindowQuality(const emxArray_real_T* ecg, int32_t fs, double fullScale,
                          const emxArray_int32_T* rPeaks, int32_t windowSeconds,
                          emxArray_int32_T* windowQualities);

}  // namespace kelo::detect
