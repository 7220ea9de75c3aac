/* Beat classification against an average-beat template, and the search for
   beats that the detector missed in long RR gaps. */
#ifndef KELOECGSOLVER_CLASSIFY_H
#define KELOECGSOLVER_CLASSIFY_H

#include <stdint.h>

#include "keloecgsolver/emx_array.h"
#include "keloecgsolver/export.h"

KELO_EXTERN_C_BEGIN

/* Fixed signal lengths: 180 s and 15 s at 200 Hz. */
#define KELO_CLASSIFY_LENGTH 36000
#define KELO_CLASSIFY_SHORT_LENGTH 3000
#define KELO_REFINE_LENGTH 36000

/* Highest sampling rate classifyQRSvar accepts, in Hz. */
#define KELO_CLASSIFY_MAX_RATE 2000

/* ---- Classification --------------------------------------------------------

   Marks each beat 1 (normal: its QRS complex looks like the average beat)
   or 0. A template is averaged from the windows r - h .. r + h of the
   beats still marked 1; a beat whose window correlates with it below 0.7,
   even after shifting the window by up to s samples either way, becomes 0
   for good. Up to five passes, each with a fresh template, while the
   previous pass changed something. A correlation of exactly 0.7 is normal;
   a not-a-number correlation (a signal holding NaN) is not.

   Positions are 1-based sample numbers. Only beats with a full window
   (r - h >= 1 and r + h <= signal length) are tested; the shift search
   also needs r - h - s >= 1 and r + h + s <= length. Beats nearer the ends,
   and beats with positions outside the signal, are never tested and stay 1.

   classes is indexed by beat number (entry k - 1 belongs to beat k) but is
   sized like the signal: every entry is first set to 1, so entries past
   the last beat stay 1.

   classifyQRS / classifyQRSshort: signal and classes hold
   KELO_CLASSIFY_LENGTH / KELO_CLASSIFY_SHORT_LENGTH elements; h = s = 12
   (a 25-sample template). rpeaks holds the first nbeats positions.
   - nbeats above the fixed length counts as the fixed length (classes has
     no entry for further beats); nbeats <= 0 classifies nothing (classes
     all 1).
   - Nothing is read or written when a pointer is NULL.
   classifyQRS takes two signal-sized work copies (576 KB) from the heap for
   each call; when memory runs out every entry of classes is -1 (no
   verdict). classifyQRSshort uses its stack only. */
KELO_API void classifyQRS(const double signal[KELO_CLASSIFY_LENGTH], const int32_t* rpeaks,
                          int32_t nbeats, int32_t classes[KELO_CLASSIFY_LENGTH]);
KELO_API void classifyQRSshort(const double signal[KELO_CLASSIFY_SHORT_LENGTH],
                               const int32_t* rpeaks, int32_t nbeats,
                               int32_t classes[KELO_CLASSIFY_SHORT_LENGTH]);

/* The same for a signal of any length N (0 if any extent of signal is 0,
   else its largest extent) sampled at fs Hz: h = rnd(rnd(0.12 fs) / 2) and
   s = rnd(0.06 fs), rounding halves away from zero (12 and 12 at 200 Hz, so
   that the results equal those of the fixed variants). classes is resized
   to an N x 1 column (a 1-D record to [N]) and filled as above.
   - nbeats beyond the elements of rpeaks, or beyond N, is lowered to the
     smaller of the two.
   - A sampling rate that makes the window longer than the signal tests no
     beat; a negative one that makes h negative gives every beat within reach
     of the signal class 0, as its windows are empty.
   - Nothing is read or written when a pointer is NULL, and classes is left
     alone when it has no dimension.
   Cost: a beat whose window correlates below 0.7 is tried at every shift
   until one reaches 0.7, each shift a pass over the window, so a beat that
   matches at no shift costs about (0.12 fs)^2 steps, a quarter of a
   millisecond at 2000 Hz. Rates above KELO_CLASSIFY_MAX_RATE (2000 Hz) are
   refused, leaving classes empty (every extent 0): no caller of the
   library needs them (it analyses at 200 Hz), and at 50 kHz a beat would
   take 0.15 s.

   Allocates only the template and its work copy (freed before returning)
   and the classes buffer; when memory runs out classes is left empty. */
KELO_API void classifyQRSvar(const emxArray_real_T* signal, const emxArray_int32_T* rpeaks,
                             int32_t nbeats, int32_t fs, emxArray_int32_T* classes);

/* ---- Missed-beat search ----------------------------------------------------

   Looks for beats that the detector missed in unusually long RR gaps
   (longer than mean + 1.65 sd of the intervals) and writes the list with
   the beats found. In each gap the candidate with the largest peak-to-peak
   amplitude over +-w samples (w = rnd(rnd(0.12 fs) / 2), 12 at 200 Hz) is
   accepted when its amplitude is typical of the detected beats (within
   3.5 sd of their mean) or, failing that, its steepest slope is typical
   (within 3 sd) and its amplitude above half the mean. The new beat is
   placed at the largest sample of (r + idx - 1) .. (r + 2w + idx - 1),
   where r is the gap's first beat and idx the candidate's number: the
   window ending at the candidate, so the position can lie before the
   candidate's own peak. It is kept if both halves of the gap stay longer
   than mean - 1.96 sd. Up to 15 passes while a pass adds beats.

   x, beatsIn and beatsOut hold KELO_REFINE_LENGTH elements; beats are
   1-based sample positions, ascending in the first n entries of beatsIn.
   beatsIn is copied whole into beatsOut. Every pass analyses the first n
   entries of beatsOut, appends the beats it finds after them (over what
   the previous pass left there) and then runs one insertion step per new
   beat, starting at the last appended entry: if the entry there is smaller
   than its predecessor it is moved down into order (and the next step
   starts at the same place), otherwise the next step starts one entry
   earlier. This is not a full sort: of several beats found in one pass, in
   ascending order, only the first is moved into the list and the others
   stay behind the beats that follow it. The count is never increased:
   *count is always n, and the last beats of the list are pushed past entry
   n. A caller that needs the beats found compares beatsOut with beatsIn.
   - n above KELO_REFINE_LENGTH counts as KELO_REFINE_LENGTH (also in
     *count); n < 2 finds nothing (beatsOut is a copy of beatsIn).
   - A beat found when the array has no slot left after the first n entries
     is dropped.
   - Positions outside 1 .. KELO_REFINE_LENGTH are accepted: every search
     only covers the samples of its range that lie inside the signal (a
     range entirely outside finds nothing), and the slope of the last
     sample, which would need a sample after the signal, is not formed.
   - Nothing is read or written when a pointer is NULL.
   Takes its work arrays (1.3 MB) from the heap for each call; when memory
   runs out *count is -1 and beatsOut is left as it was. */
KELO_API void refineQrsDetection(const double x[KELO_REFINE_LENGTH],
                                 const int32_t beatsIn[KELO_REFINE_LENGTH], int32_t n, int32_t fs,
                                 int32_t beatsOut[KELO_REFINE_LENGTH], int32_t* count);

KELO_EXTERN_C_END

#endif
