// The rules of an analysis run that the Java bridge and keloecg share, so
// that a result reads the same whichever way it was obtained: the analysis
// rate, the sample limits of the two runs, the accepted heart-rate band,
// the number of quality windows, how the excerpt grade overrides a status,
// the clipping and irregularity fractions of the grades, and owners of the
// array records. Header-only: keloecg uses it while linking nothing but the
// public shared library.
#pragma once

#include <cstdint>
#include <memory>

#include "keloecgsolver/emx_array.h"
#include "keloecgsolver/grades.h"

namespace kelo::rules {

// The only sampling rate the runs analyse, in Hz.
inline constexpr int32_t kAnalysisRate = 200;

// Recording lengths in samples at 200 Hz: R-peak detection needs 15 s, HRV
// 3 minutes; a run takes at most 10 minutes.
inline constexpr int32_t kQrsMinSamples = 3000;
inline constexpr int32_t kHrvMinSamples = 36000;
inline constexpr int32_t kMaxSamples = 120000;

// Heart rates outside this band (beats per minute, both ends accepted)
// count as no usable beats.
inline constexpr double kLowestHeartRate = 30.0;
inline constexpr double kHighestHeartRate = 220.0;
constexpr bool heart_rate_accepted(double bpm) {
  return bpm >= kLowestHeartRate && bpm <= kHighestHeartRate;
}

// Clipped: a sample whose magnitude exceeds this fraction of full scale.
inline constexpr double kClipFraction = 0.97;
// Irregular: the standard deviation of the RR intervals exceeds this
// fraction of their mean.
inline constexpr double kIrregularFraction = 0.25;

// Windows shorter than this many seconds are not graded one by one.
inline constexpr int64_t kShortestWindowSeconds = 5;

// Quality windows of an excerpt of `seconds` whole seconds: one per full
// window (a shorter tail is not graded) when the excerpt holds at least one
// window of 5 s or more, else a single window over the whole excerpt.
constexpr bool one_window_over_all(int64_t seconds, int64_t windowSeconds) {
  return !(seconds >= windowSeconds && windowSeconds >= kShortestWindowSeconds);
}
constexpr int64_t window_count(int64_t seconds, int64_t windowSeconds) {
  return one_window_over_all(seconds, windowSeconds) ? 1 : seconds / windowSeconds;
}

// A clipped or irregular excerpt is reported as such, overriding success, a
// missing spectrum and a failed heart rate.
constexpr int32_t status_after_grade(int32_t status, int32_t excerptGrade) {
  if (excerptGrade == KELO_EXCERPT_CLIPPED) return KELO_STATUS_CLIPPED;
  if (excerptGrade == KELO_EXCERPT_IRREGULAR) return KELO_STATUS_IRREGULAR;
  return status;
}

// Owners of array records made by the library.
struct RealRecordDeleter {
  void operator()(emxArray_real_T* r) const { emxDestroyArray_real_T(r); }
};
struct Int32RecordDeleter {
  void operator()(emxArray_int32_T* r) const { emxDestroyArray_int32_T(r); }
};
using RealRecord = std::unique_ptr<emxArray_real_T, RealRecordDeleter>;
using Int32Record = std::unique_ptr<emxArray_int32_T, Int32RecordDeleter>;

}  // namespace kelo::rules
