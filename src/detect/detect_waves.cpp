// detectWaves: R peaks of an excerpt as a clean ascending list, the grade
// of the whole excerpt and the per-window grades.
#include <algorithm>
#include <cmath>
#include <vector>

#include "detect/window_quality.hpp"
#include "keloecgsolver/detect.h"
#include "keloecgsolver/kernels.h"
#include "runtime/boundary.hpp"
#include "runtime/emx.hpp"
#include "runtime/kernels.hpp"
#include "runtime/numeric.hpp"

namespace {

using namespace kelo;

// Runs the detector on a column copy of the excerpt and returns the
// positive entries of its output, ascending and without duplicates.
std::vector<double> detected_positions(std::span<const double> samples, int32_t fs) {
  const auto n = static_cast<int32_t>(samples.size());
  EmxReal copy(2);
  resize(copy.get(), {n, 1});
  std::copy(samples.begin(), samples.end(), copy.span().begin());
  EmxReal rpeaks(1), feature(1), threshold(1);
  m_analyze_ecg_offline_r(copy, static_cast<double>(fs), rpeaks, feature, threshold);

  // Entries greater than 0 are R peaks; 0 (unfilled), -Inf and NaN are not.
  const auto out = rpeaks.span();
  EmxBool mask(1);
  resize_column(mask.get(), static_cast<int32_t>(out.size()));
  std::transform(out.begin(), out.end(), mask.span().begin(), [](double v) { return v > 0.0; });
  EmxInt32 index(1);
  m_b_eml_li_find(mask, index);
  std::vector<double> candidates;
  for (int32_t i : index.span()) candidates.push_back(out[static_cast<std::size_t>(i) - 1]);
  return kern::unique(candidates);
}

void detect_waves(const emxArray_real_T* ecg, double fullScale, int32_t fs, int32_t windowSeconds,
                  emxArray_int32_T* rPeaks, int32_t* quality, emxArray_int32_T* windowQualities) {
  const auto samples = elements(ecg);

  const std::vector<double> positions = detected_positions(samples, fs);
  if (!resize_column(rPeaks, static_cast<int32_t>(positions.size()))) return;
  const auto peaks = elements(rPeaks);
  for (std::size_t k = 0; k < peaks.size(); ++k) peaks[k] = round_to_int32(positions[k]);

  *quality = 1;
  std::vector<double> magnitude(samples.size());
  std::transform(samples.begin(), samples.end(), magnitude.begin(),
                 [](double v) { return std::fabs(v); });
  const detect::MaxResult largest =
      detect::m_findMax(magnitude, static_cast<int64_t>(magnitude.size()));
  // Clipping first: a clipped excerpt is graded 2 whatever its rhythm.
  if (largest.maxValue > fullScale * 0.97) *quality = 2;
  if (*quality == 1 && detect::irregular_rhythm(peaks)) *quality = 3;

  detect::m_checkWindowQuality(ecg, fs, fullScale, rPeaks, windowSeconds, windowQualities);
}

}  // namespace

extern "C" {

KELO_API void detectWaves(const emxArray_real_T* ecg, double fullScale, int32_t fs,
                          int32_t windowSeconds, emxArray_int32_T* rPeaks, int32_t* quality,
                          emxArray_int32_T* windowQualities) {
  if (ecg == nullptr || rPeaks == nullptr || quality == nullptr || windowQualities == nullptr) return;
  guarded([&] { detect_waves(ecg, fullScale, fs, windowSeconds, rPeaks, quality, windowQualities); },
          [&] {
            empty(rPeaks);
            *quality = 0;
            empty(windowQualities);
          });
}

}  // extern "C"
