// Resampling to the library's rate of 200 Hz (libsamplerate, best-quality
// sinc converter) and the mapping of sample numbers between the two rates.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace keloecg {

inline constexpr double kAnalysisRate = 200.0;

// x sampled at fs_in, resampled to fs_out. Output sample k lies at time
// k / fs_out; there are ceil(n * fs_out / fs_in) of them. With equal rates
// the samples are returned unchanged.
std::vector<double> resample(std::span<const double> x, double fs_in, double fs_out);

// Sample numbering in both rates (0-based): to_original(k) is the sample of
// the original recording nearest to analysis sample k, and to_analysis the
// reverse; halves round up.
struct RateMap {
  double original_fs = kAnalysisRate;

  std::int64_t to_original(std::int64_t analysis_sample) const;
  std::int64_t to_analysis(std::int64_t original_sample) const;
};

}  // namespace keloecg
