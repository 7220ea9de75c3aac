#include "resample.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <string>

namespace keloecg {

namespace {

// The low-pass filter: cut-off (half amplitude) at 45 % of the lower of the
// two rates (90 Hz for 200 Hz output), 16 zero crossings of the sinc on
// each side, Kaiser window with beta 7.857 (about 80 dB stop-band
// attenuation). The transition band is about 28 Hz wide around the cut-off
// (76 to 104 Hz at 200 Hz output): the QRS complex, whose energy lies below
// 40 Hz, passes unchanged, and what folds back into the output band from
// above 100 Hz is attenuated by 80 dB.
constexpr double kCutoff = 0.45;
constexpr double kZeroCrossings = 16.0;
constexpr double kBeta = 7.857;
// Phases per input sample when the two rates are not in a ratio of small
// integers; the instant of an output sample is then rounded to 1/4096 of an
// input sample.
constexpr std::int64_t kMaxPhases = 4096;
// Coefficients per phase are padded to a multiple of this (zeros), the
// number of partial sums of the dot product.
constexpr int kLanes = 8;

// Modified Bessel function of the first kind, order 0, by its power series.
double bessel_i0(double x) {
  double sum = 1.0, term = 1.0;
  const double q = x * x / 4.0;
  for (int k = 1; k < 200 && term > sum * 1e-17; ++k) {
    term *= q / (static_cast<double>(k) * static_cast<double>(k));
    sum += term;
  }
  return sum;
}

// A weighted sum in a fixed order: kLanes partial sums over interleaved
// taps, added pairwise at the end. n is a multiple of kLanes.
double dot(const double* h, const double* x, int n) {
  double acc[kLanes] = {};
  for (int t = 0; t < n; t += kLanes) {
    for (int l = 0; l < kLanes; ++l) acc[l] += h[t + l] * x[t + l];
  }
  return ((acc[0] + acc[1]) + (acc[2] + acc[3])) + ((acc[4] + acc[5]) + (acc[6] + acc[7]));
}

}  // namespace

Resampler::Resampler(double fs_in, double fs_out) : ratio_(fs_in / fs_out) {
  if (!(fs_in > 0.0 && fs_out > 0.0 && std::isfinite(fs_in) && std::isfinite(fs_out))) {
    throw std::invalid_argument("resampling needs two positive rates");
  }
  identity_ = fs_in == fs_out;
  if (identity_) return;

  // fs_in / fs_out = down / up with up <= kMaxPhases, if the rates allow.
  for (std::int64_t up = 1; up <= kMaxPhases; ++up) {
    const double down = std::round(ratio_ * static_cast<double>(up));
    if (down >= 1.0 && std::abs(down / static_cast<double>(up) - ratio_) <= 1e-12 * ratio_) {
      rational_ = true;
      up_ = up;
      down_ = static_cast<std::int64_t>(down);
      break;
    }
  }
  phases_ = static_cast<int>(rational_ ? up_ : kMaxPhases);

  // The filter in units of input samples.
  const double cutoff = kCutoff * std::min(fs_in, fs_out) / fs_in;  // cycles per input sample
  const double half_width = kZeroCrossings / (2.0 * cutoff);
  before_ = static_cast<int>(std::ceil(half_width));
  const int used = 2 * before_ + 1;
  taps_ = (used + kLanes - 1) / kLanes * kLanes;
  coefficients_.assign(static_cast<std::size_t>(phases_) * static_cast<std::size_t>(taps_), 0.0);
  const double i0_beta = bessel_i0(kBeta);
  for (int r = 0; r < phases_; ++r) {
    double* h = coefficients_.data() + static_cast<std::size_t>(r) * static_cast<std::size_t>(taps_);
    const double offset = static_cast<double>(r) / static_cast<double>(phases_);
    double sum = 0.0;
    for (int t = 0; t < used; ++t) {
      // Distance from the output instant to input sample m - before_ + t.
      const double tau = offset + static_cast<double>(before_ - t);
      const double z = tau / half_width;
      if (std::abs(z) >= 1.0) continue;
      const double arg = 2.0 * cutoff * tau;
      const double sinc = arg == 0.0 ? 1.0 : std::sin(std::numbers::pi * arg) / (std::numbers::pi * arg);
      h[t] = 2.0 * cutoff * sinc * bessel_i0(kBeta * std::sqrt(1.0 - z * z)) / i0_beta;
      sum += h[t];
    }
    // Each phase passes a constant unchanged: no ripple of the baseline
    // from one output sample to the next.
    for (int t = 0; t < used; ++t) h[t] /= sum;
  }
}

std::int64_t Resampler::output_length(std::int64_t input_length) const {
  if (identity_ || input_length <= 0) return std::max<std::int64_t>(input_length, 0);
  if (rational_) return (input_length * up_ + down_ - 1) / down_;
  return static_cast<std::int64_t>(std::ceil(static_cast<double>(input_length) / ratio_ - 1e-9));
}

std::pair<std::int64_t, int> Resampler::position(std::int64_t k) const {
  if (rational_) {
    const std::int64_t num = k * down_;
    return {num / up_, static_cast<int>(num % up_)};
  }
  const double u = static_cast<double>(k) * ratio_;
  auto m = static_cast<std::int64_t>(std::floor(u));
  auto r = static_cast<std::int64_t>(std::llround((u - static_cast<double>(m)) * static_cast<double>(kMaxPhases)));
  if (r == kMaxPhases) {
    ++m;
    r = 0;
  }
  return {m, static_cast<int>(r)};
}

std::pair<std::int64_t, std::int64_t> Resampler::input_span(std::int64_t out_first, std::int64_t out_last) const {
  if (out_last <= out_first) return {0, 0};
  if (identity_) return {out_first, out_last};
  const auto first = position(out_first).first - before_;
  const auto last = position(out_last - 1).first - before_ + taps_;
  return {first, last};
}

void Resampler::run(std::span<const double> part, std::int64_t part_start, std::int64_t length,
                    std::int64_t out_first, std::span<double> out) const {
  const auto part_end = part_start + static_cast<std::int64_t>(part.size());
  const auto needed = input_span(out_first, out_first + static_cast<std::int64_t>(out.size()));
  const auto need_first = std::clamp<std::int64_t>(needed.first, 0, length);
  const auto need_last = std::clamp<std::int64_t>(needed.second, 0, length);
  if (!out.empty() && (length <= 0 || (need_first < need_last && (need_first < part_start || need_last > part_end)))) {
    throw std::logic_error("resampling: input samples " + std::to_string(need_first) + " to " +
                           std::to_string(need_last) + " are needed but " + std::to_string(part_start) + " to " +
                           std::to_string(part_end) + " were read");
  }
  if (identity_) {
    for (std::size_t i = 0; i < out.size(); ++i) out[i] = part[static_cast<std::size_t>(out_first + static_cast<std::int64_t>(i) - part_start)];
    return;
  }
  // Held end values, for the samples before the first and after the last.
  const double first_value = part_start == 0 && !part.empty() ? part.front() : 0.0;
  const double last_value = part_end == length && !part.empty() ? part.back() : 0.0;
  std::vector<double> edge(static_cast<std::size_t>(taps_));
  for (std::size_t i = 0; i < out.size(); ++i) {
    const auto [m, r] = position(out_first + static_cast<std::int64_t>(i));
    const double* h = coefficients_.data() + static_cast<std::size_t>(r) * static_cast<std::size_t>(taps_);
    const std::int64_t j0 = m - before_;
    const double* x;
    if (j0 >= 0 && j0 + taps_ <= length) {
      x = part.data() + (j0 - part_start);
    } else {
      for (int t = 0; t < taps_; ++t) {
        const std::int64_t j = j0 + t;
        edge[static_cast<std::size_t>(t)] = j < 0 ? first_value : j >= length ? last_value : part[static_cast<std::size_t>(j - part_start)];
      }
      x = edge.data();
    }
    out[i] = dot(h, x, taps_);
  }
}

std::vector<double> resample(std::span<const double> x, double fs_in, double fs_out) {
  if (fs_in == fs_out || x.empty()) return {x.begin(), x.end()};
  const Resampler r(fs_in, fs_out);
  const auto n = static_cast<std::int64_t>(x.size());
  std::vector<double> out(static_cast<std::size_t>(r.output_length(n)));
  r.run(x, 0, n, 0, out);
  return out;
}

std::int64_t RateMap::to_original(std::int64_t analysis_sample) const {
  return static_cast<std::int64_t>(std::floor(static_cast<double>(analysis_sample) * original_fs / kAnalysisRate + 0.5));
}

std::int64_t RateMap::to_analysis(std::int64_t original_sample) const {
  return static_cast<std::int64_t>(std::floor(static_cast<double>(original_sample) * kAnalysisRate / original_fs + 0.5));
}

}  // namespace keloecg
