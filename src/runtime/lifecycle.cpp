// Initialisers and terminators of the analysis entry points. Every
// initialiser sets up the non-finite constants; every terminator does
// nothing. They are separate exported names with one shared body.
#include "keloecgsolver/lifecycle.h"

#include "keloecgsolver/rt_nonfinite.h"

#define KELO_LIFECYCLE_PAIR(entry)                                    \
  KELO_API void entry##_initialize(void) { rt_InitInfAndNaN(8U); }   \
  KELO_API void entry##_terminate(void) {}

extern "C" {
KELO_LIFECYCLE_PAIR(calcHR)
KELO_LIFECYCLE_PAIR(calcHRshort)
KELO_LIFECYCLE_PAIR(calcHRvar)
KELO_LIFECYCLE_PAIR(checkQuality)
KELO_LIFECYCLE_PAIR(checkQualityShort)
KELO_LIFECYCLE_PAIR(checkRR)
KELO_LIFECYCLE_PAIR(checkRRshort)
KELO_LIFECYCLE_PAIR(checkRRvar)
KELO_LIFECYCLE_PAIR(classifyQRS)
KELO_LIFECYCLE_PAIR(classifyQRSshort)
KELO_LIFECYCLE_PAIR(classifyQRSvar)
KELO_LIFECYCLE_PAIR(detectWaves)
KELO_LIFECYCLE_PAIR(refineQrsDetection)
}
