/* Heart-rate variability: RR and NN interval series, time-domain statistics,
   the fast Lomb periodogram and the frequency-band powers.

   All routines work on plain caller-owned arrays. Times and intervals are in
   seconds, frequencies in Hz, band powers in s^2.

   Every routine may run on several threads at once: work buffers belong to
   the call. The one shared value is the global pwr below, which the
   routines only write.

   None of these routines ends the process. Bad arguments (NULL pointers,
   counts out of range) are answered as documented next to each declaration;
   usually nothing is written.

   The Lomb code's diagnostic routines error() and help() are declared in
   "keloecgsolver/hrv_diagnostics.h", which this header (and the umbrella
   header) deliberately does not include: the name error clashes with the
   GNU C library's error() of <error.h>. */
#ifndef KELOECGSOLVER_HRV_H
#define KELOECGSOLVER_HRV_H

#include <stdint.h>

#include "keloecgsolver/export.h"

KELO_EXTERN_C_BEGIN

/* ---- Driver and time domain ------------------------------------------- */

/* Indices of the time-domain result array (7 doubles). */
#define KELO_HRV_NN_RR 0   /* NN intervals / all intervals (fraction) */
#define KELO_HRV_AVNN 1    /* mean NN interval (s) */
#define KELO_HRV_SDNN 2    /* sample standard deviation of the NN intervals (s) */
#define KELO_HRV_SDANN 3   /* std. dev. of the 5-minute segment means (s) */
#define KELO_HRV_SDNNIDX 4 /* mean of the 5-minute segment std. devs (s) */
#define KELO_HRV_RMSSD 5   /* root mean square of successive differences (s) */
#define KELO_HRV_PNN50 6   /* fraction of successive differences > 50 ms */
#define KELO_HRV_TIME_RESULTS 7

/* Indices of the frequency-domain result array (6 doubles). */
#define KELO_HRV_TOT_PWR 0 /* power of all lines up to 0.4 Hz (s^2) */
#define KELO_HRV_ULF_PWR 1 /* 0 .. 0.0033 Hz */
#define KELO_HRV_VLF_PWR 2 /* 0.0033 .. 0.04 Hz */
#define KELO_HRV_LF_PWR 3  /* 0.04 .. 0.15 Hz */
#define KELO_HRV_HF_PWR 4  /* 0.15 .. 0.4 Hz */
#define KELO_HRV_LF_HF 5   /* LF power / HF power */
#define KELO_HRV_FREQ_RESULTS 6

/* Status written by the HRV routines: 0 after the time-domain step, 4 when
   the frequency-domain results could not be formed, 8 when memory for the
   work buffers ran out (the code the Java bridge reports it with). */
#define KELO_HRV_STATUS_OK 0
#define KELO_HRV_STATUS_NO_SPECTRUM 4
#define KELO_HRV_STATUS_NO_MEMORY 8

/* All HRV statistics of a beat series.
   rpeaks: n + 1 ascending sample positions; n: number of RR intervals;
   fs: sampling rate (Hz); timeResults: 7 doubles; freqResults: 6 doubles.
   Writes 0 to *status, the time-domain results, then the frequency-domain
   results. When fewer than three spectral lines are left at or below 0.4 Hz,
   or the series has fewer than three intervals (n < 3), *status becomes 4
   and freqResults is left as it was. When memory for a work buffer runs
   out, *status becomes 8, freqResults is left as it was and timeResults
   holds the complete time-domain results or is left as it was. Does
   nothing when any pointer is NULL. n < 1 reads no
   position: the time-domain results are those of an empty series (0, NaN,
   NaN, 0, -1, NaN, NaN) and the status is 4. */
KELO_API void calcHrv(const int32_t* rpeaks, int32_t n, int32_t fs, double* timeResults,
                      double* freqResults, int32_t* status);

/* The interval series of n intervals from n + 1 positions: annotations[i] =
   'N', rr[i] = (rpeaks[i+1] - rpeaks[i]) / fs (the difference saturates at
   the 32-bit limits), t[i] the time of the middle of interval i counted from
   the middle of interval 0 (t[0] = 0). Each output array holds n elements.
   Writes nothing when n < 1 or a pointer is NULL. */
KELO_API void calcRR(const int32_t* rpeaks, int32_t n, int32_t fs, char* annotations, double* t,
                     double* rr);

/* calcStatNN, then SDANN -1.0 (not formed) becomes 0.0, and 0 goes to
   *status (skipped when status is NULL). SDNN index keeps -1.0. When
   memory for the work buffers runs out all 7 results are NaN and *status
   is 8. */
KELO_API void calcHrvTime(const double* t, const double* rr, const char* annotations, int32_t n,
                          double* timeResults, int32_t* status);

/* The 7 time-domain statistics of n intervals with times t, lengths rr and
   beat annotations ('N' normal, anything else not). An interval counts as NN
   when it and the one before it are annotated 'N'; interval 0 never does.
   Segments are 300 s long; SDANN and SDNN index are -1.0 when they cannot be
   formed. Divisions by a zero count are not guarded (NaN or infinity).
   Interval times above 720000 s (2400 segments), infinity included, are
   beyond the supported length: all 7 results are then NaN, as they are
   when n > 0 and t, rr or annotations is NULL or when memory for the
   per-segment work buffers (58 KB) runs out. Does nothing when timeResults
   is NULL. */
KELO_API void calcStatNN(const double* t, const double* rr, const char* annotations, int32_t n,
                         double* timeResults);

/* ---- Lomb periodogram --------------------------------------------------- */

/* Variance of the series analysed by avevar (and so by fasper and calcLomb,
   which normalises its amplitudes with the same value). Every such call
   stores its variance here, and no routine reads it back. It is meaningful
   only when calls do not overlap: with calls running on several threads it
   holds the value of one of them, and which one is undefined. */
