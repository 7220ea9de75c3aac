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

// Status codes of the result's "error" field: the KELO_STATUS_* codes of
// keloecgsolver/grades.h.
enum Status : jint {
  kOk = KELO_STATUS_SUCCESS,
  kNullRecording = KELO_STATUS_NO_RECORDING,
  kBadLengthOrRate = KELO_STATUS_BAD_LENGTH_OR_RATE,
  kNoUsableBeats = KELO_STATUS_NO_USABLE_BEATS,
  kNoSpectrum = KELO_STATUS_NO_SPECTRUM,
  kClipped = KELO_STATUS_CLIPPED,
  kIrregular = KELO_STATUS_IRREGULAR,
  kBadStartOrScale = KELO_STATUS_BAD_START_OR_SCALE,
  kOutOfMemory = KELO_STATUS_OUT_OF_MEMORY,  // the analysis ran out of memory (native, or Java for the samples)
};

// The Java samples, pinned or copied by the JVM, released (without copying
// back) when the call ends.
class JavaSamples {
 public:
  JavaSamples(JNIEnv* env, jdoubleArray array) : env_(env), array_(array) {
    elements_ = env_->GetDoubleArrayElements(array_, nullptr);
    if (elements_ == nullptr) clear_exception(env_);  // out of Java memory
    length_ = env_->GetArrayLength(array_);
  }
  ~JavaSamples() {
    if (elements_ != nullptr) env_->ReleaseDoubleArrayElements(array_, elements_, JNI_ABORT);
  }
  JavaSamples(const JavaSamples&) = delete;
  JavaSamples& operator=(const JavaSamples&) = delete;

  const jdouble* data() const { return elements_; }
  jint length() const { return length_; }

 private:
  JNIEnv* env_;
  jdoubleArray array_;
  jdouble* elements_ = nullptr;
  jint length_ = 0;
};

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

// The outcome of a run that ran out of memory: status 8 and the all -1
// arrays of a failed run.
RunOutcome out_of_memory(const RunArguments& args, const RunLimits& limits);

}  // namespace kelo::jni
