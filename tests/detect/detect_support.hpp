// Helpers of the detection tests: the two entry points on plain vectors,
// and matching of detected beats against reference beats.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "keloecgsolver/detect.h"
#include "keloecgsolver/lifecycle.h"
#include "support/emx_builders.hpp"

namespace kelo::test {

struct WavesResult {
  std::vector<int32_t> rPeaks;  // 1-based
  int32_t quality = 0;
  std::vector<int32_t> windowQualities;
};

inline WavesResult run_detect_waves(const std::vector<double>& ecg, int32_t fs,
                                    double fullScale = 10.0) {
  EmxInt32 peaks(2), windows(2);
  WavesResult r;
  detectWaves_initialize();
  detectWaves(column(ecg), fullScale, fs, 10, peaks, &r.quality, windows);
  return {values(peaks), r.quality, values(windows)};
}

struct DetectorResult {
  std::vector<double> rpeaks, feature, threshold, centred;
};

inline DetectorResult run_detector(const std::vector<double>& ecg, double fs) {
  EmxReal x = column(ecg), rpeaks(1), feature(1), threshold(1);
  detectWaves_initialize();
  m_analyze_ecg_offline_r(x, fs, rpeaks, feature, threshold);
  return {values(rpeaks), values(feature), values(threshold), values(x)};
}

// Reference beats (0-based) matched one to one with detections (1-based)
// within `tolerance` samples.
inline std::size_t matched(const std::vector<int64_t>& reference,
                           const std::vector<int32_t>& detected, int64_t tolerance) {
  std::vector<bool> used(detected.size(), false);
  std::size_t count = 0;
  for (int64_t ref : reference) {
    for (std::size_t i = 0; i < detected.size(); ++i) {
      if (!used[i] && std::llabs((detected[i] - 1) - ref) <= tolerance) {
        used[i] = true;
        ++count;
        break;
      }
    }
  }
  return count;
}

}  // namespace kelo::test
