// The offline QRS detector: the stages in order, with the threshold curve
// in full (the exported detector) or only its crossings (detectWaves), and
// the detector's C entry point.
#include <algorithm>
#include <memory>

#include "detect/detector.hpp"
#include "keloecgsolver/detect.h"
#include "runtime/boundary.hpp"
#include "runtime/emx.hpp"
#include "runtime/sample_buffer.hpp"

namespace kelo::detect {

Detection analyze(std::span<double> ecg, double fs, simd::Isa isa) {
  const simd::Kernels& kernels = simd::kernels(isa);
  const std::size_t n = ecg.size();
  Detection d{{}, std::vector<double>(n, 0.0), std::vector<double>(n, 0.0)};
  centre(ecg, ecg, d.threshold);  // the threshold's buffer serves as the median's copy
  if (!fits_edge_holds(n, fs)) {
    // Too short for the edge holds, or no usable rate: no beats, and curves
    // that never cross (all zeros).
    std::fill(d.threshold.begin(), d.threshold.end(), 0.0);
    return d;
  }
  const Widths w = widths_for(fs);
  qrs_feature(ecg, w, d.feature, kernels);
  {
    std::vector<double> localSpread(n);
    local_spread(ecg, w.spreadHalfWidth, localSpread, kernels);
    threshold_curve(d.feature, localSpread, fs, d.threshold, kernels);
  }
  d.rpeaks = decide_beats(ecg, candidate_regions(d.feature, d.threshold), d.feature,
                          [&](std::size_t k) { return d.threshold[k]; }, w, kernels);
  return d;
}

std::vector<double> detect_rpeaks(std::span<const double> ecg, double fs, simd::Isa isa) {
  const simd::Kernels& kernels = simd::kernels(isa);
  const std::size_t n = ecg.size();
  if (!fits_edge_holds(n, fs)) return {};
  // The centred copy and the envelope are the only per-sample buffers (every
  // element is written before it is read); the envelope's buffer first
  // serves as the median's copy.
  const SampleBuffer centredBuffer(n), featureBuffer(n);
  const std::span<double> centred = centredBuffer.span();
  const std::span<double> feature = featureBuffer.span();
  centre(ecg, centred, feature);
  const Widths w = widths_for(fs);
  qrs_feature(centred, w, feature, kernels);
  return decide_beats(centred, regions_without_threshold(centred, feature, w, fs, kernels), feature,
                      [&](std::size_t k) { return threshold_at(feature, centred, w, fs, k); }, w,
                      kernels);
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
