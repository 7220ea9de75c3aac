// Butterflies of the periodogram's radix-2 FFT, compiled once per
// instruction-set path (AVX-512, AVX2 and the x86-64 baseline on x86, the
// portable build elsewhere) like the kernels of runtime/simd. Each lane does
// exactly the scalar operations of one butterfly: the twiddle products in
// double precision rounded to single, then the single-precision sums. The
// butterflies of one stage are independent of each other, so any order
// gives the same bits.
#pragma once

#include <cstddef>

#include "runtime/simd/isa.hpp"

namespace kelo::hrv::simd {

// Twiddle factors go in as two arrays with two entries per butterfly:
// wr2 = (wr, wr) and wi2 = (-wi, wi). With the bottom value (re, im) and
// its swap (im, re), wr2 * (re, im) + wi2 * (im, re) is then (wr re - wi im,
// wr im + wi re) with the bits of the plain products and sums: x - y is
// x + (-y), and (-wi) im is -(wi im) in the default rounding mode.
struct FftKernels {
  // One stage over the complex values d[0 .. n/2) (n floats, real and
  // imaginary parts interleaved, n a multiple of 4h): in every block of 2h
  // values, butterfly k (k0 <= k < k1 <= h) pairs value k with value k + h
  // under the twiddle factor (wr, wi) at entries 2 (k - k0), 2 (k - k0) + 1
  // of wr2, wi2:
  //   tr = float(wr * re[k+h] - wi * im[k+h]),  ti = float(wr * im[k+h] + wi * re[k+h]),
  //   value k + h = value k - (tr, ti),  value k = value k + (tr, ti).
  void (*stage)(float* d, std::size_t n, std::size_t h, std::size_t k0, std::size_t k1, const double* wr2,
                const double* wi2);
  // The split that turns the complex transform of the n floats at d into
  // the spectrum of the real series, for i = i0 .. i0 + count - 1 (2 <= i
  // <= n / 4): with f = d + 2 (i - 1), g = d + n + 2 - 2i and the twiddle
  // factor (wr, wi) at entries 2 (i - i0), 2 (i - i0) + 1 of wr2, wi2,
  //   h1r = c1 (f0 + g0), h1i = c1 (f1 - g1), h2r = -c2 (f1 + g1), h2i = c2 (f0 - g0),
  //   f0 = float(h1r + wr h2r - wi h2i),  f1 = float(h1i + wr h2i + wi h2r),
  //   g0 = float(h1r - wr h2r + wi h2i),  g1 = float(-h1i + wr h2i + wi h2r).
  void (*split)(float* d, std::size_t n, std::size_t i0, std::size_t count, float c1, float c2,
                const double* wr2, const double* wi2);
};

// The kernels of a path; a path this processor cannot run falls back to
// the baseline.
const FftKernels& fft_kernels(kelo::simd::Isa isa) noexcept;

}  // namespace kelo::hrv::simd
