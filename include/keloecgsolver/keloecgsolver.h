/* libkeloecgsolver: analysis of single-lead ECG recordings.
   Umbrella header: includes every public header of the library except
   hrv_diagnostics.h, whose `error` would clash with the C library's
   <error.h>; include that one explicitly when you need it. */
#ifndef KELOECGSOLVER_H
#define KELOECGSOLVER_H

#include "keloecgsolver/beats.h"
#include "keloecgsolver/checks.h"
#include "keloecgsolver/classify.h"
#include "keloecgsolver/detect.h"
#include "keloecgsolver/emx_array.h"
#include "keloecgsolver/heart_rate.h"
#include "keloecgsolver/hrv.h"
#include "keloecgsolver/kernels.h"
#include "keloecgsolver/lifecycle.h"
#include "keloecgsolver/rt_nonfinite.h"

#endif
