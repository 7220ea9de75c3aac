// Signal conditioning of the QRS detector: centring, the sliding-window
// measures, the energy envelope and the adaptive threshold.
#include <algorithm>
#include <cmath>

#include "detect/detector.hpp"
#include "keloecgsolver/rt_nonfinite.h"
#include "runtime/kernels.hpp"

namespace kelo::detect {

namespace {

// Envelope outputs computed per block: the slope, the ranges and their
// product exist only for one block (plus its margins) at a time.
constexpr std::size_t kBlock = 4096;

std::size_t as_index(int64_t h) { return h > 0 ? static_cast<std::size_t>(h) : 0; }

// Work buffers of the envelope, sized once per recording.
struct EnvelopeWork {
  std::vector<double> slope, ampRange, slopeRange, product, scratch;
  EnvelopeWork(std::size_t hf, std::size_t he) {
    const std::size_t productLength = kBlock + 2 * he;
    const std::size_t slopeLength = productLength + 2 * hf;
    slope.resize(slopeLength);
    ampRange.resize(productLength);
    slopeRange.resize(productLength);
    product.resize(productLength);
    scratch.resize(3 * (slopeLength + 2 * hf + 1));
  }
};

// Stage 4 over the 0-based indices [p0, p1): product(k) =
// (slopeRange(k) * ampRange(k)) * ampRange(k), the ranges being max - min
// over the windows of half-width hf, and 0 within hf of either end.
void range_product(std::span<const double> ecg, std::size_t hf, std::size_t p0, std::size_t p1,
                   EnvelopeWork& w, const simd::Kernels& kernels) {
  const std::size_t n = ecg.size();
  const std::size_t count = p1 - p0;
  std::fill_n(w.ampRange.begin(), count, 0.0);
  std::fill_n(w.slopeRange.begin(), count, 0.0);
  // Indices whose window fits: [q0, q1).
  const std::size_t q0 = std::max(p0, hf);
  const std::size_t q1 = n >= hf ? std::min(p1, n - hf) : q0;
  if (q1 > q0) {
    const std::size_t len = 2 * hf + 1;
    const std::size_t windows = q1 - q0;
    const std::size_t at = q0 - p0;
    kernels.window_range(ecg.data() + (q0 - hf), len, windows, w.ampRange.data() + at,
                         w.scratch.data(), rtNaN);
    // Stage 3, the central difference, over the windows' samples
    // [q0 - hf, q1 + hf); its first and last elements stay 0.
    const std::size_t s0 = q0 - hf;
    const std::size_t s1 = q1 + hf;
    const std::size_t inner0 = std::max<std::size_t>(s0, 1), inner1 = std::min(s1, n - 1);
    for (std::size_t k = s0; k < inner0; ++k) w.slope[k - s0] = 0.0;
    for (std::size_t k = inner0; k < inner1; ++k) w.slope[k - s0] = ecg[k + 1] - ecg[k - 1];
    for (std::size_t k = std::max(inner1, s0); k < s1; ++k) w.slope[k - s0] = 0.0;
    kernels.window_range(w.slope.data(), len, windows, w.slopeRange.data() + at, w.scratch.data(),
                         rtNaN);
  }
  kernels.times_square(w.slopeRange.data(), w.ampRange.data(), count, w.product.data());
}

}  // namespace

Widths widths_for(double fs) {
  return Widths{
      static_cast<int64_t>(std::floor(0.2 * fs)),
      static_cast<int64_t>(std::floor(0.028 * fs)),
      static_cast<int64_t>(std::floor(0.1 * fs)),
      static_cast<int64_t>(std::floor(0.08 * fs)),
      3.0 * fs,
      0.2 * fs,
  };
}

// The edge holds read elements 1 + h and n - h without a check of their
// own; recordings too short for them (the threshold's hold of fs samples is
// the longest) are not analysed at all, and neither are rates that give no
// meaningful window (NaN, infinite, zero or negative).
bool fits_edge_holds(std::size_t n, double fs) {
  if (!std::isfinite(fs) || !(fs > 0.0)) return false;
  return fs < 1.0 || static_cast<double>(n) >= fs + 1.0;
}

void centre(std::span<const double> x, std::span<double> out, std::span<double> scratch) {
  const double m = kern::median(x, scratch);
  for (std::size_t i = 0; i < x.size(); ++i) out[i] = x[i] - m;
}

void edge_hold(std::span<double> x, int64_t h) {
  if (h < 1 || x.size() < static_cast<std::size_t>(h) + 1) return;
  const auto half = static_cast<std::size_t>(h);
  const std::size_t n = x.size();
  const double head = x[half];  // element 1 + h
  std::fill_n(x.begin(), half, head);
  const double tail = x[n - half - 1];  // element n - h, read after the head hold
  std::fill(x.begin() + static_cast<std::ptrdiff_t>(n - half), x.end(), tail);
}

std::size_t edge_hold_source(std::size_t k, std::size_t n, int64_t h) {
  if (h < 1 || n < static_cast<std::size_t>(h) + 1) return k;
  const auto half = static_cast<std::size_t>(h);
  if (k >= n - half) {
    const std::size_t tail = n - half - 1;
    return tail < half ? half : tail;
  }
  return k < half ? half : k;
}

void local_spread(std::span<const double> ecg, int64_t h, std::span<double> out,
                  const simd::Kernels& kernels) {
  const std::size_t n = ecg.size();
  const std::size_t half = as_index(h);
  std::fill(out.begin(), out.end(), 0.0);
  if (n > 2 * half) kernels.window_std(ecg.data(), 2 * half + 1, n - 2 * half, out.data() + half);
  edge_hold(out, h);
}

double local_spread_at(std::span<const double> ecg, int64_t h, std::size_t k) {
  const std::size_t n = ecg.size();
  const std::size_t half = as_index(h);
  const std::size_t source = edge_hold_source(k, n, h);
  if (source < half || source + half >= n) return 0.0;  // no window was computed there
  return kern::std_dev(ecg.subspan(source - half, 2 * half + 1));
}

void qrs_feature(std::span<const double> ecg, const Widths& widths, std::span<double> feature,
                 const simd::Kernels& kernels) {
  const std::size_t n = ecg.size();
  const std::size_t hf = as_index(widths.featureHalfWidth);
  const std::size_t he = as_index(widths.envelopeHalfWidth);
  if (n <= 2 * he) std::fill(feature.begin(), feature.end(), 0.0);  // no window fits
  if (n > 2 * he) {
    // The ends outside every window are 0 until the edge hold.
    std::fill_n(feature.begin(), he, 0.0);
    std::fill(feature.end() - static_cast<std::ptrdiff_t>(he), feature.end(), 0.0);
    // Stage 5: the sliding maximum of half-width he of the product, for the
    // indices [he, n - he); block by block.
    EnvelopeWork work(hf, he);
    const std::size_t len = 2 * he + 1;
    for (std::size_t k0 = he; k0 < n - he; k0 += kBlock) {
      const std::size_t k1 = std::min(k0 + kBlock, n - he);
      range_product(ecg, hf, k0 - he, k1 + he, work, kernels);
      kernels.window_max(work.product.data(), len, k1 - k0, feature.data() + k0,
                         work.scratch.data(), rtNaN);
    }
  }
  edge_hold(feature, widths.envelopeHalfWidth);
}

ThresholdHold threshold_hold(std::size_t n, double fs) {
  ThresholdHold hold;
  const double nd = static_cast<double>(n);
  if (!(fs >= 1.0 && nd >= fs + 1.0)) return hold;
  hold.headCount = static_cast<std::size_t>(fs);
  hold.headSource = static_cast<std::size_t>(1.0 + fs) - 1;
  const std::size_t tail = static_cast<std::size_t>(nd - fs) - 1;
  hold.tailSource = tail < hold.headCount ? hold.headSource : tail;
  // Positions floor(1 + (n - fs) + j) are consecutive integers.
  const auto first = static_cast<std::size_t>(1.0 + (nd - fs));  // 1-based, >= 1
  hold.tailBegin = std::min(first - 1, n);
  hold.tailEnd = std::min(first - 1 + hold.headCount, n);
  return hold;
}

void threshold_curve(std::span<const double> qrsFeature, std::span<const double> localSpread,
                     double fs, std::span<double> out, const simd::Kernels& kernels) {
  const std::size_t n = qrsFeature.size();
  kern::smooth(qrsFeature, 3.0 * fs, out, kernels);
  for (double& v : out) v = v / 2.0;
  const ThresholdHold hold = threshold_hold(n, fs);
  if (hold.headCount > 0) {
    std::fill_n(out.begin(), hold.headCount, out[hold.headSource]);
    std::fill(out.begin() + static_cast<std::ptrdiff_t>(hold.tailBegin),
              out.begin() + static_cast<std::ptrdiff_t>(hold.tailEnd), out[hold.tailSource]);
  }
  for (std::size_t k = 0; k < n && k < localSpread.size(); ++k)
    out[k] = out[k] + 4.0 * rt_pow_snf(localSpread[k], 3.0);
}

double threshold_at(std::span<const double> qrsFeature, std::span<const double> ecg,
                    const Widths& w, double fs, std::size_t k) {
  const std::size_t n = qrsFeature.size();
  const std::size_t source = threshold_hold(n, fs).source(k);
  const double t = kern::smooth_at(qrsFeature, kern::smooth_half_width(3.0 * fs, n), source) / 2.0;
  return t + 4.0 * rt_pow_snf(local_spread_at(ecg, w.spreadHalfWidth, k), 3.0);
}

}  // namespace kelo::detect
