/* Signal and rhythm checks over an excerpt and its detected beats: clipping
   and irregularity grades, and the removal of spurious extra beats marked
   by implausibly short RR intervals. */
#ifndef KELOECGSOLVER_CHECKS_H
#define KELOECGSOLVER_CHECKS_H

#include <stdint.h>

#include "keloecgsolver/emx_array.h"
#include "keloecgsolver/export.h"

KELO_EXTERN_C_BEGIN

/* Fixed lengths of the plain arrays of the check routines: three minutes
   and fifteen seconds at 200 Hz. */
#define KELO_CHECK_LENGTH 36000
#define KELO_CHECK_SHORT_LENGTH 3000

/* ---- Signal quality -------------------------------------------------------

   Grades an excerpt: 1 usable, 2 clipped, 3 irregular.

   Clipped: the largest raw sample among the first n (not the largest
   magnitude: a signal that only swings far negative is not clipped) is
   greater than 0.97 * fullScale. Only an excerpt that is not clipped is
   tested for rhythm: irregular when the standard deviation of the intervals
   between the first nBeats beats exceeds a quarter of their mean. Fewer
   than three beats never make an excerpt irregular.

   ecg and beats must each hold KELO_CHECK_LENGTH (checkQuality) or
   KELO_CHECK_SHORT_LENGTH (checkQualityShort) elements; both arrays are
   copied whole. beats are sample positions in ascending order.
   - n above the fixed length counts as the fixed length; n <= 0 examines no
     sample (the maximum is then -10000).
   - nBeats above the fixed length counts as the fixed length; nBeats <= 2
     gives no rhythm verdict.
   - Returns 0, reading nothing, when ecg or beats is NULL, and 0 when
     memory for the work copies runs out.
   checkQuality takes its work copies (576 KB) from the heap for each call;
   checkQualityShort works on its stack only. Call the routine's
   _initialize first. */
KELO_API int32_t checkQuality(const double ecg[KELO_CHECK_LENGTH], int32_t n, double fullScale,
                              const int32_t beats[KELO_CHECK_LENGTH], int32_t nBeats);
KELO_API int32_t checkQualityShort(const double ecg[KELO_CHECK_SHORT_LENGTH], int32_t n,
                                   double fullScale,
                                   const int32_t beats[KELO_CHECK_SHORT_LENGTH], int32_t nBeats);

/* ---- RR intervals ---------------------------------------------------------

   Removes spurious extra beats. In each of at most three iterations (the
   next one runs only if the previous changed something): when the
   standard deviation of the RR intervals exceeds a tenth of their median,
   every interval except the last that is shorter than mean - 2 * sd marks
   both of its beats with class 5, unless a beat has class 1 (never
   marked), and beats with class 5 are removed from the list. A beat that
   already has class 5 on entry is removed by the first removal that
   reaches it. After a removal the beat moved into the removed one's place
   is not examined by the same sweep, so a marked beat can stay in the
   list, still with class 5. Class codes other than 1 and 5 carry no meaning
   here (the classification routines produce 0 and 1).

   checkRR / checkRRshort: beats, classes and cleanBeats must each hold
   KELO_CHECK_LENGTH / KELO_CHECK_SHORT_LENGTH elements. beats (ascending
   positions) is copied whole into cleanBeats, which is then compacted;
   classes is marked and compacted alongside. On return *cleanCount is the
   number of kept beats: the first *cleanCount elements of cleanBeats and
   classes are the kept beats in order; later elements are left as the
   compaction left them.
   - n above the fixed length counts as the fixed length.
   - n < 2: nothing is changed and *cleanCount is n (also when negative);
     n == 2 never changes anything either.
   - Nothing is read or written when any pointer is NULL.
   checkRR takes its work arrays (612 KB) from the heap for each call; when
   memory runs out *cleanCount is -1 and nothing else is written.
   checkRRshort works on its stack only. */
KELO_API void checkRR(const int32_t beats[KELO_CHECK_LENGTH], int32_t n,
                      int32_t classes[KELO_CHECK_LENGTH], int32_t cleanBeats[KELO_CHECK_LENGTH],
                      int32_t* cleanCount);
KELO_API void checkRRshort(const int32_t beats[KELO_CHECK_SHORT_LENGTH], int32_t n,
                           int32_t classes[KELO_CHECK_SHORT_LENGTH],
                           int32_t cleanBeats[KELO_CHECK_SHORT_LENGTH], int32_t* cleanCount);

/* The same over dynamic array records, edited in place: the first *n
   elements of beats and classes are compacted (their extents are not
   changed) and *n is updated after each removal.
   - *n larger than the elements of beats or of classes is first lowered to
     the smaller of the two element counts (and written back to *n), so that
     *n always describes elements that exist.
   - *n < 2 changes nothing.
   - Nothing is read or written when any pointer is NULL.
   The routine allocates its own work records, all before it changes
   anything, and frees them before it returns. When memory runs out *n is
   -1 and beats and classes are left as they were. */
KELO_API void checkRRvar(emxArray_int32_T* beats, int32_t* n, emxArray_int32_T* classes);

KELO_EXTERN_C_END

#endif
