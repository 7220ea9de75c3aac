// NativeKELOecgSolver.detectBeats: every beat of an excerpt with its label,
// sealed like the other results. The argument checks and status codes are
// those of the analysis runs, without their upper length limit.
#include <jni.h>

#include <array>
#include <cstdint>
#include <vector>

#include "jni/analysis.hpp"
#include "jni/sealing_frame.hpp"
#include "keloecgsolver/beats.h"
#include "keloecgsolver/emx_array.h"

namespace kelo::jni {
namespace {

constexpr jint kRate = 200;
constexpr jint kMinLength = 3000;

constexpr std::array<FieldSpec, 3> kBeatsFields = {{
    {"error", "I"},
    {"rpeaks", "[I"},
    {"labels", "[I"},
}};

constexpr ResultClass kBeatsResult = {
    "com/kelo/kelosolver/KELOecgBeats",
    "*** ERROR: Could not find KELOecgBeatsClass.",
    "Generating KELOecgBeats Object...",
    "Getting KELOecgBeats field IDs...",
    kBeatsFields,
};

struct BeatsOutcome {
  jint status = kOk;
  std::vector<jint> positions;  // 0-based in the whole recording
  std::vector<jint> labels;
};

// Owns the three records of one kelo_detectBeats call.
struct BeatRecords {
  emxArray_real_T* ecg;
  emxArray_int32_T* positions = emxCreate_int32_T(0, 1);
  emxArray_int32_T* labels = emxCreate_int32_T(0, 1);
  BeatRecords(double* samples, int32_t n) : ecg(emxCreateWrapper_real_T(samples, n, 1)) {}
  ~BeatRecords() {
    emxDestroyArray_int32_T(labels);
    emxDestroyArray_int32_T(positions);
    emxDestroyArray_real_T(ecg);
  }
  BeatRecords(const BeatRecords&) = delete;
  BeatRecords& operator=(const BeatRecords&) = delete;
};

BeatsOutcome detect_beats(JNIEnv* env, jdoubleArray ecg, jint fs, jint startSecond) {
  BeatsOutcome out;
  if (ecg == nullptr) {
    out.status = kNullRecording;
    return out;
  }
  JavaSamples samples(env, ecg);
  const jint total = samples.length();
  if (!(startSecond >= 0 && startSecond < total / kRate - 5)) {
    out.status = kBadStartOrScale;
    return out;
  }
  if (fs != kRate || total < kMinLength || samples.data() == nullptr) {
    out.status = kBadLengthOrRate;
    return out;
  }
  const int64_t start = static_cast<int64_t>(startSecond) * kRate;
  std::vector<double> excerpt(samples.data() + start, samples.data() + total);
  BeatRecords r(excerpt.data(), static_cast<int32_t>(excerpt.size()));
  if (kelo_detectBeats(r.ecg, kRate, r.positions, r.labels) != KELO_BEATS_OK) {
    out.status = kBadLengthOrRate;  // out of memory
    return out;
  }
  const int32_t n = r.positions->size[0];
  for (int32_t i = 0; i < n; ++i) {
    out.positions.push_back(static_cast<jint>(r.positions->data[i] + start - 1));
    out.labels.push_back(r.labels->data[i]);
  }
  if (n < 2) out.status = kNoUsableBeats;
  return out;
}

}  // namespace
}  // namespace kelo::jni

using namespace kelo::jni;

extern "C" JNIEXPORT jobject JNICALL Java_com_kelo_kelosolver_NativeKELOecgSolver_detectBeats(
    JNIEnv* env, jobject /*self*/, jdoubleArray ecg, jint fs, jint startSecond) {
  const Progress progress;
  SealingFrame frame(env, progress);
  if (!frame.open(kBeatsResult)) return nullptr;
  const BeatsOutcome out = detect_beats(env, ecg, fs, startSecond);
  frame.set_int(0, out.status);
  frame.set_int_array(1, out.positions);
  frame.set_int_array(2, out.labels);
  return frame.seal();
}
