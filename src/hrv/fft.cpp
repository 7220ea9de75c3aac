// Radix-2 FFTs of the periodogram: complex (Danielson-Lanczos after a
// bit-reversal pass) and real-input (one complex FFT of half the length,
// then the split into the spectrum of the real series). Data are single
// precision, indexed from 1; the twiddle factors follow double-precision
// trigonometric recurrences, one step per butterfly of a stage.
//
// Every butterfly gets the operands and the twiddle factor of the plain
// transform (src/reference/fft.cpp), so the bits are the same; what differs
// is the order in which the independent butterflies of a stage run:
// - the bit reversal moves tiles of 16 x 16 values (rows of consecutive
//   values) instead of single values at random places;
// - the first stages run on one block of values at a time, which stays in
//   the cache, with their twiddle factors worked out once into a table;
// - the later stages run block by block, a chunk of twiddle factors at a
//   time, instead of twiddle by twiddle across the whole array;
// - the butterflies of a stage run one per vector lane (hrv/simd);
// - the periodogram's two grids share every twiddle factor.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "hrv/hrv_internal.hpp"
#include "hrv/simd/fft_kernels.hpp"
#include "keloecgsolver/hrv.h"

namespace kelo::hrv {
namespace {

// The angle literals are kept exactly: 2 pi is deliberately not the double
// nearest to it, and the twiddle factors depend on the last digit.
constexpr double kTwoPi = 6.28318530717959;
constexpr double kPi = 3.141592653589793;

// Complex values of a block whose stages run together: 16 KB of floats,
// inside the first-level cache, and 512 KB, inside the second-level one
// (used for transforms above that size, whose twiddle table, 2 MB, is then
// small beside them). Twiddle factors per chunk of a later stage.
constexpr std::size_t kSmallValues = std::size_t{1} << 11;
constexpr std::size_t kLargeValues = std::size_t{1} << 16;
constexpr std::size_t kChunk = 512;

bool is_power_of_two(std::size_t v) { return v != 0 && (v & (v - 1)) == 0; }

// Advances (wr, wi) by the rotation (1 + wpr, wpi): w <- w + w (wpr + i wpi).
void rotate(double& wr, double& wi, double wpr, double wpi) {
  const double wtemp = wr;
  wr = wtemp * wpr - wi * wpi + wr;
  wi = wi * wpr + wtemp * wpi + wi;
}

// Twiddle factors by the recurrence, in the order of use.
class Twiddles {
 public:
  // Rotation by the angle theta from the factor (wr, wi).
  Twiddles(double theta, double wr, double wi) : wr_(wr), wi_(wi) {
    const double wtemp = std::sin(0.5 * theta);
    wpr_ = -2.0 * wtemp * wtemp;
    wpi_ = std::sin(theta);
  }
  // The stage whose blocks hold 2h values, from (1, 0).
  static Twiddles stage(std::size_t h, int isign) {
    return {isign * (kTwoPi / static_cast<double>(2 * h)), 1.0, 0.0};
  }
  double wpr() const { return wpr_; }
  double wpi() const { return wpi_; }
  // The next count factors into wr2, wi2 (2 count entries each), in the
  // kernels' form: (wr, wr) and (-wi, wi).
  void next(std::size_t count, double* wr2, double* wi2) {
    for (std::size_t c = 0; c < count; ++c) {
      wr2[2 * c] = wr_;
      wr2[2 * c + 1] = wr_;
      wi2[2 * c] = -wi_;
      wi2[2 * c + 1] = wi_;
      rotate(wr_, wi_, wpr_, wpi_);
    }
  }

