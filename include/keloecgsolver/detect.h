/* QRS detection: the offline R-peak detector, the wave-detection entry point
   with its quality grades, and the absolute-value kernel of the unit.

   Call detectWaves_initialize() (lifecycle.h) before and
   detectWaves_terminate() after detectWaves or m_analyze_ecg_offline_r.
   Neither routine keeps any state between calls; two calls that share no
   arrays may run at the same time. Both allocate work memory in proportion
   to the recording; when it runs out they return the failure results stated
   below. */
#ifndef KELOECGSOLVER_DETECT_H
#define KELOECGSOLVER_DETECT_H

#include <stdint.h>

#include "keloecgsolver/emx_array.h"
#include "keloecgsolver/export.h"

KELO_EXTERN_C_BEGIN

/* Offline QRS detector.

   ecg        the recording, a vector of n samples (row, column or
              one-dimensional). It is modified: on return every sample has
              had the median of the recording subtracted. Pass a copy to keep
              the raw samples. A recording holding a NaN has a NaN median, so
              every sample becomes NaN and no beat is found.
   fs         sampling rate in Hz (200 for the Java bridge).
   rpeaks     out: 2 * nR elements, nR being the number of candidate regions
              in which a provisional peak was placed. The accepted R peaks
              come first, as 1-based sample positions (integral doubles), in
              the order of acceptance: beats of the correlation pass in
              region order, then beats found in long RR intervals. Unfilled
              slots hold 0; a slot may hold -Inf. Keep the entries greater
              than 0 (detectWaves does).
   feature    out: n elements, the QRS energy envelope.
   threshold  out: n elements, the adaptive threshold of the envelope.

   The three output records must have been made by this library (for
   example with emxCreate_real_T(0, 0)); they are resized here. Nothing
   happens when any argument is NULL.

   Short recordings and unusable rates: when fs is not a finite positive
   number, or when fs >= 1 and n < fs + 1 (too short for the one-second edge
   hold of the threshold; this includes n = 0, 1, 2 at any rate of 2 Hz and
   more), ecg is still centred but no detection runs: rpeaks is empty and
   feature and threshold are n zeros. At rates below 125 Hz a candidate
   whose +-10-sample refinement window does not fit inside the recording is
   skipped.

   Out of memory: rpeaks, feature and threshold are left empty (every
   extent 0); ecg may already be centred. */
KELO_API void m_analyze_ecg_offline_r(emxArray_real_T* ecg, double fs, emxArray_real_T* rpeaks,
                                      emxArray_real_T* feature, emxArray_real_T* threshold);

/* R peaks and quality grades of an ECG excerpt.

   ecg             the excerpt, a column of N samples (read only).
   fullScale       the largest amplitude the acquisition can represent; a
                   sample whose absolute value exceeds 0.97 * fullScale
                   counts as clipped.
   fs              sampling rate in Hz (the bridge passes 200).
   windowSeconds   length of a quality window in seconds.
   rPeaks          out: [n, 1] strictly ascending 1-based R-peak positions.
   quality         out: 1 usable, 2 clipped, 3 irregular (the standard
                   deviation of the RR intervals exceeds a quarter of their
                   mean). Clipping is tested first. With fewer than three R
                   peaks the rhythm test cannot fail (grade 1 unless
                   clipped).
   windowQualities out: one grade per window: 0 usable, 3 fewer than two R
                   peaks, 5 clipped, 6 irregular (the KELO_EXCERPT_* and
                   KELO_WINDOW_* names of grades.h). There are
                   floor(N / fs / windowSeconds) windows of windowSeconds * fs
                   samples (a shorter tail is not graded), or a single window
                   over the whole excerpt when windowSeconds < 5, when the
                   excerpt is shorter than one window, or when fs <= 0.

   Output records must have been made by this library. Nothing is written
   when any pointer is NULL. NaN samples are ignored by the clipping tests;
   an infinite sample counts as clipped.

   Out of memory: *quality is 0 (no grade) and rPeaks and windowQualities
   are left empty (every extent 0). */
KELO_API void detectWaves(const emxArray_real_T* ecg, double fullScale, int32_t fs,
                          int32_t windowSeconds, emxArray_int32_T* rPeaks, int32_t* quality,
                          emxArray_int32_T* windowQualities);

/* y = |x| element by element (sign bit cleared: -0 gives +0, NaN stays
   NaN). y takes the first extent of x as its length. Nothing happens when
   either argument is NULL; y is left empty when memory runs out. */
KELO_API void m_abs(const emxArray_real_T* x, emxArray_real_T* y);

KELO_EXTERN_C_END

#endif
