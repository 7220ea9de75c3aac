/* A C11 program that uses the public headers and the shared library. */
#include <math.h>
#include <stdio.h>
#include <string.h>

#include "keloecgsolver/keloecgsolver.h"

static int failures = 0;

static void check(int ok, const char* what) {
  if (!ok) {
    printf("FAILED: %s\n", what);
    ++failures;
  }
}

int main(void) {
  int32_t beats[] = {100, 260, 410, 580, 740};
  emxArray_int32_T* rec = emxCreateWrapper_int32_T(beats, 5, 1);
  unsigned long long nanBits = 0;
  double hr;
  emxArray_real_T* x;
  emxArray_int32_T* positions;
  emxArray_int32_T* labels;

  calcHRvar_initialize();
  hr = calcHRvar(rec, 5, 200);
  calcHRvar_terminate();
  check(hr == 75.0, "calcHRvar gives 75 through the C ABI");
  emxDestroyArray_int32_T(rec);
  check(beats[0] == 100, "destroying a wrapper leaves the caller's buffer alone");

  memcpy(&nanBits, &rtNaN, sizeof nanBits);
  check(nanBits == 0xFFF8000000000000ULL, "rtNaN carries the sign bit");
  check(rtIsNaN(rt_pow_snf(1.0, rtInf)), "1 ^ Inf is NaN");

  x = emxCreate_real_T(4, 1);
  x->data[0] = 4;
  x->data[1] = 1;
  x->data[2] = 3;
  x->data[3] = 2;
  check(m_median(x) == 2.5, "m_median of 4 1 3 2");
  emxDestroyArray_real_T(x);

  x = emxCreate_real_T(2000, 1); /* flat: no beat */
  positions = emxCreate_int32_T(0, 0);
  labels = emxCreate_int32_T(0, 0);
  check(kelo_detectBeats(x, 200, positions, labels) == KELO_BEATS_OK && positions->size[0] == 0 &&
            labels->size[0] == 0,
        "kelo_detectBeats finds no beat in a flat recording");
  check(kelo_detectBeats(x, 0, positions, labels) == KELO_BEATS_BAD_RATE, "a rate of 0 is refused");
  check(strcmp(kelo_beatLabelName(KELO_BEAT_WIDE), "wide") == 0, "label names");
  emxDestroyArray_int32_T(labels);
  emxDestroyArray_int32_T(positions);
  emxDestroyArray_real_T(x);

  if (failures == 0) printf("C ABI checks passed\n");
  return failures == 0 ? 0 : 1;
}
