/* libkeloecgsolver: analysis of single-lead ECG recordings.
   Umbrella header: includes every public header of the library except
   hrv_diagnostics.h, whose `error` would clash with the C library's
   <error.h>; include that one explicitly when you need it.

   Threads: every function may run on several threads at once, with the
   results of one call after the other, as long as two calls that run at
   the same time do not write the same array (or one write what the other
   reads). The library starts no thread and takes no lock. The one shared
   value is the global pwr of hrv.h, which only callers read.

   Failures: no function ends the process or lets an exception out. When
   memory runs out a function returns its documented failure result
   (stated next to each declaration: an empty record, NaN, a status, a
   count of -1) and leaves nothing allocated. */
#ifndef KELOECGSOLVER_H
#define KELOECGSOLVER_H

#include "keloecgsolver/beats.h"
#include "keloecgsolver/checks.h"
#include "keloecgsolver/classify.h"
#include "keloecgsolver/detect.h"
#include "keloecgsolver/emx_array.h"
#include "keloecgsolver/grades.h"
#include "keloecgsolver/heart_rate.h"
#include "keloecgsolver/hrv.h"
#include "keloecgsolver/kernels.h"
#include "keloecgsolver/lifecycle.h"
#include "keloecgsolver/rt_nonfinite.h"
#include "keloecgsolver/version.h"

#endif
