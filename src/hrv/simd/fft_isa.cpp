// Choice of the FFT butterflies' instruction-set path.
#include <algorithm>

#include "hrv/simd/fft_kernels.hpp"

namespace kelo::hrv::simd {

namespace baseline {
const FftKernels& table() noexcept;
}
#if defined(KELO_SIMD_X86)
namespace avx2 {
const FftKernels& table() noexcept;
}
namespace avx512 {
const FftKernels& table() noexcept;
}
#endif

const FftKernels& fft_kernels(kelo::simd::Isa isa) noexcept {
#if defined(KELO_SIMD_X86)
  const auto runnable = kelo::simd::runnable_isas();
  if (std::find(runnable.begin(), runnable.end(), isa) != runnable.end()) {
    if (isa == kelo::simd::Isa::Avx512) return avx512::table();
    if (isa == kelo::simd::Isa::Avx2) return avx2::table();
  }
#else
  (void)isa;
#endif
  return baseline::table();
}

}  // namespace kelo::hrv::simd
