// Beat series for the HRV tests.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace kelo::test {

// Beat positions from a start position and interval lengths in samples.
inline std::vector<int32_t> beats_from_intervals(const std::vector<int32_t>& intervals, int32_t start = 1000) {
  std::vector<int32_t> beats{start};
  for (int32_t d : intervals) beats.push_back(beats.back() + d);
  return beats;
}

// Beats whose interval length follows 0.8 s + depth * sin(2 pi f t) for
// `seconds` seconds, positions rounded to samples of rate fs.
inline std::vector<int32_t> modulated_beats(double f, double depth, double seconds, int32_t fs) {
  std::vector<int32_t> beats;
  for (double t = 0.0; t < seconds; t += 0.8 + depth * std::sin(2.0 * M_PI * f * t))
    beats.push_back(static_cast<int32_t>(std::lround(t * fs)));
  return beats;
}

// Beat sample numbers of a "sample symbol" annotation file of tests/data.
inline std::vector<int32_t> read_beats(const std::string& relative) {
  const char* dir = std::getenv("KELO_TEST_DATA");
  std::ifstream in(std::string(dir != nullptr ? dir : KELO_TEST_DATA_DIR) + "/" + relative);
  std::vector<int32_t> beats;
  int32_t sample;
  std::string symbol;
  while (in >> sample >> symbol) beats.push_back(sample);
  return beats;
}

}  // namespace kelo::test
