// Non-finite constants, their predicates and the safe power function.
#include "keloecgsolver/rt_nonfinite.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace {

constexpr uint32_t kInfHigh = 0x7FF00000u;
constexpr uint32_t kMinusInfHigh = 0xFFF00000u;
constexpr uint32_t kNaNHigh = 0xFFF80000u;  // quiet NaN with the sign bit set

// Builds a double from its high and low 32-bit words in the machine's own
// byte order, found at run time from the first byte of the 16-bit value 1.
double from_words(uint32_t high, uint32_t low) {
  const uint16_t one = 1;
  unsigned char first = 0;
  std::memcpy(&first, &one, 1);
  uint32_t words[2];
  if (first == 1) {  // little-endian: low word first
    words[0] = low;
    words[1] = high;
  } else {
    words[0] = high;
    words[1] = low;
  }
  double value;
  std::memcpy(&value, words, sizeof value);
  return value;
}

// Stores value into a constant only when its bits differ. The constants
// start out right, so the initialisers that every entry point calls (from
// any number of threads at once) normally only read them: no thread writes
// while another reads, unless a caller has overwritten a constant.
template <class T>
void set_bits(T& constant, T value) {
  // The bits, NaN payload and sign of zero included, are what is compared.
  // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison)
  if (std::memcmp(&constant, &value, sizeof value) != 0) constant = value;
}

}  // namespace

extern "C" {

// The constants already hold their values before any initialiser runs, so
// that a caller who forgets an *_initialize call still gets correct
// results; rt_InitInfAndNaN rewrites the same bits.
KELO_API double rtInf = std::bit_cast<double>(uint64_t{0x7FF0000000000000});
KELO_API double rtMinusInf = std::bit_cast<double>(uint64_t{0xFFF0000000000000});
KELO_API double rtNaN = std::bit_cast<double>(uint64_t{0xFFF8000000000000});
KELO_API float rtInfF = std::bit_cast<float>(uint32_t{0x7F800000});
KELO_API float rtMinusInfF = std::bit_cast<float>(uint32_t{0xFF800000});
KELO_API float rtNaNF = std::bit_cast<float>(uint32_t{0xFFC00000});

KELO_API float rtGetInfF(void) { return std::bit_cast<float>(uint32_t{0x7F800000}); }
KELO_API float rtGetMinusInfF(void) { return std::bit_cast<float>(uint32_t{0xFF800000}); }
KELO_API float rtGetNaNF(void) { return std::bit_cast<float>(uint32_t{0xFFC00000}); }

// A double is 64 bits wide on every supported platform; the 32-bit branch
// of the original design (widening the float constant) is never taken.
KELO_API double rtGetInf(void) { return from_words(kInfHigh, 0); }
KELO_API double rtGetMinusInf(void) { return from_words(kMinusInfHigh, 0); }
KELO_API double rtGetNaN(void) { return from_words(kNaNHigh, 0); }

KELO_API void rt_InitInfAndNaN(size_t realSize) {
  (void)realSize;
  set_bits(rtNaN, rtGetNaN());
  set_bits(rtNaNF, rtGetNaNF());
  set_bits(rtInf, rtGetInf());
  set_bits(rtInfF, rtGetInfF());
  set_bits(rtMinusInf, rtGetMinusInf());
  set_bits(rtMinusInfF, rtGetMinusInfF());
}

KELO_API bool rtIsInf(double value) { return value == rtInf || value == rtMinusInf; }
KELO_API bool rtIsInfF(float value) { return value == rtInfF || value == rtMinusInfF; }
KELO_API bool rtIsNaN(double value) { return value != value; }
KELO_API bool rtIsNaNF(float value) { return value != value; }

KELO_API double rt_pow_snf(double u0, double u1) {
  if (rtIsNaN(u0) || rtIsNaN(u1)) return rtNaN;
  const double a0 = std::fabs(u0);
  const double a1 = std::fabs(u1);
  if (rtIsInf(u1)) {
    if (a0 == 1.0) return rtNaN;
    if (a0 > 1.0) return u1 > 0.0 ? rtInf : 0.0;
    return u1 > 0.0 ? 0.0 : rtInf;
  }
  if (a1 == 0.0) return 1.0;
  if (a1 == 1.0) return u1 > 0.0 ? u0 : 1.0 / u0;
  if (u1 == 2.0) return u0 * u0;
  if (u1 == 0.5 && u0 >= 0.0) return std::sqrt(u0);
  if (u0 < 0.0 && u1 > std::floor(u1)) return rtNaN;
  return std::pow(u0, u1);
}

}  // extern "C"
