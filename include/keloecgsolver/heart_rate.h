/* Heart rate: the median beat-to-beat interval in beats per minute. */
#ifndef KELOECGSOLVER_HEART_RATE_H
#define KELOECGSOLVER_HEART_RATE_H

#include <stdint.h>

#include "keloecgsolver/emx_array.h"
#include "keloecgsolver/export.h"

KELO_EXTERN_C_BEGIN

/* Fixed lengths of the beat arrays of calcHR and calcHRshort. */
#define KELO_CALCHR_LENGTH 36000
#define KELO_CALCHR_SHORT_LENGTH 3000

/* Heart rate in beats per minute from the first n beat positions (samples,
   ascending) of beats: 60 / (median interval / fs), rounded half away from
   zero. Two beats at the same position give +Inf.
   Returns NaN, reading nothing, when beats is NULL, n < 2 or n exceeds the
   number of elements of beats, and NaN when memory for its work copy runs
   out. Call calcHRvar_initialize() first. */
KELO_API double calcHRvar(const emxArray_int32_T* beats, int32_t n, int32_t fs);

/* The same over a caller-owned plain array that must hold
   KELO_CALCHR_LENGTH (calcHR) or KELO_CALCHR_SHORT_LENGTH (calcHRshort)
   elements; the whole array is copied, whatever n is. Returns NaN when
   beats is NULL, n < 2 or n exceeds the fixed length. */
KELO_API double calcHR(const int32_t beats[KELO_CALCHR_LENGTH], int32_t n, int32_t fs);
KELO_API double calcHRshort(const int32_t beats[KELO_CALCHR_SHORT_LENGTH], int32_t n, int32_t fs);

KELO_EXTERN_C_END

#endif
