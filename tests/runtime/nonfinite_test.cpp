// Non-finite constants, predicates, the safe power function and the life
// cycle of the entry points.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <functional>
#include <vector>

#include "keloecgsolver/lifecycle.h"
#include "keloecgsolver/rt_nonfinite.h"

namespace {

uint64_t bits(double v) { return std::bit_cast<uint64_t>(v); }
uint32_t bits(float v) { return std::bit_cast<uint32_t>(v); }

TEST(NonFinite, ConstantsCarryTheirExactBitPatterns) {
  rt_InitInfAndNaN(8);
  EXPECT_EQ(bits(rtInf), 0x7FF0000000000000u);
  EXPECT_EQ(bits(rtMinusInf), 0xFFF0000000000000u);
  EXPECT_EQ(bits(rtNaN), 0xFFF8000000000000u);
  EXPECT_EQ(bits(rtInfF), 0x7F800000u);
  EXPECT_EQ(bits(rtMinusInfF), 0xFF800000u);
  EXPECT_EQ(bits(rtNaNF), 0xFFC00000u);
  EXPECT_EQ(bits(rtGetNaN()), 0xFFF8000000000000u);
  EXPECT_EQ(bits(rtGetNaNF()), 0xFFC00000u);
  EXPECT_EQ(bits(rtGetInf()), 0x7FF0000000000000u);
  EXPECT_EQ(bits(rtGetMinusInfF()), 0xFF800000u);
}

TEST(NonFinite, Predicates) {
  EXPECT_TRUE(rtIsInf(rtInf));
  EXPECT_TRUE(rtIsInf(rtMinusInf));
  EXPECT_FALSE(rtIsInf(rtNaN));
  EXPECT_FALSE(rtIsInf(1e308));
  EXPECT_TRUE(rtIsNaN(rtNaN));
  EXPECT_TRUE(rtIsNaN(std::nan("")));
  EXPECT_FALSE(rtIsNaN(rtInf));
  EXPECT_TRUE(rtIsInfF(rtMinusInfF));
  EXPECT_FALSE(rtIsInfF(rtNaNF));
  EXPECT_TRUE(rtIsNaNF(rtNaNF));
  EXPECT_FALSE(rtIsNaNF(0.0f));
}

struct PowCase {
  double base, exponent, expected;
};

TEST(NonFinite, PowSpecialCasesInOrder) {
  const double inf = rtInf, nan = rtNaN;
  const std::vector<PowCase> cases = {
      {nan, 0.0, nan},     // the NaN test comes before the zero-exponent rule
      {5.0, nan, nan},     {5.0, 0.0, 1.0},      {0.0, 0.0, 1.0},    {inf, -0.0, 1.0},
      {1.0, inf, nan},     {-1.0, -inf, nan},    {2.0, -inf, 0.0},   {2.0, inf, inf},
      {0.5, -inf, inf},    {0.5, inf, 0.0},      {-0.5, inf, 0.0},   {-8.0, 1.0 / 3.0, nan},
      {-8.0, 3.0, -512.0}, {-4.0, 0.5, nan},     {4.0, 0.5, 2.0},    {3.0, 2.0, 9.0},
      {0.0, -1.0, inf},    {-0.0, -1.0, -inf},   {4.0, -1.0, 0.25},  {7.0, 1.0, 7.0},
      {2.0, 10.0, 1024.0}, {-2.0, -2.0, 0.25},
  };
  for (const auto& c : cases) {
    const double got = rt_pow_snf(c.base, c.exponent);
    if (std::isnan(c.expected))
      EXPECT_TRUE(std::isnan(got)) << c.base << " ^ " << c.exponent << " = " << got;
    else
      EXPECT_EQ(got, c.expected) << c.base << " ^ " << c.exponent;
  }
  // The NaN produced by the special cases is the library's own (sign set).
  EXPECT_EQ(bits(rt_pow_snf(1.0, inf)), 0xFFF8000000000000u);
  // 0.5 uses the square root, other exponents the platform pow.
  EXPECT_EQ(bits(rt_pow_snf(2.0, 0.5)), bits(std::sqrt(2.0)));
  EXPECT_EQ(bits(rt_pow_snf(1.1, 3.0)), bits(std::pow(1.1, 3.0)));
}

TEST(LifeCycle, EveryInitialiserRestoresTheConstants) {
  const std::vector<std::pair<const char*, std::function<void()>>> initialisers = {
      {"calcHR", calcHR_initialize},
      {"calcHRshort", calcHRshort_initialize},
      {"calcHRvar", calcHRvar_initialize},
      {"checkQuality", checkQuality_initialize},
      {"checkQualityShort", checkQualityShort_initialize},
      {"checkRR", checkRR_initialize},
      {"checkRRshort", checkRRshort_initialize},
      {"checkRRvar", checkRRvar_initialize},
      {"classifyQRS", classifyQRS_initialize},
      {"classifyQRSshort", classifyQRSshort_initialize},
      {"classifyQRSvar", classifyQRSvar_initialize},
      {"detectWaves", detectWaves_initialize},
      {"refineQrsDetection", refineQrsDetection_initialize},
  };
  for (const auto& [name, init] : initialisers) {
    rtInf = rtMinusInf = rtNaN = 0.0;
    rtInfF = rtMinusInfF = rtNaNF = 0.0f;
    init();
    EXPECT_EQ(bits(rtInf), 0x7FF0000000000000u) << name;
    EXPECT_EQ(bits(rtMinusInf), 0xFFF0000000000000u) << name;
    EXPECT_EQ(bits(rtNaN), 0xFFF8000000000000u) << name;
    EXPECT_EQ(bits(rtNaNF), 0xFFC00000u) << name;
    EXPECT_EQ(bits(rtMinusInfF), 0xFF800000u) << name;
    EXPECT_EQ(bits(rtInfF), 0x7F800000u) << name;
  }
  // Terminators do nothing, and calling an initialiser twice is harmless.
  detectWaves_terminate();
  refineQrsDetection_terminate();
  calcHR_initialize();
  calcHR_initialize();
  EXPECT_TRUE(rtIsInf(rtInf));
}

}  // namespace
