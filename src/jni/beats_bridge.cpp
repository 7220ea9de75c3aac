// NativeKELOecgSolver.detectBeats: every beat of an excerpt with its label,
// sealed like the other results. The argument checks and status codes are
// those of the analysis runs, without their upper length limit.
#include <jni.h>

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "jni/analysis.hpp"
#include "jni/sealing_frame.hpp"
#include "keloecgsolver/beats.h"
#include "keloecgsolver/emx_array.h"
#include "runtime/boundary.hpp"

namespace kelo::jni {
namespace {

constexpr jint kRate = rules::kAnalysisRate;
constexpr jint kMinLength = rules::kQrsMinSamples;

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

// Owns the three records of one kelo_detectBeats call. Inside the bridge
// the creators throw when memory runs out (see runtime/boundary.hpp), so
// each record is owned the moment it exists.
struct BeatRecords {
  using Real = std::unique_ptr<emxArray_real_T, void (*)(emxArray_real_T*)>;
  using Int32 = std::unique_ptr<emxArray_int32_T, void (*)(emxArray_int32_T*)>;
  Real ecg;
  Int32 positions{emxCreate_int32_T(0, 1), emxDestroyArray_int32_T};
  Int32 labels{emxCreate_int32_T(0, 1), emxDestroyArray_int32_T};
  BeatRecords(double* samples, int32_t n) : ecg(emxCreateWrapper_real_T(samples, n, 1), emxDestroyArray_real_T) {}
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
  if (r.ecg == nullptr || r.positions == nullptr || r.labels == nullptr ||
      kelo_detectBeats(r.ecg.get(), kRate, r.positions.get(), r.labels.get()) != KELO_BEATS_OK) {
    out.status = kOutOfMemory;
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
  // As the analysis runs (bridge.cpp): no C++ exception reaches the JVM.
  return kelo::guarded(
      [&]() -> jobject {
        if (!frame.open(kBeatsResult)) return nullptr;
        BeatsOutcome out;
        try {
          out = detect_beats(env, ecg, fs, startSecond);
        } catch (...) {  // out of memory
          out = BeatsOutcome{kOutOfMemory, {}, {}};
        }
        frame.set_int(0, out.status);
        frame.set_int_array(1, out.positions);
        frame.set_int_array(2, out.labels);
        return frame.seal();
      },
      []() -> jobject {
        error_line("*** ERROR: out of memory");
        return nullptr;
      });
}
