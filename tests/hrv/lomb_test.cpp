// Lomb periodogram: the real FFT against direct sums, the extirpolation
// weights, the frequency grid, and the fast periodogram against a direct
// evaluation of the normalised Lomb-Scargle periodogram.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <vector>

#include "hrv/hrv_support.hpp"

namespace {

using namespace kelo::test;

// The forward real transform runs the complex one forward, the inverse runs
// it backward: both directions are checked through it.
TEST(LombFft, RealTransformPacksTheSpectrumAndInverts) {
  const std::size_t n = 128;
  std::vector<float> data(n + 1, 0.0f);  // 1-based
  for (std::size_t m = 0; m < n; ++m) data[m + 1] = static_cast<float>(std::sin(0.1 * m * m));
  const std::vector<float> v = data;
  realft(data.data(), n, 1);
  for (std::size_t k = 0; k <= n / 2; ++k) {  // F_k = sum_m v_m exp(+2 pi i km / n)
    std::complex<double> f = 0.0;
    for (std::size_t m = 0; m < n; ++m) f += double(v[m + 1]) * std::polar(1.0, 2.0 * M_PI * double(k * m % n) / n);
    // F_0 and F_n/2 are real and share the first two slots.
    const bool real = k == 0 || k == n / 2;
    EXPECT_NEAR(data[k == 0 ? 1 : real ? 2 : 2 * k + 1], f.real(), 2e-5) << k;
    EXPECT_NEAR(real ? 0.0 : data[2 * k + 2], f.imag(), 2e-5) << k;
  }
  realft(data.data(), n, -1);  // inverse, without the factor 2 / n
  for (std::size_t m = 1; m <= n; ++m) EXPECT_NEAR(data[m] * 2.0f / n, v[m], 1e-6) << m;
}

TEST(LombSpread, WeightsReproduceCubicMomentsAndStayInside) {
  // 4-point Lagrange extirpolation is exact for polynomials up to degree 3:
  // sum_j yy[j] j^p = y x^p, inside and at both edges of yy[1..20].
  for (float x : {5.3f, 1.2f, 20.6f}) {
    std::vector<float> yy(22, 0.0f);
    spread(2.0f, yy.data(), 20, x, 4);
    EXPECT_EQ(yy[0] + yy[21], 0.0f);
    for (int p = 0; p <= 3; ++p) {
      double moment = 0.0;
      for (int j = 1; j <= 20; ++j) moment += yy[j] * std::pow(j, p);
      EXPECT_NEAR(moment, 2.0 * std::pow(x, p), 2e-4 * std::pow(21.0, p)) << x << " " << p;
    }
  }
  // An integral position takes the value alone; nothing is added for a too
  // small factorial table, a position outside yy[1..20], or NaN.
  std::vector<float> yy(21, 0.0f), alone(21, 0.0f);
  alone[7] = 3.0f;
  spread(3.0f, yy.data(), 20, 7.0f, 4);
  spread(1.0f, yy.data(), 20, 5.5f, 11);
  spread(1.0f, yy.data(), 20, 21.0f, 4);
  spread(1.0f, yy.data(), 20, NAN, 4);
  EXPECT_EQ(yy, alone);
}

// Mean and variance in single precision, two-pass with the rounding
// correction (var - ep^2 / n) / (n - 1), which matters for values 2^-10
// apart around 1e4; the variance also goes to the global pwr.
TEST(LombAvevar, TwoPassVarianceWithTheRoundingCorrection) {
  std::vector<float> data(102, 0.0f);  // 1-based
  for (int j = 1; j <= 101; ++j) data[j] = 1e4f + std::ldexp(float(j * 37 % 23), -10);
  float mean = 0.0f, ep = 0.0f, squares = 0.0f;
  for (int j = 1; j <= 101; ++j) mean += data[j];
  mean /= 101.0f;
  for (int j = 1; j <= 101; ++j) ep += data[j] - mean, squares += (data[j] - mean) * (data[j] - mean);
  const float var = (squares - ep * ep / 101.0f) / 100.0f;
  ASSERT_NE(var, squares / 100.0f) << "the data no longer need the correction";
  float ave = -1.0f, v = -1.0f;
  avevar(data.data(), 101, &ave, &v);
  EXPECT_EQ(ave, mean);
  EXPECT_EQ(v, var);
  EXPECT_EQ(pwr, var);
}

// The normalised Lomb-Scargle periodogram of the points x[1..n], y[1..n] at
// frequency f, term by term in double precision.
double direct_lomb(const std::vector<float>& x, const std::vector<float>& y, double f) {
  const std::size_t n = x.size() - 1;
  double mean = 0.0, var = 0.0, yc = 0.0, ys = 0.0, cc = 0.0, ss = 0.0;
  for (std::size_t i = 1; i <= n; ++i) mean += y[i] / double(n);
  for (std::size_t i = 1; i <= n; ++i) var += (y[i] - mean) * (y[i] - mean) / double(n - 1);
  const double w = 2.0 * M_PI * f;
  std::complex<double> twice = 0.0;
  for (std::size_t i = 1; i <= n; ++i) twice += std::polar(1.0, 2.0 * w * x[i]);
  const double tau = std::arg(twice) / (2.0 * w);
  for (std::size_t i = 1; i <= n; ++i) {
    const double c = std::cos(w * (x[i] - tau)), s = std::sin(w * (x[i] - tau));
    yc += (y[i] - mean) * c;
    ys += (y[i] - mean) * s;
    cc += c * c;
    ss += s * s;
  }
  return (yc * yc / cc + ys * ys / ss) / (2.0 * var);
}

TEST(LombPeriodogram, FastMethodAgreesWithDirectEvaluation) {
  // Beyond single precision (~1e-6) the fast method differs from the direct
  // sums only by its extirpolation. On the kept half of the grid the doubled
  // frequency advances by at most theta = 8 pi n / ndim per grid step, and a
  // cubic through 4 grid points misses exp(i theta s) by at most
  // eps = theta^4 (9 / 16) / 4! of each term. The term errors have no common
  // sign and cancel like a random walk in the sums, which leaves the power P
  // off by about 2 eps sqrt(P) <= eps (1 + P): the tolerance. For record 100
  // eps is 1.5e-4, measured 4.0e-5; with 3-point extirpolation 1.9e-4, and
  // the check fails.
  const Series s = rr_series(read_beats("hrv/mitdb100_5min.beats.txt"));
  // Interval 0 is not analysed: 1-based points 1 .. n are elements 1 .. n.
  std::vector<float> x(s.t.begin(), s.t.end()), y(s.rr.begin(), s.rr.end());
  const unsigned long n = x.size() - 1, nwk = 64 * 512;
  std::vector<float> wk1(nwk + 1), wk2(nwk + 1);
  unsigned long nout = 0, jmax = 0;
  float prob = 0.0f;
  fasper(x.data(), y.data(), n, 4.0f, 2.0f, wk1.data(), wk2.data(), nwk, &nout, &jmax, &prob);
  EXPECT_EQ(nout, 4 * n);
  EXPECT_EQ(wk2[jmax], *std::max_element(wk2.begin() + 1, wk2.begin() + 1 + nout));
  double ndim = 128, worst = 0.0;
  while (ndim < 64.0 * n) ndim *= 2;
  const double df = 1.0 / ((x[n] - x[1]) * 4.0f);  // times ascend
  for (unsigned long j = 1; j <= nout / 2; ++j) {
    const double p = direct_lomb(x, y, j * df);
    worst = std::max(worst, std::fabs(wk2[j] - p) / (1.0 + p));
  }
  EXPECT_LT(worst, std::pow(8 * M_PI * n / ndim, 4) * (9.0 / 16.0) / 24.0);
}

TEST(LombPeriodogram, GridOfCalcLomb) {
  const Series s = rr_series(beats_from_intervals({160, 150, 170, 165, 155, 160, 158, 162}));
  const int32_t n = s.n();
  std::vector<double> freq(2 * n, -1.0), amp(2 * n, -1.0);
  calcLomb(s.t.data(), s.rr.data(), n, freq.data(), amp.data(), 2 * n);
  const double df = 1.0 / (4.0 * (s.t[n - 1] - s.t[1]));
  for (int32_t i = 0; i < 2 * (n - 1); ++i) EXPECT_NEAR(freq[i], (i + 1) * df, 1e-6 * (i + 1) * df) << i;
  EXPECT_EQ(freq[2 * n - 2] + freq[2 * n - 1] + amp[2 * n - 2] + amp[2 * n - 1], -4.0);  // untouched
  // Fewer than two analysed points, or too little room: nothing written.
  std::vector<double> f2(8, -1.0), a2(8, -1.0);
  calcLomb(s.t.data(), s.rr.data(), 2, f2.data(), a2.data(), 8);
  calcLomb(s.t.data(), s.rr.data(), n, f2.data(), a2.data(), 2 * (n - 1) - 1);
  EXPECT_EQ(std::count(f2.begin(), f2.end(), -1.0) + std::count(a2.begin(), a2.end(), -1.0), 16);
}

}  // namespace
