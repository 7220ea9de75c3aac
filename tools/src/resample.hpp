// Resampling to the library's rate of 200 Hz and the mapping of sample
// numbers between the two rates.
//
// The converter is a band-limited interpolator: a windowed-sinc low-pass
// filter (Kaiser window) applied in polyphase form, each output sample a
// fixed weighted sum of the input samples around its instant. Rates in a
// ratio of small integers (360 -> 200 is 9:5) use exact phases; any other
// ratio uses the nearest of 4096 phases per input sample. Output sample k
// depends only on k and on the input samples within reach() of its instant,
// so a stretch of the output computed from a cut of the input (holding that
// reach on both sides) is bit for bit the same stretch of the whole output.
#pragma once

#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace keloecg {

inline constexpr double kAnalysisRate = 200.0;

class Resampler {
 public:
  // Rates in Hz, both finite and positive.
  Resampler(double fs_in, double fs_out);

  // Output samples for `input_length` input samples: ceil(n * fs_out / fs_in).
  std::int64_t output_length(std::int64_t input_length) const;

  // The input samples [first, last) that output samples [out_first,
  // out_last) read (before clamping to the recording).
  std::pair<std::int64_t, std::int64_t> input_span(std::int64_t out_first, std::int64_t out_last) const;

  // Output samples [out_first, out_first + out.size()) of a recording of
  // `length` input samples, of which `part` holds the samples starting at
  // `part_start`. Before the first and after the last sample of the
  // recording the end values are held. Throws std::logic_error when `part`
  // lacks a sample that is needed.
  void run(std::span<const double> part, std::int64_t part_start, std::int64_t length, std::int64_t out_first,
           std::span<double> out) const;

  bool identity() const { return identity_; }
  int phases() const { return phases_; }
  int taps() const { return taps_; }

 private:
  // Input sample m and phase r of output sample k: its instant lies r /
  // phases() of a sample after input sample m.
  std::pair<std::int64_t, int> position(std::int64_t k) const;

  double ratio_;            // fs_in / fs_out
  bool identity_ = false;
  bool rational_ = false;   // ratio_ == down_ / up_ exactly
  std::int64_t up_ = 1, down_ = 1;
  int phases_ = 1;
  int taps_ = 1;            // coefficients per phase
  int before_ = 0;          // input samples before m that the taps reach (m - before_ is the first)
  std::vector<double> coefficients_;  // phases_ x taps_
};

// x sampled at fs_in, resampled to fs_out (the whole recording). With equal
// rates the samples are returned unchanged.
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
