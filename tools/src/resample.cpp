#include "resample.hpp"

#include <samplerate.h>

#include <cmath>
#include <stdexcept>
#include <string>

namespace keloecg {

std::vector<double> resample(std::span<const double> x, double fs_in, double fs_out) {
  if (fs_in == fs_out || x.empty()) return {x.begin(), x.end()};
  const double ratio = fs_out / fs_in;
  const auto wanted = static_cast<std::size_t>(std::ceil(static_cast<double>(x.size()) * ratio - 1e-9));

  // libsamplerate works in single precision; an ECG needs far less.
  std::vector<float> in(x.begin(), x.end());
  // Room for what the converter may produce beyond `wanted`.
  std::vector<float> out(wanted + 64);
  SRC_DATA data{};
  data.data_in = in.data();
  data.input_frames = static_cast<long>(in.size());
  data.data_out = out.data();
  data.output_frames = static_cast<long>(out.size());
  data.src_ratio = ratio;
  data.end_of_input = 1;
  if (const int err = src_simple(&data, SRC_SINC_BEST_QUALITY, 1); err != 0) {
    throw std::runtime_error(std::string("resampling failed: ") + src_strerror(err));
  }
  out.resize(static_cast<std::size_t>(data.output_frames_gen));
  // The converter may stop a sample or so short of the last output instant;
  // hold the last value there so that the length is exact.
  const float last = out.empty() ? in.back() : out.back();
  out.resize(wanted, last);
  return {out.begin(), out.end()};
}

std::int64_t RateMap::to_original(std::int64_t analysis_sample) const {
  return static_cast<std::int64_t>(std::floor(static_cast<double>(analysis_sample) * original_fs / kAnalysisRate + 0.5));
}

std::int64_t RateMap::to_analysis(std::int64_t original_sample) const {
  return static_cast<std::int64_t>(std::floor(static_cast<double>(original_sample) * kAnalysisRate / original_fs + 0.5));
}

}  // namespace keloecg
