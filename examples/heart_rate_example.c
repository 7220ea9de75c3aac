/* heart_rate_example: heart rate from beat positions through the C ABI.

   Usage: heart_rate_example [--fs RATE] [POSITION ...]

   With no positions it uses the first 20 reference beats of record 100 of
   the MIT-BIH Arrhythmia Database (sample numbers at 200 Hz; see
   data/README.md for the attribution). */
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "keloecgsolver/keloecgsolver.h"

static const int32_t kExampleBeats[] = {43,   206,  368,  526,  684,  842,  1005,
                                        1136, 1334, 1503, 1666, 1823, 1978, 2146,
                                        2317, 2481, 2647, 2811, 2970, 3129};

static int parse_int(const char* text, int32_t* out) {
  char* end = NULL;
  long v;
  errno = 0;
  v = strtol(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0' || v < INT32_MIN || v > INT32_MAX) return 0;
  *out = (int32_t)v;
  return 1;
}

int main(int argc, char** argv) {
  int32_t fs = 200;
  int32_t* beats = NULL;
  int32_t count = 0;
  int first = 1;
  emxArray_int32_T* record;
  double hr;

  if (argc > 2 && strcmp(argv[1], "--fs") == 0) {
    if (!parse_int(argv[2], &fs) || fs <= 0) {
      fprintf(stderr, "heart_rate_example: --fs needs a positive whole number, got '%s'\n", argv[2]);
      return 2;
    }
    first = 3;
  }
  if (first < argc) {
    int i;
    beats = (int32_t*)malloc(sizeof(int32_t) * (size_t)(argc - first));
    if (beats == NULL) return 2;
    for (i = first; i < argc; ++i) {
      if (!parse_int(argv[i], &beats[count])) {
        fprintf(stderr, "heart_rate_example: '%s' is not a sample position\n", argv[i]);
        free(beats);
        return 2;
      }
      ++count;
    }
  } else {
    count = (int32_t)(sizeof kExampleBeats / sizeof kExampleBeats[0]);
    beats = (int32_t*)malloc(sizeof kExampleBeats);
    if (beats == NULL) return 2;
    memcpy(beats, kExampleBeats, sizeof kExampleBeats);
    printf("No positions given: using the first %d reference beats of MIT-BIH record 100.\n", (int)count);
  }
  if (count < 2) {
    fprintf(stderr, "heart_rate_example: at least two beat positions are needed\n");
    free(beats);
    return 2;
  }

  record = emxCreateWrapper_int32_T(beats, count, 1);
  calcHRvar_initialize();
  hr = calcHRvar(record, count, fs);
  calcHRvar_terminate();
  emxDestroyArray_int32_T(record);
  free(beats);

  printf("%d beats at %d Hz: heart rate %.0f beats per minute\n", (int)count, (int)fs, hr);
  return 0;
}