KELO_API extern float pwr;

/* Exported placeholders without behaviour (pointer-sized: 8 bytes on the
   64-bit targets). No routine reads or writes them. */
KELO_API extern void* Ptr;
KELO_API extern void* Ptr1;

/* Periodogram amplitudes of the n - 1 intervals rr[1..n-1] at times
   t[1..n-1] (interval 0 is left out). Writes 2 * (n - 1) frequencies to freq
   (the first at 1 / (4 (t[n-1] - t[1])), evenly spaced) and as many
   amplitudes to amp (s; the squares sum to band powers in s^2); entries
   beyond are not touched. capacity is the number of elements of freq and of
   amp. Writes nothing when n < 3 (fewer than two analysed points), when
   capacity < 2 * (n - 1), when a pointer is NULL or when the work buffers
   cannot be allocated (error("insufficient memory") is called). */
KELO_API void calcLomb(const double* t, const double* rr, int32_t n, double* freq, double* amp,
                       int32_t capacity);

/* Fast Lomb-Scargle periodogram (Press and Rybicki) of n points. The arrays
   are 1-based: x[1..n] (times) and y[1..n] (values) are read, wk1[1..nwk]
   and wk2[1..nwk] are the workspaces, so each needs one element more than
   the count (element 0 is never touched). ofac: oversampling factor; hifac:
   highest frequency as a multiple of the average Nyquist frequency. On
   return *nout frequencies are in wk1[1..*nout] and their normalised powers
   in wk2[1..*nout]; *jmax is the index of the largest power and *prob the
   false-alarm probability of that peak. Stores the variance of y in pwr.
   If the workspaces are too small error("workspaces too small\n") is called
   and the routine returns with *nout = 0, *jmax = 0 and *prob = 1. Returns
   the same way, silently, when n < 1, ofac or hifac is not a positive
   finite number, or an array is NULL; with a NULL nout, jmax or prob it
   does nothing. */
KELO_API void fasper(float x[], float y[], unsigned long n, float ofac, float hifac, float wk1[],
                     float wk2[], unsigned long nwk, unsigned long* nout, unsigned long* jmax,
                     float* prob);

/* Extirpolation: adds value y to yy[1..n] (1-based, n + 1 elements) as if
   it stood at the fractional position x, spread over m neighbours with
   Lagrange weights; an integral x adds y to yy[x] alone. m > 10 calls
   error("factorial table too small") and adds nothing. Adds nothing either
   when yy is NULL, m < 1, m > n, or x is not in [1, n + 1). */
KELO_API void spread(float y, float yy[], unsigned long n, float x, int m);

/* Mean and variance (divisor n - 1, with the rounding correction) of
   data[1..n] (1-based) in single precision; the variance also goes to pwr.
   Does nothing when a pointer is NULL. */
KELO_API void avevar(float data[], unsigned long n, float* ave, float* var);

/* In-place FFT of n real values data[1..n] (1-based); isign 1 gives the
   forward transform (packed: data[1] = F0, data[2] = F(n/2), then real and
   imaginary parts), -1 the inverse without the factor 2/n. n must be a
   power of two >= 2; otherwise, or for a NULL data, nothing is done. */
KELO_API void realft(float data[], unsigned long n, int isign);

/* In-place radix-2 complex FFT of nn complex values stored as data[1..2nn]
   (1-based, real and imaginary parts interleaved); isign 1 uses
   exp(+2 pi i jk / nn), -1 the conjugate, without normalisation. nn must be
   a power of two >= 1; otherwise, or for a NULL data, nothing is done. */
KELO_API void four1(float data[], unsigned long nn, int isign);

/* Subtracts the mean (accumulated in double precision) from y[0..n-1]
   (0-based, unlike the routines above). NULL: nothing is done. */
KELO_API void zeromean(float* y, unsigned long n);

/* The part of the path s after its last '/', or s itself if it holds none;
   NULL for NULL. */
KELO_API const char* prog_name(const char* s);

/* ---- Band powers -------------------------------------------------------- */

/* Frequency-domain results of n intervals (times t, lengths rr) into the 6
   doubles of freqResults: total power up to 0.4 Hz, ULF, VLF, LF, HF and
   LF/HF. Band edges are inclusive on both sides, so a line on a shared edge
   counts in both bands. *status is written only on failure: 4 when fewer
   than three lines are left at or below 0.4 Hz or n < 3 or n > 1073741823,
   8 when memory for a buffer runs out; freqResults is then left as it was.
   Does nothing when a pointer is NULL. */
KELO_API void calcHrvFreq(const double* t, const double* rr, int32_t n, double* freqResults,
                          int32_t* status);

/* Keeps the lines with freq[i] <= fmax and zeroes freq and amp of the others
   (a NaN frequency included), without moving any; *count receives the
   number kept. With a NULL freq or amp nothing is changed and *count is 0;
   with a NULL count nothing is done. */
KELO_API void limitFreq(double* freq, double* amp, uint32_t len, double fmax, uint32_t* count);

/* Band powers over the first count lines: results[0] = sum of amp^2, then
   for each band b of the nedges / 2 (lower, upper) pairs in edges the sum of
   amp^2 of the lines with lower <= freq <= upper, and last the ratio of the
   last-but-one band to the last one (nedges / 2 + 2 results). Writes
   nothing when nedges <= 2, nedges is odd, nedges / 2 > 10, count <= 2 or a
   pointer is NULL. */
KELO_API void calcPWR(int32_t nedges, const double* edges, const double* freq, const double* amp,
                      int32_t count, double* results);

KELO_EXTERN_C_END

#endif
