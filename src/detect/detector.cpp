// The offline QRS detector: the stages in order, and its C entry point.
#include <algorithm>

#include "detect/detector.hpp"
#include "keloecgsolver/detect.h"
#include "runtime/boundary.hpp"
#include "runtime/emx.hpp"

namespace kelo::detect {

Detection analyze(std::span<double> ecg, double fs) {
  centre(ecg);
  const std::size_t n = ecg.size();
  if (!fits_edge_holds(n, fs)) {
    // Too short for the edge holds, or no usable rate: no beats, and curves
    // that never cross (all zeros).
    return Detection{{}, std::vector<double>(n, 0.0), std::vector<double>(n, 0.0)};
  }
  const Widths w = widths_for(fs);

  const std::vector<double> localSpread = local_spread(ecg, w.spreadHalfWidth);
  const std::vector<double> ecgSlope = slope(ecg);
  std::vector<double> qrsFeature =
      envelope(range_product(ecg, ecgSlope, w.featureHalfWidth), w.envelopeHalfWidth);
  std::vector<double> qrsThreshold = threshold_curve(qrsFeature, localSpread, fs);
  Regions regions = candidate_regions(qrsFeature, qrsThreshold);

  std::vector<double> provisionalPeak = provisional_peaks(ecg, regions, w.minRegionLength);
  keep_placed(regions, provisionalPeak);
  const std::vector<double> beatTemplate = beat_template(ecg, provisionalPeak, w.templateHalfWidth);

  BeatList beats(2 * regions.size());
  correlation_pass(ecg, beatTemplate, regions, w.templateHalfWidth, beats);
  search_back(ecg, beatTemplate, qrsFeature, qrsThreshold, w.templateHalfWidth, beats);

  return Detection{std::move(beats.rpeaks), std::move(qrsFeature), std::move(qrsThreshold)};
}

}  // namespace kelo::detect

namespace {

void store(std::span<const double> values, emxArray_real_T* out) {
  if (!kelo::resize_column(out, static_cast<int32_t>(values.size()))) return;
  auto dst = kelo::elements(out);
  std::copy_n(values.begin(), std::min(values.size(), dst.size()), dst.begin());
}

}  // namespace

extern "C" {

KELO_API void m_analyze_ecg_offline_r(emxArray_real_T* ecg, double fs, emxArray_real_T* rpeaks,
                                      emxArray_real_T* feature, emxArray_real_T* threshold) {
  if (ecg == nullptr || rpeaks == nullptr || feature == nullptr || threshold == nullptr) return;
  kelo::guarded(
      [&] {
        // The recording is the vector's elements (its length is its largest
        // extent; other extents are 1).
        auto all = kelo::elements(ecg);
        const auto n = std::min<std::size_t>(all.size(), static_cast<std::size_t>(kelo::vector_length(ecg)));
        const kelo::detect::Detection d = kelo::detect::analyze(all.first(n), fs);
        store(d.rpeaks, rpeaks);
        store(d.feature, feature);
        store(d.threshold, threshold);
      },
      [&] {
        kelo::empty(rpeaks);
        kelo::empty(feature);
        kelo::empty(threshold);
      });
}

}  // extern "C"
