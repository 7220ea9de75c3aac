/* Life cycle of the analysis entry points.

   Every analysis entry point has an initialiser, to be called before the
   entry point (it sets up the non-finite constants), and a terminator, to be
   called after it (it does nothing). Calling an initialiser again is
   harmless. */
#ifndef KELOECGSOLVER_LIFECYCLE_H
#define KELOECGSOLVER_LIFECYCLE_H

#include "keloecgsolver/export.h"

KELO_EXTERN_C_BEGIN

KELO_API void calcHR_initialize(void);
KELO_API void calcHR_terminate(void);
KELO_API void calcHRshort_initialize(void);
KELO_API void calcHRshort_terminate(void);
KELO_API void calcHRvar_initialize(void);
KELO_API void calcHRvar_terminate(void);
KELO_API void checkQuality_initialize(void);
KELO_API void checkQuality_terminate(void);
KELO_API void checkQualityShort_initialize(void);
KELO_API void checkQualityShort_terminate(void);
KELO_API void checkRR_initialize(void);
KELO_API void checkRR_terminate(void);
KELO_API void checkRRshort_initialize(void);
KELO_API void checkRRshort_terminate(void);
KELO_API void checkRRvar_initialize(void);
KELO_API void checkRRvar_terminate(void);
KELO_API void classifyQRS_initialize(void);
KELO_API void classifyQRS_terminate(void);
KELO_API void classifyQRSshort_initialize(void);
KELO_API void classifyQRSshort_terminate(void);
KELO_API void classifyQRSvar_initialize(void);
KELO_API void classifyQRSvar_terminate(void);
KELO_API void detectWaves_initialize(void);
KELO_API void detectWaves_terminate(void);
KELO_API void refineQrsDetection_initialize(void);
KELO_API void refineQrsDetection_terminate(void);

KELO_EXTERN_C_END

#endif
