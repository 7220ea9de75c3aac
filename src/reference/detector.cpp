// The offline QRS detector in its plain form: the stages in order.
#include <algorithm>

#include "reference/detector.hpp"

namespace kelo::ref {

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

}  // namespace kelo::ref
