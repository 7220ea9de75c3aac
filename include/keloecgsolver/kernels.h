/* Numeric kernels shared by the detection unit: statistics, sorting and
   signal routines over dynamic array records.

   General preconditions (the kernels do not validate beyond them): every
   record pointer is a valid record made by this library's creators, output
   records have at least one dimension, and inputs are vectors (one extent
   holds the element count, any other extent is 1). Outputs are resized by
   the kernel. Positions in results are 1-based. The non-finite constants
   must hold their values (they are initialised statically and by every
   *_initialize routine).

   When memory runs out a kernel leaves its output records empty (every
   extent 0) and a kernel that returns a double returns NaN. */
#ifndef KELOECGSOLVER_KERNELS_H
#define KELOECGSOLVER_KERNELS_H

#include <stdint.h>

#include "keloecgsolver/emx_array.h"
#include "keloecgsolver/export.h"

KELO_EXTERN_C_BEGIN

/* ---- Statistics ---------------------------------------------------------- */

/* (x(1) + ... + x(n)) / n, summed left to right; NaN for an empty row. */
KELO_API double m_mean(const emxArray_real_T* x);

/* Standard deviation with divisor n - 1 (n for n < 2): 0 for one value,
   NaN for none. */
KELO_API double m_std(const emxArray_real_T* x);

/* Median; NaN for an empty vector or when any element is NaN. */
KELO_API double m_median(const emxArray_real_T* x);

/* Column-wise median of an r x c matrix into the 1 x c row y; y is all NaN
   when r or c is 0. */
KELO_API void m_b_median(const emxArray_real_T* x, emxArray_real_T* y);

/* Median of a non-empty vector (NaN for an empty one). */
KELO_API double m_vectormedian(const emxArray_real_T* x);

/* Largest / smallest non-NaN element; NaN when all are NaN. A one-element
   vector returns its element. The first of equal extremes wins. Only ever
   given non-empty vectors by the library; an empty vector returns NaN. */
KELO_API double m_max(const emxArray_real_T* x);
KELO_API double m_b_max(const emxArray_real_T* x);
KELO_API double m_min(const emxArray_real_T* x);
KELO_API double m_b_min(const emxArray_real_T* x);

/* y(k) = rt_pow_snf(x(k), 3.0); y takes the shape of x. */
KELO_API void m_power(const emxArray_real_T* x, emxArray_real_T* y);

/* a / b rounded half away from zero, saturated to int32; NaN gives 0. */
KELO_API int32_t m_mrdivide(int32_t a, double b);

/* y = 1 x count row of v (count truncated to int32; a negative or NaN count
   gives an empty row). */
KELO_API void m_repmat(double v, double count, emxArray_real_T* y);

/* In place: 1.0 for > 0, -1.0 for < 0, 0.0 for either zero, NaN stays. */
KELO_API void m_refp1_sign(emxArray_real_T* x);

/* In place: exp of every element. */
KELO_API void m_refp1_exp(emxArray_real_T* x);

/* 0 if any extent is 0, else the largest extent. */
KELO_API double m_length(const emxArray_real_T* x);
KELO_API double m_b_length(const emxArray_real_T* x);

/* ---- Sorting and unique --------------------------------------------------- */

/* Sorts a one-dimensional int32 array ascending, in place. */
KELO_API void m_refp1_sort(emxArray_int32_T* x);

/* b = 1 x k row of the distinct values of x, ascending: one -Inf, each
   group of equal finite values once (0.0 and -0.0 are equal), one +Inf,
   then every NaN (NaNs are never merged). */
KELO_API void m_unique(const emxArray_real_T* x, emxArray_real_T* b);

/* ---- Signal kernels -------------------------------------------------------- */

/* Moving average of odd span s = 2 * ceil(span / 2) - 1 with truncated
   ends: y(i) is the mean of x(max(1, i - h) .. min(n, i + h)),
   h = floor(s / 2). A span below 1 (or NaN) means no smoothing. */
KELO_API void m_smooth_emlc(const emxArray_real_T* x, double span, emxArray_real_T* y);

/* Pearson correlation of two vectors of equal length (the shorter length is
   used if they differ). NaN for fewer than two values or a constant
   vector. */
KELO_API double m_corr_emlc(const emxArray_real_T* x, const emxArray_real_T* y);

/* Positions (1-based) of the true elements of a mask: as doubles (m_find)
   or as int32 (m_b_eml_li_find). */
KELO_API void m_find(const emxArray_boolean_T* mask, emxArray_real_T* idx);
KELO_API void m_b_eml_li_find(const emxArray_boolean_T* mask, emxArray_int32_T* idx);

/* y(k) = x(k+1) - x(k): n - 1 values, or a 0 x 0 array for n <= 1. */
KELO_API void m_diff(const emxArray_real_T* x, emxArray_real_T* y);

/* Second-order recursive filters (transposed direct form II, zero initial
   state): m_b_filter is the low-pass, m_filter the high-pass. */
KELO_API void m_b_filter(const emxArray_real_T* x, emxArray_real_T* y);
KELO_API void m_filter(const emxArray_real_T* x, emxArray_real_T* y);

/* g(k) = local range of x over k-5 .. k+5 (running maximum starting at 0.0,
   running minimum starting at 100000.0), gs(k) its 11-point mean, for
   k = 6 .. n-5; every other element is 0. */
KELO_API void m_gradientIEM(const emxArray_real_T* x, emxArray_real_T* g, emxArray_real_T* gs);

/* Exact 64-bit product of two int32 values as high and low words. */
KELO_API void m_mul_wide_s32(int32_t in0, int32_t in1, uint32_t* ptrOutBitsHi,
                             uint32_t* ptrOutBitsLo);

/* a * b clamped to the int32 range. */
KELO_API int32_t m_mul_s32_s32_s32_sat(int32_t a, int32_t b);

KELO_EXTERN_C_END

#endif