 private:
  double wr_;
  double wi_;
  double wpr_;
  double wpi_;
};

using Value = uint64_t;  // one complex value: two floats, moved as a whole

Value get(const float* d, std::size_t k) {
  Value v;
  std::memcpy(&v, d + 2 * k, sizeof v);
  return v;
}

void put(float* d, std::size_t k, Value v) { std::memcpy(d + 2 * k, &v, sizeof v); }

std::size_t reverse_bits(std::size_t v, unsigned bits) {
  std::size_t r = 0;
  for (unsigned b = 0; b < bits; ++b, v >>= 1) r = (r << 1) | (v & 1);
  return r;
}

// Value k goes to place reverse(k) (log2 nn bits), value by value.
void bit_reverse_plain(float* d, std::size_t nn, unsigned bits) {
  for (std::size_t k = 0; k < nn; ++k) {
    const std::size_t r = reverse_bits(k, bits);
    if (r > k) {
      const Value a = get(d, k);
      put(d, k, get(d, r));
      put(d, r, a);
    }
  }
}

// The same permutation by tiles. With k = (a, m, c) split into its top
// kTileBits, middle and bottom kTileBits, reverse(k) = (rev c, rev m,
// rev a): the values of middle m, all a and c (16 rows of 16 consecutive
// values) go to the places of middle rev m, transposed. Middles m and
// rev m swap their tiles; a middle that is its own reverse transposes its
// tile in place.
constexpr unsigned kTileBits = 4;
constexpr std::size_t kTile = std::size_t{1} << kTileBits;

void bit_reverse(float* d, std::size_t nn) {
  unsigned bits = 0;
  while ((std::size_t{1} << bits) < nn) ++bits;
  if (bits < 2 * kTileBits + 2) {
    bit_reverse_plain(d, nn, bits);
    return;
  }
  const unsigned middleBits = bits - 2 * kTileBits;
  const unsigned topShift = bits - kTileBits;
  std::size_t rev[kTile];
  for (std::size_t c = 0; c < kTile; ++c) rev[c] = reverse_bits(c, kTileBits);
  Value tileA[kTile][kTile];
  Value tileB[kTile][kTile];
  const auto place = [&](std::size_t a, std::size_t m, std::size_t c) {
    return (a << topShift) | (m << kTileBits) | c;
  };
  for (std::size_t m = 0; m < (std::size_t{1} << middleBits); ++m) {
    const std::size_t mr = reverse_bits(m, middleBits);
    if (mr < m) continue;
    for (std::size_t a = 0; a < kTile; ++a)
      std::memcpy(tileA[a], d + 2 * place(a, m, 0), sizeof tileA[a]);
    if (mr != m)
      for (std::size_t a = 0; a < kTile; ++a)
        std::memcpy(tileB[a], d + 2 * place(a, mr, 0), sizeof tileB[a]);
    // Value (a, m, c) goes to (rev c, mr, rev a), and (a, mr, c) to
    // (rev c, m, rev a): row x of middle mr takes column rev x of tile A,
    // its value y from row rev y; row x of middle m likewise from tile B.
    Value row[kTile];
    for (std::size_t x = 0; x < kTile; ++x) {
      for (std::size_t y = 0; y < kTile; ++y) row[y] = tileA[rev[y]][rev[x]];
      std::memcpy(d + 2 * place(x, mr, 0), row, sizeof row);
    }
    if (mr != m)
      for (std::size_t x = 0; x < kTile; ++x) {
        for (std::size_t y = 0; y < kTile; ++y) row[y] = tileB[rev[y]][rev[x]];
        std::memcpy(d + 2 * place(x, m, 0), row, sizeof row);
      }
  }
}

// The block sizes (in values) whose stages run one block at a time: one
// that fits the first-level cache, and for transforms too large for the
// second-level cache, one that fits it in turn.
std::size_t inner_block(std::size_t nn) {
  if (nn > kLargeValues) return kLargeValues;
  return std::min(nn, kSmallValues);
}

// The stages of the complex transform of the arrays (n floats each, n / 2
// a power of two), after the bit reversal.
void stages(std::span<float* const> arrays, std::size_t n, int isign, const simd::FftKernels& k) {
  const std::size_t nn = n >> 1;
  std::size_t h = 1;
  // The stages below `block`, block by block (and small block by small
  // block inside), with tables of their twiddle factors (stage s at entry
  // 2 (s - 1)). Without memory for the tables every stage goes the chunked
  // way below, which gives the same bits.
  const std::size_t block = inner_block(nn);
  if (block >= 2) {
    const std::unique_ptr<double[]> table(new (std::nothrow) double[4 * block]);
    if (table) {
      double* wr2 = table.get();
      double* wi2 = wr2 + 2 * block;
      const auto at = [](std::size_t s) { return 2 * (s - 1); };
      for (std::size_t s = 1; s < block; s <<= 1) Twiddles::stage(s, isign).next(s, wr2 + at(s), wi2 + at(s));
      const std::size_t small = std::min(block, kSmallValues);
      for (float* d : arrays)
        for (std::size_t first = 0; first < nn; first += block) {
          for (std::size_t sub = first; sub < first + block; sub += small)
            for (std::size_t s = 1; s < small; s <<= 1)
              k.stage(d + 2 * sub, 2 * small, s, 0, s, wr2 + at(s), wi2 + at(s));
          for (std::size_t s = small; s < block; s <<= 1)
            k.stage(d + 2 * first, 2 * block, s, 0, s, wr2 + at(s), wi2 + at(s));
        }
      h = block;
    }
  }
  // The remaining stages across the whole arrays, a chunk of twiddle
  // factors at a time.
  double wr2[2 * kChunk];
  double wi2[2 * kChunk];
  for (; h < nn; h <<= 1) {
    Twiddles twiddles = Twiddles::stage(h, isign);
    for (std::size_t k0 = 0; k0 < h; k0 += kChunk) {
      const std::size_t k1 = std::min(h, k0 + kChunk);
      twiddles.next(k1 - k0, wr2, wi2);
      for (float* d : arrays) k.stage(d, n, h, k0, k1, wr2, wi2);
    }
  }
}

}  // namespace

void four1(std::span<float* const> arrays, std::size_t n, int isign, kelo::simd::Isa isa) {
  for (float* d : arrays) bit_reverse(d, n >> 1);
  stages(arrays, n, isign, simd::fft_kernels(isa));
}

void realft(std::span<float* const> arrays, std::size_t n, int isign, kelo::simd::Isa isa) {
  const float c1 = 0.5f;
  float c2;
  double theta = kPi / static_cast<double>(n >> 1);
  if (isign == 1) {
    c2 = -0.5f;
    four1(arrays, n, 1, isa);
  } else {
    c2 = 0.5f;
    theta = -theta;
  }
  // The split from both ends towards the middle, a chunk of twiddle
  // factors at a time (the first factor is the rotation itself).
  Twiddles probe(theta, 1.0, 0.0);
  Twiddles twiddles(theta, 1.0 + probe.wpr(), probe.wpi());
  const simd::FftKernels& k = simd::fft_kernels(isa);
  double wr2[2 * kChunk];
  double wi2[2 * kChunk];
  for (std::size_t i = 2; i <= (n >> 2); i += kChunk) {
    const std::size_t count = std::min(kChunk, (n >> 2) - i + 1);
    twiddles.next(count, wr2, wi2);
    for (float* data : arrays) k.split(data, n, i, count, c1, c2, wr2, wi2);
  }
  for (float* data : arrays) {
    const float h1r = data[0];
    if (isign == 1) {
      data[0] = h1r + data[1];
      data[1] = h1r - data[1];
    } else {
      data[0] = c1 * (h1r + data[1]);
      data[1] = c1 * (h1r - data[1]);
    }
  }
  if (isign != 1) four1(arrays, n, -1, isa);
}

}  // namespace kelo::hrv

extern "C" {

KELO_API void realft(float data[], unsigned long n, int isign) {
  using kelo::hrv::is_power_of_two;
  if (data == nullptr || n < 2 || !is_power_of_two(n) || n > (SIZE_MAX >> 2)) return;
  float* const arrays[] = {data + 1};
  kelo::hrv::realft(arrays, n, isign, kelo::simd::best_isa());
}

KELO_API void four1(float data[], unsigned long nn, int isign) {
  using kelo::hrv::is_power_of_two;
  if (data == nullptr || !is_power_of_two(nn) || nn > (SIZE_MAX >> 2)) return;
  float* const arrays[] = {data + 1};
  kelo::hrv::four1(arrays, nn << 1, isign, kelo::simd::best_isa());
}

}  // extern "C"
