// The periodogram's fast FFTs against their plain form (src/reference), bit
// for bit, on every instruction-set path this processor runs: the complex
// and the real transform on generated data of every size class (NaN,
// infinities, signed zeros, overflowing and subnormal values included),
// two arrays at once against one by one, and the whole periodogram on the
// bundled recordings' beat lists and on generated series.
//
// A NaN compares equal to any NaN: which operand's payload an operation on
// two NaNs passes on is the processor's choice.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "hrv/hrv_internal.hpp"
#include "hrv/hrv_support.hpp"
#include "reference/routines.hpp"

namespace {

using kelo::hrv::OneBased;
using kelo::simd::Isa;

template <class T>
long first_difference(const std::vector<T>& a, const std::vector<T>& b) {
  using Bits = std::conditional_t<sizeof(T) == 4, uint32_t, uint64_t>;
  for (std::size_t k = 0; k < std::min(a.size(), b.size()); ++k)
    if (std::bit_cast<Bits>(a[k]) != std::bit_cast<Bits>(b[k]) && !(std::isnan(a[k]) && std::isnan(b[k])))
      return static_cast<long>(k);
  return a.size() == b.size() ? -1 : static_cast<long>(std::min(a.size(), b.size()));
}

#define EXPECT_SAME_BITS(a, b) EXPECT_EQ(first_difference(a, b), -1) << #a " vs " #b

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

enum class Fill { Normal, Special, Zeros, Extreme };

// 1-based data of n floats (element 0 unused).
std::vector<float> data(std::size_t n, Fill fill, uint32_t seed) {
  std::mt19937 rng(seed);
  std::normal_distribution<float> g(0.0f, 1.0f);
  std::uniform_int_distribution<int> pick(0, 15);
  std::vector<float> d(n + 1, 0.0f);
  for (std::size_t k = 1; k <= n; ++k) {
    d[k] = g(rng);
    const int p = pick(rng);
    switch (fill) {
      case Fill::Normal: break;
      case Fill::Special: if (p == 0) d[k] = kNaN; else if (p == 1) d[k] = kInf; else if (p == 2) d[k] = -kInf; break;
      case Fill::Zeros: d[k] = p < 8 ? 0.0f : -0.0f; break;
      case Fill::Extreme: d[k] *= p < 5 ? 3e38f : p < 10 ? 1e-40f : 1.0f; break;
    }
  }
  return d;
}

struct FftCase {
  std::size_t n;  // floats
  Fill fill;
  int isign;
};

std::vector<FftCase> fft_cases() {
  std::vector<FftCase> out;
  for (std::size_t n : {2, 4, 8, 16, 32, 64, 128, 512, 4096, 32768, 65536, 131072, 1 << 20})
    for (Fill fill : {Fill::Normal, Fill::Special, Fill::Zeros, Fill::Extreme})
      for (int isign : {1, -1})
        if (n <= 65536 || (fill == Fill::Normal && isign == 1)) out.push_back({n, fill, isign});
  out.push_back({64, Fill::Normal, 3});  // any sign factor scales the angle
  return out;
}

TEST(HrvFastPaths, TransformsMatchThePlainOnesOnEveryPath) {
  for (const FftCase& c : fft_cases()) {
    const std::vector<float> in = data(c.n, c.fill, static_cast<uint32_t>(c.n) + 7);
    std::vector<float> plainComplex = in, plainReal = in;
    kelo::ref::four1(OneBased<float>(plainComplex.data(), c.n), c.isign);
    kelo::ref::realft(OneBased<float>(plainReal.data(), c.n), c.isign);
    for (Isa isa : kelo::simd::runnable_isas()) {
      SCOPED_TRACE(testing::Message() << "n " << c.n << " fill " << int(c.fill) << " isign " << c.isign
                                      << " path " << kelo::simd::isa_name(isa));
      std::vector<float> a = in, b = in, r = in;
      float* const pair[] = {a.data() + 1, b.data() + 1};
      kelo::hrv::four1(pair, c.n, c.isign, isa);
      EXPECT_SAME_BITS(a, plainComplex);
      EXPECT_SAME_BITS(b, plainComplex);
      float* const one[] = {r.data() + 1};
      kelo::hrv::realft(one, c.n, c.isign, isa);
      EXPECT_SAME_BITS(r, plainReal);
    }
  }
}

// Amplitudes of the periodogram of a beat list (1-based frequencies and
// amplitudes of the library's grid) through a given grid transform.
struct Spectrum {
  std::vector<double> freq, amp;
};

Spectrum periodogram(const kelo::test::Series& s, const kelo::hrv::GridFft& fft) {
  Spectrum out{std::vector<double>(2 * s.t.size()), std::vector<double>(2 * s.t.size())};
  kelo::hrv::lomb_amplitudes(s.t, s.rr, out.freq, out.amp, fft);
  return out;
}

struct SeriesCase {
  std::string name;
  kelo::test::Series series;
};

std::vector<SeriesCase> series_cases() {
  using namespace kelo::test;
  std::vector<SeriesCase> out;
  out.push_back({"mitdb100 5 min", rr_series(read_beats("hrv/mitdb100_5min.beats.txt"))});
  for (const char* r : {"100", "119", "203"})
    out.push_back({std::string("detect ") + r, rr_series(read_beats(std::string("detect/") + r + ".beats.txt"))});
  std::mt19937 rng(99);
  std::uniform_int_distribution<int32_t> rr(40, 400);  // irregular: 0.2 to 2 s
  for (std::size_t beats : {4, 5, 9, 600, 10000}) {
    Beats b{100};
    while (b.size() < beats) b.push_back(b.back() + rr(rng));
    out.push_back({"irregular " + std::to_string(beats), rr_series(b)});
  }
  Series special = rr_series(modulated_beats(0.1, 0.1, 300.0, 200));
  special.rr[17] = std::numeric_limits<double>::quiet_NaN();
  special.t[40] = std::numeric_limits<double>::infinity();
  out.push_back({"NaN and infinity", special});
  return out;
}

TEST(HrvFastPaths, PeriodogramMatchesThePlainTransformOnEveryPath) {
  for (const SeriesCase& c : series_cases()) {
    ASSERT_GE(c.series.t.size(), 3u) << c.name;
    const Spectrum plain = periodogram(c.series, kelo::ref::grid_fft);
    for (Isa isa : kelo::simd::runnable_isas()) {
      SCOPED_TRACE(c.name + " on " + kelo::simd::isa_name(isa));
      const Spectrum fast = periodogram(c.series, [isa](OneBased<float> a, OneBased<float> b) {
        float* const grids[] = {&a[1], &b[1]};
        kelo::hrv::realft(grids, a.size(), 1, isa);
      });
      EXPECT_SAME_BITS(fast.freq, plain.freq);
      EXPECT_SAME_BITS(fast.amp, plain.amp);
    }
    EXPECT_SAME_BITS(periodogram(c.series, {}).amp, plain.amp) << c.name << ": the library's default";
  }
}

}  // namespace
