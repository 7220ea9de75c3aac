// Synthetic single-lead ECG for tests: beats of a chosen shape placed at
// given sample positions, with optional noise from a fixed seed and
// baseline wander. Amplitudes are in millivolts at the given rate.
#pragma once

#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <vector>

namespace kelo::test {

enum class BeatShape {
  Normal,    // narrow QRS (about 80 ms) with P and T waves
  Wide,      // broad, slurred complex (about 160 ms), larger T
  Inverted,  // the normal complex upside down
  Ventricular,  // an ectopic ventricular complex: a deep S-shaped wave then
                // a tall one (about 140 ms), unlike the normal complex,
                // with a T wave opposite to the main deflection
};

struct Beat {
  int64_t position;  // 0-based sample of the R peak
  BeatShape shape = BeatShape::Normal;
};

struct SyntheticEcgOptions {
  double fs = 200.0;
  double noiseMv = 0.0;      // standard deviation of white noise
  double wanderMv = 0.0;     // amplitude of a 0.3 Hz baseline wander
  uint32_t seed = 12345;
  double amplitude = 1.0;    // R-wave height in mV
};

namespace detail {

inline double gauss(double t, double centre, double width) {
  const double z = (t - centre) / width;
  return std::exp(-0.5 * z * z);
}

// The waveform of one beat at time t seconds from its R peak.
inline double beat_wave(double t, BeatShape shape) {
  switch (shape) {
    case BeatShape::Normal:
    case BeatShape::Inverted: {
      const double v = 0.12 * gauss(t, -0.20, 0.025)    // P
                       - 0.10 * gauss(t, -0.030, 0.008) // Q
                       + 1.00 * gauss(t, 0.0, 0.010)    // R
                       - 0.20 * gauss(t, 0.028, 0.009)  // S
                       + 0.25 * gauss(t, 0.25, 0.045);  // T
      return shape == BeatShape::Inverted ? -v : v;
    }
    case BeatShape::Ventricular:
      return -1.2 * gauss(t, 0.0, 0.02) + 0.9 * gauss(t, 0.06, 0.022) + 0.45 * gauss(t, 0.30, 0.06);
    case BeatShape::Wide:
      return 0.8 * gauss(t, 0.0, 0.035) - 0.35 * gauss(t, 0.09, 0.03) +
             0.4 * gauss(t, 0.32, 0.06);
  }
  return 0.0;
}

}  // namespace detail

inline std::vector<double> synthetic_ecg(const std::vector<Beat>& beats, std::size_t n,
                                         const SyntheticEcgOptions& opt = {}) {
  std::vector<double> x(n, 0.0);
  const auto reach = static_cast<int64_t>(0.5 * opt.fs);  // a beat's waves span +-0.5 s
  for (const Beat& b : beats) {
    for (int64_t k = b.position - reach; k <= b.position + reach; ++k) {
      if (k < 0 || k >= static_cast<int64_t>(n)) continue;
      const double t = static_cast<double>(k - b.position) / opt.fs;
      x[static_cast<std::size_t>(k)] += opt.amplitude * detail::beat_wave(t, b.shape);
    }
  }
  std::mt19937 rng(opt.seed);
  std::normal_distribution<double> noise(0.0, 1.0);
  for (std::size_t k = 0; k < n; ++k) {
    const double t = static_cast<double>(k) / opt.fs;
    if (opt.wanderMv != 0.0) x[k] += opt.wanderMv * std::sin(2.0 * std::numbers::pi * 0.3 * t);
    if (opt.noiseMv != 0.0) x[k] += opt.noiseMv * noise(rng);
  }
  return x;
}

// count beats of one shape, the first at `first`, spaced by `rr` samples.
inline std::vector<Beat> regular_beats(int64_t first, int64_t rr, int count,
                                       BeatShape shape = BeatShape::Normal) {
  std::vector<Beat> beats;
  for (int i = 0; i < count; ++i) beats.push_back({first + i * rr, shape});
  return beats;
}

}  // namespace kelo::test
