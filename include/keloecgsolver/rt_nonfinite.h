/* Non-finite constants, their predicates and the safe power function. */
#ifndef KELOECGSOLVER_RT_NONFINITE_H
#define KELOECGSOLVER_RT_NONFINITE_H

#include <stdbool.h>
#include <stddef.h>

#include "keloecgsolver/export.h"

KELO_EXTERN_C_BEGIN

/* Process-wide constants, rewritten (with the same bits) by
   rt_InitInfAndNaN and therefore by every *_initialize routine.
   rtInf 0x7FF0000000000000, rtMinusInf 0xFFF0000000000000,
   rtNaN 0xFFF8000000000000 (quiet NaN with the sign bit set),
   rtInfF 0x7F800000, rtMinusInfF 0xFF800000, rtNaNF 0xFFC00000. */
KELO_API extern double rtInf;
KELO_API extern double rtMinusInf;
KELO_API extern double rtNaN;
KELO_API extern float rtInfF;
KELO_API extern float rtMinusInfF;
KELO_API extern float rtNaNF;

KELO_API double rtGetInf(void);
KELO_API double rtGetMinusInf(void);
KELO_API double rtGetNaN(void);
KELO_API float rtGetInfF(void);
KELO_API float rtGetMinusInfF(void);
KELO_API float rtGetNaNF(void);

/* Fills the six constants. realSize is the width of a double (callers pass
   8); it is not used. */
KELO_API void rt_InitInfAndNaN(size_t realSize);

KELO_API bool rtIsInf(double value);
KELO_API bool rtIsInfF(float value);
KELO_API bool rtIsNaN(double value);
KELO_API bool rtIsNaNF(float value);

/* u0 raised to u1 with these rules, tried in order: a NaN operand gives NaN;
   an infinite exponent gives NaN for |u0| == 1, else infinity or 0 by |u0|
   and the exponent's sign; exponent 0 gives 1, exponent +-1 gives u0 or
   1/u0, exponent 2 gives u0*u0, exponent 0.5 of a non-negative base its
   square root, a negative base with a non-integral exponent NaN, and
   otherwise the platform pow. */
KELO_API double rt_pow_snf(double u0, double u1);

KELO_EXTERN_C_END

#endif
