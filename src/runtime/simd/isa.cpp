// Choice of the instruction-set path. The processor's features are read on
// every call (a cheap lookup in what the run-time support library found at
// start-up), so nothing here holds state of its own.
#include "runtime/simd/isa.hpp"

#include <array>

namespace kelo::simd {

namespace baseline {
const Kernels& table() noexcept;
}
#if defined(KELO_SIMD_X86)
namespace avx2 {
const Kernels& table() noexcept;
}
namespace avx512 {
const Kernels& table() noexcept;
}
#endif

namespace {

bool runs(Isa isa) noexcept {
#if defined(KELO_SIMD_X86)
  switch (isa) {
    case Isa::Baseline: return true;
    case Isa::Avx2: return __builtin_cpu_supports("avx2");
    case Isa::Avx512: return __builtin_cpu_supports("avx512f");
  }
  return false;
#else
  return isa == Isa::Baseline;
#endif
}

constexpr std::array<Isa, 3> kAll{Isa::Baseline, Isa::Avx2, Isa::Avx512};

}  // namespace

Isa best_isa() noexcept {
  if (runs(Isa::Avx512)) return Isa::Avx512;
  if (runs(Isa::Avx2)) return Isa::Avx2;
  return Isa::Baseline;
}

std::span<const Isa> runnable_isas() noexcept {
  std::size_t count = 0;
  while (count < kAll.size() && runs(kAll[count])) ++count;
  return std::span<const Isa>(kAll).first(count);
}

const char* isa_name(Isa isa) noexcept {
  switch (isa) {
    case Isa::Baseline:
#if defined(KELO_SIMD_X86)
      return "x86-64 baseline (SSE2)";
#else
      return "portable";
#endif
    case Isa::Avx2: return "AVX2";
    case Isa::Avx512: return "AVX-512";
  }
  return "unknown";
}

const Kernels& kernels(Isa isa) noexcept {
#if defined(KELO_SIMD_X86)
  if (isa == Isa::Avx512 && runs(Isa::Avx512)) return avx512::table();
  if (isa == Isa::Avx2 && runs(Isa::Avx2)) return avx2::table();
#else
  (void)isa;
#endif
  return baseline::table();
}

}  // namespace kelo::simd
