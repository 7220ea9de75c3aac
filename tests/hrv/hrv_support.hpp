// Beat series for the HRV tests.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "keloecgsolver/hrv.h"

namespace kelo::test {

using Beats = std::vector<int32_t>;

// Beat positions from a start position and interval lengths in samples.
inline Beats beats_from_intervals(const Beats& intervals, int32_t start = 1000) {
  Beats beats{start};
  for (int32_t d : intervals) beats.push_back(beats.back() + d);
  return beats;
}

// Beats whose interval length follows 0.8 s + depth * sin(2 pi f t) for
// `seconds` seconds, positions rounded to samples of rate fs.
inline Beats modulated_beats(double f, double depth, double seconds, int32_t fs) {
  Beats beats;
  for (double t = 0.0; t < seconds; t += 0.8 + depth * std::sin(2.0 * M_PI * f * t))
    beats.push_back(static_cast<int32_t>(std::lround(t * fs)));
  return beats;
}

// Beat sample numbers of a "sample symbol" annotation file of tests/data.
inline Beats read_beats(const std::string& relative) {
  const char* dir = std::getenv("KELO_TEST_DATA");
  std::ifstream in(std::string(dir != nullptr ? dir : KELO_TEST_DATA_DIR) + "/" + relative);
  Beats beats;
  int32_t sample;
  std::string symbol;
  while (in >> sample >> symbol) beats.push_back(sample);
  return beats;
}

// The interval series of calcRR.
struct Series {
  std::vector<char> ann;
  std::vector<double> t, rr;
  int32_t n() const { return static_cast<int32_t>(t.size()); }
};

inline Series rr_series(const Beats& beats, int32_t fs = 200) {
  const auto n = beats.size() - 1;
  Series s{std::vector<char>(n), std::vector<double>(n), std::vector<double>(n)};
  calcRR(beats.data(), s.n(), fs, s.ann.data(), s.t.data(), s.rr.data());
  return s;
}

}  // namespace kelo::test
