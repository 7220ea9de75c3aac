// The FFT butterflies for the avx512 path (8 doubles per vector).
#define KELO_SIMD_NAMESPACE avx512
#define KELO_SIMD_LANES 8
#include "hrv/simd/fft_kernels.inc"
