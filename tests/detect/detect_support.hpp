// Helpers of the detection tests: the two entry points on plain vectors,
// and matching of detected beats against reference beats.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include "keloecgsolver/detect.h"
#include "keloecgsolver/lifecycle.h"
#include "support/emx_builders.hpp"

namespace kelo::test {

using V = std::vector<double>;
using I = std::vector<int32_t>;
inline constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
inline constexpr double kInf = std::numeric_limits<double>::infinity();

struct WavesResult {
  I rPeaks;  // 1-based
  int32_t quality = 0;
  I windowQualities;
};

inline WavesResult run_detect_waves(const V& ecg, int32_t fs, double fullScale = 10.0) {
  EmxInt32 peaks(2), windows(2);
  int32_t quality = 0;
  detectWaves_initialize();
  detectWaves(column(ecg), fullScale, fs, 10, peaks, &quality, windows);
  return {values(peaks), quality, values(windows)};
}

struct DetectorResult {
  V rpeaks, feature, threshold, centred;
};

inline DetectorResult run_detector(const V& ecg, double fs) {
  EmxReal x = column(ecg), rpeaks(1), feature(1), threshold(1);
  detectWaves_initialize();
  m_analyze_ecg_offline_r(x, fs, rpeaks, feature, threshold);
  return {values(rpeaks), values(feature), values(threshold), values(x)};
}

// Reference beats (0-based) matched one to one with detections (1-based)
// within `tolerance` samples.
inline std::size_t matched(const std::vector<int64_t>& reference, I detected, int64_t tolerance) {
  std::size_t count = 0;
  for (int64_t ref : reference) {
    const auto hit = std::find_if(detected.begin(), detected.end(),
                                  [&](int64_t d) { return std::llabs(d - 1 - ref) <= tolerance; });
    if (hit == detected.end()) continue;
    *hit = INT32_MIN;  // used up
    ++count;
  }
  return count;
}

// Files of the recordings in tests/data/detect; the KELO_TEST_DATA
// environment variable (set by CTest) takes precedence.
inline std::string data_file(const std::string& name) {
  const char* env = std::getenv("KELO_TEST_DATA");
  return (env ? std::string(env) + "/detect" : std::string(KELO_DETECT_DATA_DIR)) + "/" + name;
}

inline V load_samples(const std::string& record) {  // float32 LE
  std::ifstream in(data_file(record + ".f32"), std::ios::binary);
  V x;
  unsigned char b[4];
  while (in.read(reinterpret_cast<char*>(b), 4))
    x.push_back(std::bit_cast<float>(uint32_t{b[0]} | uint32_t{b[1]} << 8 |
                                     uint32_t{b[2]} << 16 | uint32_t{b[3]} << 24));
  return x;
}

template <class T>
inline std::vector<T> first_column(const std::string& name) {
  std::ifstream in(data_file(name));
  std::vector<T> v;
  for (std::string line; std::getline(in, line);)
    if (!line.empty()) v.push_back(static_cast<T>(std::stoll(line)));
  return v;
}

}  // namespace kelo::test
