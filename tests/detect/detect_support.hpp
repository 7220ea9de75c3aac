// Helpers of the detection tests: the two entry points on plain vectors,
// and matching of detected beats against reference beats.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
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

}  // namespace kelo::test
