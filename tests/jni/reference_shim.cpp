// Test-only JNI shim: lets the Java tests call detectWaves and calcHrv
// directly, to compare the bridge's results with the native routines.
#include <jni.h>

#include <vector>

#include "keloecgsolver/detect.h"
#include "keloecgsolver/emx_array.h"
#include "keloecgsolver/hrv.h"
#include "keloecgsolver/lifecycle.h"

extern "C" {

JNIEXPORT jintArray JNICALL Java_com_kelo_kelosolver_NativeReference_detectWaves(
    JNIEnv* env, jclass, jdoubleArray excerpt, jdouble fullScale, jint windowSeconds) {
  const jsize n = env->GetArrayLength(excerpt);
  std::vector<double> samples(static_cast<std::size_t>(n));
  env->GetDoubleArrayRegion(excerpt, 0, n, samples.data());
  emxArray_real_T* ecg = emxCreateWrapper_real_T(samples.data(), n, 1);
  emxArray_int32_T* peaks = emxCreate_int32_T(0, 1);
  emxArray_int32_T* windows = emxCreate_int32_T(0, 1);
  int32_t grade = 0;
  detectWaves_initialize();
  detectWaves(ecg, fullScale, 200, windowSeconds, peaks, &grade, windows);
  detectWaves_terminate();
  const jsize count = peaks->size[0];
  jintArray out = env->NewIntArray(count);
  env->SetIntArrayRegion(out, 0, count, peaks->data);
  emxDestroyArray_int32_T(windows);
  emxDestroyArray_int32_T(peaks);
  emxDestroyArray_real_T(ecg);
  return out;
}

JNIEXPORT jdoubleArray JNICALL Java_com_kelo_kelosolver_NativeReference_calcHrv(
    JNIEnv* env, jclass, jintArray rpeaks, jint fs) {
  const jsize n = env->GetArrayLength(rpeaks);
  std::vector<int32_t> peaks(static_cast<std::size_t>(n));
  env->GetIntArrayRegion(rpeaks, 0, n, peaks.data());
  std::vector<double> values(14, 0.0);
  int32_t status = -1;
  calcHrv(peaks.data(), n - 1, fs, values.data(), values.data() + 7, &status);
  values[13] = status;
  jdoubleArray out = env->NewDoubleArray(14);
  env->SetDoubleArrayRegion(out, 0, 14, values.data());
  return out;
}

}  // extern "C"
