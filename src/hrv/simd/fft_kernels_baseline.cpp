// The FFT butterflies for the baseline path (2 doubles per vector).
#define KELO_SIMD_NAMESPACE baseline
#define KELO_SIMD_LANES 2
#include "hrv/simd/fft_kernels.inc"
