// detectWaves in its plain form: the detector on a column copy of the
// excerpt, the positive entries of its output made unique, the excerpt
// grade and the window grades.
#include <algorithm>
#include <cmath>
#include <vector>

#include "detect/window_quality.hpp"
#include "keloecgsolver/kernels.h"
#include "reference/detector.hpp"
#include "runtime/emx.hpp"
#include "runtime/kernels.hpp"
#include "runtime/numeric.hpp"

namespace kelo::ref {

namespace {

std::vector<double> detected_positions(std::span<const double> samples, int32_t fs) {
  std::vector<double> copy(samples.begin(), samples.end());
  const Detection d = analyze(copy, static_cast<double>(fs));
  // Entries greater than 0 are R peaks; 0 (unfilled), -Inf and NaN are not.
  EmxBool mask(1);
  resize_column(mask.get(), static_cast<int32_t>(d.rpeaks.size()));
  std::transform(d.rpeaks.begin(), d.rpeaks.end(), mask.span().begin(),
                 [](double v) { return v > 0.0; });
  EmxInt32 index(1);
  m_b_eml_li_find(mask, index);
  std::vector<double> candidates;
  for (int32_t i : index.span()) candidates.push_back(d.rpeaks[static_cast<std::size_t>(i) - 1]);
  return kern::unique(candidates);
}

}  // namespace

Waves detect_waves(std::span<const double> ecg, double fullScale, int32_t fs, int32_t windowSeconds) {
  Waves w;
  for (double v : detected_positions(ecg, fs)) w.rPeaks.push_back(round_to_int32(v));

  w.quality = 1;
  std::vector<double> magnitude(ecg.size());
  std::transform(ecg.begin(), ecg.end(), magnitude.begin(), [](double v) { return std::fabs(v); });
  const detect::MaxResult largest =
      detect::m_findMax(magnitude, static_cast<int64_t>(magnitude.size()));
  if (largest.maxValue > fullScale * 0.97) w.quality = 2;
  if (w.quality == 1 && detect::irregular_rhythm(w.rPeaks)) w.quality = 3;

  EmxReal samples(2);
  resize(samples.get(), {static_cast<int32_t>(ecg.size()), 1});
  std::copy(ecg.begin(), ecg.end(), samples.span().begin());
  EmxInt32 peaks(2), grades(2);
  resize(peaks.get(), {static_cast<int32_t>(w.rPeaks.size()), 1});
  std::copy(w.rPeaks.begin(), w.rPeaks.end(), peaks.span().begin());
  detect::m_checkWindowQuality(samples, fs, fullScale, peaks, windowSeconds, grades);
  w.windowQualities.assign(grades.span().begin(), grades.span().end());
  return w;
}

}  // namespace kelo::ref
