/* Every beat of a recording, with a label.

   detectWaves keeps only the beats that resemble the recording's average
   beat. kelo_detectBeats returns those beats, at exactly the positions
   detectWaves gives, labelled KELO_BEAT_NORMAL, together with the beats
   that a second pass over the detector's own curves finds among what the
   template pass left out: candidate QRS regions that the correlation step
   turned down (typically ventricular beats), and long RR gaps searched
   again at a lower threshold. docs/beats.md describes the second pass.

   The entry point sets up the non-finite constants itself (no _initialize
   call is needed), keeps no state between calls and may run on several
   threads at once on different arrays. */
#ifndef KELOECGSOLVER_BEATS_H
#define KELOECGSOLVER_BEATS_H

#include <stdint.h>

#include "keloecgsolver/emx_array.h"
#include "keloecgsolver/export.h"

KELO_EXTERN_C_BEGIN

/* Beat labels. */
enum {
  /* A beat of detectWaves: shaped like the average beat. */
  KELO_BEAT_NORMAL = 1,
  /* Found by the second pass; wide or unlike the average beat: its QRS
     is more than 1.25 times as wide as that of the normal beats around it,
     or it correlates with their median beat below 0.4. Typically a
     ventricular beat. */
  KELO_BEAT_WIDE = 2,
  /* Found by the second pass; not wide, and early: its RR interval is below
     0.85 times the running RR between normal beats. */
  KELO_BEAT_PREMATURE = 3,
  /* Found by the second pass; neither wide nor premature. */
  KELO_BEAT_UNKNOWN = 4
};

/* Results of kelo_detectBeats. */
enum {
  KELO_BEATS_OK = 0,
  KELO_BEATS_NULL_ARGUMENT = -1, /* a pointer argument is NULL */
  KELO_BEATS_BAD_RATE = -2,      /* fs is not positive */
  KELO_BEATS_NO_MEMORY = -3      /* an allocation failed; nothing was written */
};

/* Every beat of an ECG recording, with its label.

   ecg        the recording, N samples (read only), as detectWaves takes it.
   fs         sampling rate in Hz (the detector is designed for 200).
   positions  out: [n, 1] strictly ascending 1-based sample positions.
   labels     out: [n, 1] one KELO_BEAT_* label per position.

   The positions labelled KELO_BEAT_NORMAL are exactly the rPeaks that
   detectWaves(ecg, ..., fs, ...) returns. Returns KELO_BEATS_OK, or one of
   the negative KELO_BEATS_* codes, in which case the output records that
   are not NULL are emptied ([0, 1]). Output records must have been made by this library (for example
   with emxCreate_int32_T(0, 0)). A recording too short for the detector
   gives no beats (n = 0). */
KELO_API int32_t kelo_detectBeats(const emxArray_real_T* ecg, int32_t fs,
                                  emxArray_int32_T* positions, emxArray_int32_T* labels);

/* Short lower-case name of a label ("normal", "wide", "premature",
   "unknown"), or NULL for a value that is not a label. */
KELO_API const char* kelo_beatLabelName(int32_t label);

KELO_EXTERN_C_END

#endif
