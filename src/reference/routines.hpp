// The straightforward forms of the analysis routines besides detection
// that the library computes in a faster way: the tests compare the
// library's routines with them bit for bit, and the benchmarks time them.
// Not part of the library.
#pragma once

#include <cstdint>
#include <span>

#include "hrv/hrv_internal.hpp"
#include "keloecgsolver/emx_array.h"

namespace kelo::ref {

// ---- periodogram -----------------------------------------------------------

// The complex FFT (data.size() = 2 * a power of two) and the real FFT
// (a power of two >= 2) of 1-based data, stage by stage and twiddle by
// twiddle across the whole array.
void four1(hrv::OneBased<float> data, int isign);
void realft(hrv::OneBased<float> data, int isign);

// fasper's two grids through the plain real FFT, one after the other.
void grid_fft(hrv::OneBased<float> a, hrv::OneBased<float> b);

// ---- RR interval checks ------------------------------------------------------

// checkRR, checkRRshort and checkRRvar (without the argument checks of the
// fixed-length ones), each removal sweep shifting the list down over every
// beat it removes.
void check_rr(const int32_t* beats, int32_t n, int32_t* classes, int32_t* cleanBeats, int32_t* cleanCount);
void check_rr_short(const int32_t* beats, int32_t n, int32_t* classes, int32_t* cleanBeats, int32_t* cleanCount);
void check_rr_var(emxArray_int32_T* beats, int32_t* n, emxArray_int32_T* classes);

// ---- missed-beat search ------------------------------------------------------

// refineQrsDetection (x, beatsIn and beatsOut of 36000 entries), clearing
// and scanning the candidate arrays whole for every gap.
void refine_qrs_detection(const double* x, const int32_t* beatsIn, int32_t n, int32_t fs, int32_t* beatsOut,
                          int32_t* count);

}  // namespace kelo::ref
