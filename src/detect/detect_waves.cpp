// detectWaves: R peaks of an excerpt as a clean ascending list, the grade
// of the whole excerpt and the per-window grades.
#include <algorithm>
#include <cmath>
#include <vector>

#include "detect/detect_waves.hpp"
#include "detect/detector.hpp"
#include "detect/window_quality.hpp"
#include "keloecgsolver/detect.h"
#include "keloecgsolver/grades.h"
#include "runtime/boundary.hpp"
#include "runtime/emx.hpp"
#include "runtime/kernels.hpp"
#include "runtime/numeric.hpp"
#include "runtime/run_rules.hpp"

namespace kelo::detect {

std::vector<int32_t> rpeak_positions(std::span<const double> ecg, int32_t fs, simd::Isa isa) {
  // Entries greater than 0 are R peaks; 0 (unfilled), -Inf and NaN are not.
  std::vector<double> candidates = detect_rpeaks(ecg, static_cast<double>(fs), isa);
  std::erase_if(candidates, [](double v) { return !(v > 0.0); });
  const std::vector<double> positions = kern::unique(candidates);
  std::vector<int32_t> peaks(positions.size());
  std::transform(positions.begin(), positions.end(), peaks.begin(),
                 [](double v) { return round_to_int32(v); });
  return peaks;
}

int32_t excerpt_grade(std::span<const double> ecg, double fullScale,
                      std::span<const int32_t> peaks) {
  // Clipping first: a clipped excerpt is graded clipped whatever its rhythm.
  if (largest_magnitude(ecg) > fullScale * rules::kClipFraction) return KELO_EXCERPT_CLIPPED;
  if (irregular_rhythm(peaks)) return KELO_EXCERPT_IRREGULAR;
  return KELO_EXCERPT_USABLE;
}

}  // namespace kelo::detect

extern "C" {

KELO_API void detectWaves(const emxArray_real_T* ecg, double fullScale, int32_t fs,
                          int32_t windowSeconds, emxArray_int32_T* rPeaks, int32_t* quality,
                          emxArray_int32_T* windowQualities) {
  using namespace kelo;
  if (ecg == nullptr || rPeaks == nullptr || quality == nullptr || windowQualities == nullptr) return;
  guarded(
      [&] {
        const auto samples = elements(ecg);
        {
          const std::vector<int32_t> positions = detect::rpeak_positions(samples, fs);
          if (!resize_column(rPeaks, static_cast<int32_t>(positions.size()))) return;
          const auto peaks = elements(rPeaks);
          std::copy_n(positions.begin(), std::min(positions.size(), peaks.size()), peaks.begin());
        }
        *quality = detect::excerpt_grade(samples, fullScale, elements(rPeaks));
        detect::m_checkWindowQuality(ecg, fs, fullScale, rPeaks, windowSeconds, windowQualities);
      },
      [&] {
        empty(rPeaks);
        *quality = 0;
        empty(windowQualities);
      });
}

}  // extern "C"
