#include "jni/analysis.hpp"

#include <algorithm>
#include <cstdint>

#include "keloecgsolver/detect.h"
#include "keloecgsolver/emx_array.h"
#include "keloecgsolver/heart_rate.h"
#include "keloecgsolver/hrv.h"
#include "keloecgsolver/lifecycle.h"

namespace kelo::jni {
namespace {

constexpr jint kRate = rules::kAnalysisRate;
using rules::Int32Record;
using rules::RealRecord;

// Quality windows of an excerpt of excerptLength samples at 200 Hz.
jint window_count(int64_t excerptLength, jint windowSeconds) {
  return static_cast<jint>(rules::window_count(excerptLength / kRate, windowSeconds));
}

// Beat-array length of a failed run. A rate of 0 or below would divide by
// zero or give a negative length; those runs get the lengths of 200 Hz.
jint error_path_capacity(const RunLimits& limits, jint fs) {
  const jint rate = fs > 0 ? fs : kRate;
  return (limits.errorPathLength / rate) * 3 + limits.capacityExtra;
}

void fill_failed(RunOutcome& out, const RunLimits& limits, jint fs, jint windowCount) {
  out.beats.assign(static_cast<std::size_t>(error_path_capacity(limits, fs)), -1);
  out.qualities.assign(static_cast<std::size_t>(windowCount), -1);
}

struct Detection {
  Int32Record peaks;     // 1-based positions in the excerpt
  Int32Record windows;   // window grades
  int32_t grade = KELO_EXCERPT_USABLE;
  int32_t peakCount = 0;
};

Detection detect(const jdouble* samples, int64_t startSample, int32_t excerptLength,
                 jdouble fullScale, jint windowSeconds, jint windowCount) {
  std::vector<double> excerpt(samples + startSample, samples + startSample + excerptLength);
  RealRecord ecg(emxCreateWrapper_real_T(excerpt.data(), excerptLength, 1));
  Detection d;
  d.peaks.reset(emxCreate_int32_T(excerptLength, 1));
  detectWaves_initialize();
  d.windows.reset(emxCreate_int32_T(windowCount, 1));
  detectWaves(ecg.get(), fullScale, kRate, windowSeconds, d.peaks.get(), &d.grade, d.windows.get());
  d.peakCount = d.peaks->size[0];
  detectWaves_terminate();
  return d;
}

}  // namespace

RunOutcome analyse(JNIEnv* env, const Progress& progress, const RunArguments& args,
                   const RunLimits& limits) {
  RunOutcome out;
  if (args.ecg == nullptr) {
    out.status = KELO_STATUS_NO_RECORDING;
    fill_failed(out, limits, args.fs, 1);
    return out;
  }

  progress.say_int("%i \n", 0);
  JavaSamples samples(env, args.ecg);
  const jint totalLength = samples.length();
  progress.say_int("%i \n", totalLength);

  // Positions are worked out in 64 bits: a start far outside the recording
  // must not overflow. A negative start is refused below; its windows are
  // counted over the whole recording.
  const int64_t startSample = static_cast<int64_t>(args.startSecond) * kRate;
  const int64_t excerptLength = totalLength - std::max<int64_t>(startSample, 0);
  const jint windowCount = window_count(excerptLength, args.windowSeconds);

  if (!(args.startSecond >= 0 && args.startSecond < totalLength / kRate - 5 && args.fullScale > 0.0)) {
    out.status = KELO_STATUS_BAD_START_OR_SCALE;
  } else if (totalLength < limits.minLength || totalLength > limits.maxLength || args.fs != kRate) {
    out.status = KELO_STATUS_BAD_LENGTH_OR_RATE;
  }
  if (out.status != KELO_STATUS_SUCCESS || samples.data() == nullptr) {
    // Left at success, the JVM could not give the samples.
    if (out.status == KELO_STATUS_SUCCESS) out.status = KELO_STATUS_OUT_OF_MEMORY;
    fill_failed(out, limits, args.fs, windowCount);
    return out;
  }

  const jint beatCapacity = (totalLength / args.fs) * 3 + limits.capacityExtra;
  Detection d = detect(samples.data(), startSample, static_cast<int32_t>(excerptLength),
                       args.fullScale, args.windowSeconds, windowCount);

  if (d.peakCount > 1) {
    calcHRvar_initialize();
    out.heartRate = calcHRvar(d.peaks.get(), d.peakCount, kRate);
    calcHRvar_terminate();
    if (rules::heart_rate_accepted(out.heartRate)) {
      if (limits.hrv)
        calcHrv(d.peaks->data, d.peakCount - 1, args.fs, out.timeResults.data(),
                out.freqResults.data(), &out.status);
      out.status = rules::status_after_grade(out.status, d.grade);
    } else {
      out.status = KELO_STATUS_NO_USABLE_BEATS;
      out.heartRate = 0.0;
    }
  } else {
    out.status = KELO_STATUS_NO_USABLE_BEATS;
  }

  if (out.status == KELO_STATUS_NO_USABLE_BEATS) {
    out.status = rules::status_after_grade(out.status, d.grade);
    if (out.status == KELO_STATUS_NO_USABLE_BEATS) {
      fill_failed(out, limits, args.fs, windowCount);
      return out;
    }
  }

  // R peaks as 0-based positions of the whole recording; a run with more
  // peaks than the array holds keeps the first beatCapacity of them.
  out.beats.assign(static_cast<std::size_t>(beatCapacity), -1);
  const int32_t kept = std::min(d.peakCount, beatCapacity);
  for (int32_t k = 0; k < kept; ++k)
    out.beats[k] = static_cast<jint>(d.peaks->data[k] + startSample - 1);
  out.qualities.assign(static_cast<std::size_t>(windowCount), -1);
  const int32_t graded = std::min(windowCount, d.windows->size[0]);
  for (int32_t k = 0; k < graded; ++k) out.qualities[k] = d.windows->data[k];
  return out;
}

RunOutcome out_of_memory(const RunArguments& args, const RunLimits& limits) {
  RunOutcome out;
  out.status = kOutOfMemory;
  fill_failed(out, limits, args.fs, 1);
  return out;
}

}  // namespace kelo::jni
