// Native methods of com.kelo.kelosolver.NativeKELOecgSolver.
//
// Each analysis call builds its result object and an encrypting AES cipher
// first (so that a Java set-up failure returns null before any native
// memory is taken), runs the analysis, fills the result and returns it
// sealed in a javax.crypto.SealedObject. Everything native is released
// before returning; nothing is kept between calls, so calls on several
// threads are independent.
//
// No C++ exception reaches the Java virtual machine (it would end it).
// When the analysis runs out of memory the result carries status 8; when
// even that result cannot be built, or the set-up itself runs out, one line
// is printed and the method returns null, as for other set-up failures.
#include <jni.h>

#include <array>
#include <cstring>

#include "jni/analysis.hpp"
#include "jni/sealing_frame.hpp"
#include "keloecgsolver/version.h"
#include "runtime/boundary.hpp"

namespace kelo::jni {
namespace {

// Field order of the QRS result; the index constants below follow it.
constexpr std::array<FieldSpec, 6> kQrsFields = {{
    {"error", "I"},
    {"hr", "D"},
    {"rpeaks", "[I"},
    {"qrs_onsets", "[I"},
    {"qrs_offsets", "[I"},
    {"qualities", "[I"},
}};

constexpr std::array<FieldSpec, 19> kHrvFields = {{
    {"error", "I"},       {"hr", "D"},        {"nn_rr", "D"},     {"avnn", "D"},
    {"sdnn", "D"},        {"sdann", "D"},     {"sdnnidx", "D"},   {"rmssd", "D"},
    {"pnn50", "D"},       {"tot_pwr", "D"},   {"ulf_pwr", "D"},   {"vlf_pwr", "D"},
    {"lf_pwr", "D"},      {"hf_pwr", "D"},    {"lf_hf", "D"},     {"rpeaks", "[I"},
    {"ppeaks", "[I"},     {"tpeaks", "[I"},   {"qualities", "[I"},
}};

constexpr ResultClass kQrsResult = {
    "com/kelo/kelosolver/KELOecgQrsResults",
    "*** ERROR: Could not find KELOecgQrsResultsClass.",
    "Generating KELOecgQrsResults Object...",
    "Getting KELOecgQrsResults field IDs...",
    kQrsFields,
};

constexpr ResultClass kHrvResult = {
    "com/kelo/kelosolver/KELOecgResults",
    "*** ERROR: Could not find KELOecgResultsClass.",
    "Generating KELOecgResults Object...",
    "Getting KELOecgResults field IDs...",
    kHrvFields,
};

// Status and heart rate, then (for HRV) the 7 time-domain and 6
// frequency-domain values, then the beat arrays (the second and third
// always -1) and the window grades.
void fill_result(const SealingFrame& frame, const Progress& progress, const RunOutcome& out,
                 bool hrv) {
  progress.say_int("test 1", 0);
  progress.say("Setting result values...");
  std::size_t field = 0;
  frame.set_int(field++, out.status);
  frame.set_double(field++, out.heartRate);
  if (hrv) {
    for (double v : out.timeResults) frame.set_double(field++, v);
    for (double v : out.freqResults) frame.set_double(field++, v);
  }
  const std::vector<jint> none(out.beats.size(), -1);
  progress.say_int("test 2", 0);
  frame.set_int_array(field++, out.beats);
  progress.say_int("test 3", 0);
  frame.set_int_array(field++, none);
  progress.say_int("test 4", 0);
  frame.set_int_array(field++, none);
  progress.say_int("test 5", 0);
  frame.set_int_array(field++, out.qualities);
  progress.say_int("test 6", 0);
}

jobject run(JNIEnv* env, const ResultClass& resultClass, const RunLimits& limits,
            const RunArguments& args) {
  const Progress progress;
  SealingFrame frame(env, progress);
  return kelo::guarded(
      [&]() -> jobject {
        if (!frame.open(resultClass)) return nullptr;
        RunOutcome out;
        try {
          out = analyse(env, progress, args, limits);
        } catch (...) {  // out of memory, whichever routine of the run it hit
          out = out_of_memory(args, limits);
        }
        fill_result(frame, progress, out, limits.hrv);
        return frame.seal();
      },
      []() -> jobject {
        error_line("*** ERROR: out of memory");
        return nullptr;
      });
}

}  // namespace
}  // namespace kelo::jni

using namespace kelo::jni;

extern "C" {

JNIEXPORT jobject JNICALL Java_com_kelo_kelosolver_NativeKELOecgSolver_runQRSDetection(
    JNIEnv* env, jobject /*self*/, jdoubleArray ecg, jint fs, jint startSecond, jdouble fullScale,
    jint windowSeconds) {
  return run(env, kQrsResult, kQrsLimits, {ecg, fs, startSecond, fullScale, windowSeconds});
}

JNIEXPORT jobject JNICALL Java_com_kelo_kelosolver_NativeKELOecgSolver_runHRV(
    JNIEnv* env, jobject /*self*/, jdoubleArray ecg, jint fs, jint startSecond, jdouble fullScale,
    jint windowSeconds) {
  return run(env, kHrvResult, kHrvLimits, {ecg, fs, startSecond, fullScale, windowSeconds});
}

JNIEXPORT jstring JNICALL Java_com_kelo_kelosolver_NativeKELOecgSolver_getVersion(JNIEnv* env,
                                                                                  jobject /*self*/) {
  char version[sizeof KELOECGSOLVER_VERSION_STRING];
  std::memcpy(version, KELOECGSOLVER_VERSION_STRING, sizeof version);
  return env->NewStringUTF(version);
}

}  // extern "C"
