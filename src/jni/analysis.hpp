// The native half of a bridge call: argument checks, the excerpt copy, beat
// detection, heart rate and (for HRV runs) the variability statistics,
// producing the status and the buffers that go into the result object.
#pragma once

#include <jni.h>

#include <array>
#include <vector>

#include "jni/sealing_frame.hpp"
#include "runtime/run_rules.hpp"

namespace kelo::jni {

struct RunLimits {
  jint minLength;        // accepted recording length, in samples
  jint maxLength;
  jint capacityExtra;    // beat arrays: (length / fs) * 3 + capacityExtra
  jint errorPathLength;  // the length that sizes the beat arrays of a failed run
  bool hrv;              // compute the variability statistics
};

inline constexpr RunLimits kQrsLimits{rules::kQrsMinSamples, rules::kMaxSamples, 55, 3000, false};
inline constexpr RunLimits kHrvLimits{rules::kHrvMinSamples, rules::kMaxSamples, 200, 36000, true};

// The result's "error" field is one of the KELO_STATUS_* codes of
// keloecgsolver/grades.h.
struct RunOutcome {
  jint status = KELO_STATUS_SUCCESS;
  jdouble heartRate = 0.0;
  std::vector<jint> beats;      // 0-based R peaks in the whole recording, then -1
  std::vector<jint> qualities;  // window grades, or -1
  std::array<double, 7> timeResults{};
  std::array<double, 6> freqResults{};
};

struct RunArguments {
  jdoubleArray ecg;
  jint fs;
  jint startSecond;
  jdouble fullScale;
  jint windowSeconds;
};

RunOutcome analyse(JNIEnv* env, const Progress& progress, const RunArguments& args,
                   const RunLimits& limits);

}  // namespace kelo::jni
