// The periodogram's radix-2 FFTs in their plain form: complex
// (Danielson-Lanczos with a bit-reversal pass, stage by stage, each stage
// twiddle by twiddle) and real-input (one complex FFT of half the length,
// then the split into the spectrum of the real series). Data are single
// precision, indexed from 1; the twiddle factors follow double-precision
// trigonometric recurrences.
#include <cmath>
#include <cstdint>
#include <utility>

#include "reference/routines.hpp"

namespace kelo::ref {
namespace {

// The angle literals are kept exactly: 2 pi is deliberately not the double
// nearest to it, and the twiddle factors depend on the last digit.
constexpr double kTwoPi = 6.28318530717959;
constexpr double kPi = 3.141592653589793;

// Advances (wr, wi) by the rotation (1 + wpr, wpi): w <- w + w (wpr + i wpi).
void rotate(double& wr, double& wi, double wpr, double wpi) {
  const double wtemp = wr;
  wr = wtemp * wpr - wi * wpi + wr;
  wi = wi * wpr + wtemp * wpi + wi;
}

void bit_reverse(hrv::OneBased<float> data, std::size_t nn) {
  const std::size_t n = nn << 1;
  std::size_t j = 1;
  for (std::size_t i = 1; i < n; i += 2) {
    if (j > i) {
      std::swap(data[j], data[i]);
      std::swap(data[j + 1], data[i + 1]);
    }
    std::size_t m = nn;
    while (m >= 2 && j > m) {
      j -= m;
      m >>= 1;
    }
    j += m;
  }
}

}  // namespace

void four1(hrv::OneBased<float> data, int isign) {
  const std::size_t n = data.size();
  const std::size_t nn = n >> 1;
  bit_reverse(data, nn);
  for (std::size_t mmax = 2; n > mmax; mmax <<= 1) {
    const std::size_t istep = mmax << 1;
    const double theta = isign * (kTwoPi / static_cast<double>(mmax));
    const double wtemp = std::sin(0.5 * theta);
    const double wpr = -2.0 * wtemp * wtemp;
    const double wpi = std::sin(theta);
    double wr = 1.0;
    double wi = 0.0;
    for (std::size_t m = 1; m < mmax; m += 2) {
      for (std::size_t i = m; i <= n; i += istep) {
        const std::size_t j = i + mmax;
        const float tempr = static_cast<float>(wr * data[j] - wi * data[j + 1]);
        const float tempi = static_cast<float>(wr * data[j + 1] + wi * data[j]);
        data[j] = data[i] - tempr;
        data[j + 1] = data[i + 1] - tempi;
        data[i] += tempr;
        data[i + 1] += tempi;
      }
      rotate(wr, wi, wpr, wpi);
    }
  }
}

void realft(hrv::OneBased<float> data, int isign) {
  const std::size_t n = data.size();
  const float c1 = 0.5f;
  float c2;
  double theta = kPi / static_cast<double>(n >> 1);
  if (isign == 1) {
    c2 = -0.5f;
    four1(data, 1);
  } else {
    c2 = 0.5f;
    theta = -theta;
  }
  const double wtemp = std::sin(0.5 * theta);
  const double wpr = -2.0 * wtemp * wtemp;
  const double wpi = std::sin(theta);
  double wr = 1.0 + wpr;
  double wi = wpi;
  const std::size_t np3 = n + 3;
  for (std::size_t i = 2; i <= (n >> 2); ++i) {
    const std::size_t i1 = i + i - 1;
    const std::size_t i2 = 1 + i1;
    const std::size_t i3 = np3 - i2;
    const std::size_t i4 = 1 + i3;
    const float h1r = c1 * (data[i1] + data[i3]);
    const float h1i = c1 * (data[i2] - data[i4]);
    const float h2r = -c2 * (data[i2] + data[i4]);
    const float h2i = c2 * (data[i1] - data[i3]);
    data[i1] = static_cast<float>(h1r + wr * h2r - wi * h2i);
    data[i2] = static_cast<float>(h1i + wr * h2i + wi * h2r);
    data[i3] = static_cast<float>(h1r - wr * h2r + wi * h2i);
    data[i4] = static_cast<float>(-h1i + wr * h2i + wi * h2r);
    rotate(wr, wi, wpr, wpi);
  }
  const float h1r = data[1];
  if (isign == 1) {
    data[1] = h1r + data[2];
    data[2] = h1r - data[2];
  } else {
    data[1] = c1 * (h1r + data[2]);
    data[2] = c1 * (h1r - data[2]);
    four1(data, -1);
  }
}

void grid_fft(hrv::OneBased<float> a, hrv::OneBased<float> b) {
  realft(a, 1);
  realft(b, 1);
}

}  // namespace kelo::ref
