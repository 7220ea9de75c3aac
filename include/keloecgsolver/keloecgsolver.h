/* libkeloecgsolver: analysis of single-lead ECG recordings.
   Umbrella header: includes every public header of the library. */
#ifndef KELOECGSOLVER_H
#define KELOECGSOLVER_H

#include "keloecgsolver/detect.h"
#include "keloecgsolver/emx_array.h"
#include "keloecgsolver/heart_rate.h"
#include "keloecgsolver/kernels.h"
#include "keloecgsolver/lifecycle.h"
#include "keloecgsolver/rt_nonfinite.h"

#endif
