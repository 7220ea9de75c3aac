// Per-window quality grades of an ECG excerpt.
#include "detect/window_quality.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

#include "keloecgsolver/grades.h"
#include "keloecgsolver/rt_nonfinite.h"
#include "runtime/emx.hpp"
#include "runtime/numeric.hpp"
#include "runtime/run_rules.hpp"

namespace kelo::detect {

namespace {

// Window bound: rounded half away from zero, saturated, NaN to the largest
// int32.
int32_t window_bound(double v) {
  if (std::isnan(v)) return kInt32Max;
  const double r = round_half_away(v);
  if (r >= 2147483648.0) return kInt32Max;
  if (r < -2147483648.0) return kInt32Min;
  return static_cast<int32_t>(r);
}

}  // namespace

MaxResult m_findMax(std::span<const double> x, int64_t n) {
  const auto count = static_cast<std::size_t>(std::clamp<int64_t>(n, 0, static_cast<int64_t>(x.size())));
  MaxResult best{-10000.0, 1};
  for (std::size_t k = 0; k < count; ++k) {
    if (x[k] > best.maxValue) {
      best.maxValue = x[k];
      best.maxIndex = static_cast<int32_t>(k + 1);
    }
  }
  return best;
}

double largest_magnitude(std::span<const double> x) {
  double largest = -10000.0;
  for (double v : x) {
    const double a = std::fabs(v);
    largest = a > largest ? a : largest;
  }
  return largest;
}

bool irregular_rhythm(std::span<const int32_t> peaks) {
  const auto count = static_cast<int64_t>(peaks.size());
  std::vector<int32_t> rr;
  for (std::size_t k = 0; k + 1 < peaks.size(); ++k) rr.push_back(sat_sub(peaks[k + 1], peaks[k]));
  double sum = 0.0;
  for (int32_t v : rr) sum += static_cast<double>(v);
  const double mean = sum / static_cast<double>(count - 1);
  double squares = 0.0;
  for (int32_t v : rr) squares += rt_pow_snf(static_cast<double>(v) - mean, 2.0);
  const double spread = std::sqrt(1.0 / static_cast<double>(count - 2) * squares);
  return spread > rules::kIrregularFraction * mean;
}

double window_count(int32_t n, int32_t fs, int32_t windowSeconds) {
  if (fs <= 0) return 1.0;
  const double seconds = static_cast<double>(n) / static_cast<double>(fs);
  if (std::floor(seconds) >= static_cast<double>(windowSeconds) && windowSeconds >= 5)
    return std::floor(seconds / static_cast<double>(windowSeconds));
  return 1.0;
}

void m_checkWindowQuality(const emxArray_real_T* ecg, int32_t fs, double fullScale,
                          const emxArray_int32_T* rPeaks, int32_t windowSeconds,
                          emxArray_int32_T* windowQualities) {
  if (ecg == nullptr || rPeaks == nullptr || windowQualities == nullptr) return;
  const int32_t length = vector_length(ecg);
  const auto samples = elements(ecg);
  const auto peaks = elements(rPeaks);
  const double windows = window_count(length, fs, windowSeconds);
  if (!resize_column(windowQualities, to_int32_sat(windows))) return;
  auto grades = elements(windowQualities);
  std::fill(grades.begin(), grades.end(), KELO_WINDOW_USABLE);

  // The peaks of a window, in their order. detectWaves hands over an
  // ascending list, whose peaks of a window are one run found by binary
  // search; any other order is filtered peak by peak.
  const bool ascending = std::is_sorted(peaks.begin(), peaks.end());
  std::vector<int32_t> selected;
  const auto peaks_within = [&](int32_t start, int32_t end) -> std::span<const int32_t> {
    if (ascending) {
      const auto lo = std::lower_bound(peaks.begin(), peaks.end(), start);
      const auto hi = std::upper_bound(lo, peaks.end(), end);
      return {lo, hi};
    }
    selected.clear();
    for (int32_t p : peaks)
      if (start <= p && p <= end) selected.push_back(p);
    return selected;
  };

  for (double w = 1.0; w <= windows && static_cast<std::size_t>(w) <= grades.size(); w += 1.0) {
    int32_t start = 1;
    int32_t end = length;
    if (windows != 1.0) {
      // Each bound afresh from the window number (no accumulated offset).
      start = window_bound(1.0 + (w - 1.0) * windowSeconds * fs);
      end = window_bound(fs * (windowSeconds * w));
    }
    int32_t& grade = grades[static_cast<std::size_t>(w) - 1];

    const std::span<const int32_t> inside = peaks_within(start, end);
    if (inside.size() < 2) {
      grade = KELO_WINDOW_TOO_FEW_BEATS;
      continue;
    }

    // The window's samples; bounds beyond the recording (which well-formed
    // inputs never produce) are cut off.
    const int64_t first = std::max<int64_t>(start, 1);
    const int64_t last = std::min<int64_t>(end, static_cast<int64_t>(samples.size()));
    std::span<const double> window;
    if (first <= last)
      window = samples.subspan(static_cast<std::size_t>(first - 1), static_cast<std::size_t>(last - first + 1));
    if (largest_magnitude(window) > fullScale * rules::kClipFraction)
      grade = KELO_WINDOW_CLIPPED;
    else if (irregular_rhythm(inside))
      grade = KELO_WINDOW_IRREGULAR;
  }
}

}  // namespace kelo::detect
