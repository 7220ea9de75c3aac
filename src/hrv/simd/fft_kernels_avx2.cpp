// The FFT butterflies for the avx2 path (4 doubles per vector).
#define KELO_SIMD_NAMESPACE avx2
#define KELO_SIMD_LANES 4
#include "hrv/simd/fft_kernels.inc"
