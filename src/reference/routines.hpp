// The straightforward forms of the analysis routines besides detection
// that the library computes in a faster way: the tests compare the
// library's routines with them bit for bit, and the benchmarks time them.
// Not part of the library.
#pragma once

#include <cstdint>
#include <span>

#include "hrv/hrv_internal.hpp"

namespace kelo::ref {

// ---- periodogram -----------------------------------------------------------

// The complex FFT (data.size() = 2 * a power of two) and the real FFT
// (a power of two >= 2) of 1-based data, stage by stage and twiddle by
// twiddle across the whole array.
void four1(hrv::OneBased<float> data, int isign);
void realft(hrv::OneBased<float> data, int isign);

// fasper's two grids through the plain real FFT, one after the other.
void grid_fft(hrv::OneBased<float> a, hrv::OneBased<float> b);

}  // namespace kelo::ref
