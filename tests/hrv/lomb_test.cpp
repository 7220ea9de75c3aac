// Lomb periodogram: the real FFT against direct sums, the extirpolation
// weights, the frequency grid, and the fast periodogram against a direct
// evaluation of the normalised Lomb-Scargle periodogram.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "hrv/hrv_support.hpp"
#include "keloecgsolver/hrv.h"

namespace {

// The forward real transform runs the complex one forward, the inverse runs
// it backward: both directions are checked through it.
TEST(LombFft, RealTransformPacksTheSpectrumAndInverts) {
  const std::size_t n = 128;
  std::vector<float> data(n + 1, 0.0f);  // 1-based
  for (std::size_t m = 0; m < n; ++m) data[m + 1] = static_cast<float>(std::sin(0.1 * m * m));
  const std::vector<float> v = data;
  realft(data.data(), n, 1);
  for (std::size_t k = 0; k <= n / 2; ++k) {  // F_k = sum_m v_m exp(+2 pi i km / n)
    double re = 0.0, im = 0.0;
    for (std::size_t m = 0; m < n; ++m) {
      re += v[m + 1] * std::cos(2.0 * M_PI * double(k * m % n) / n);
      im += v[m + 1] * std::sin(2.0 * M_PI * double(k * m % n) / n);
    }
    const std::size_t at = k == 0 ? 1 : k == n / 2 ? 2 : 2 * k + 1;  // F_0 and F_n/2 are real
    EXPECT_NEAR(data[at], re, 2e-5) << k;
    if (k != 0 && k != n / 2) {
      EXPECT_NEAR(data[at + 1], im, 2e-5) << k;
    }
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
  std::vector<float> yy(21, 0.0f);
  spread(3.0f, yy.data(), 20, 7.0f, 4);  // an integral position takes the value alone
  EXPECT_EQ(yy[7], 3.0f);
  EXPECT_EQ(std::count(yy.begin(), yy.end(), 0.0f), 20);
  const std::vector<float> before = yy;
  spread(1.0f, yy.data(), 20, 5.5f, 11);  // factorial table too small
  spread(1.0f, yy.data(), 20, 21.0f, 4);  // outside yy[1..20]
  spread(1.0f, yy.data(), 20, NAN, 4);
  EXPECT_EQ(yy, before);
}

// The normalised Lomb-Scargle periodogram of the points x[1..n], y[1..n] at
// frequency f, term by term in double precision.
double direct_lomb(const std::vector<float>& x, const std::vector<float>& y, double f) {
  const std::size_t n = x.size() - 1;
  double mean = 0.0, var = 0.0, s2 = 0.0, c2 = 0.0, yc = 0.0, ys = 0.0, cc = 0.0, ss = 0.0;
  for (std::size_t i = 1; i <= n; ++i) mean += y[i] / double(n);
  for (std::size_t i = 1; i <= n; ++i) var += (y[i] - mean) * (y[i] - mean) / double(n - 1);
  const double w = 2.0 * M_PI * f;
  for (std::size_t i = 1; i <= n; ++i) {
    s2 += std::sin(2.0 * w * x[i]);
    c2 += std::cos(2.0 * w * x[i]);
  }
  const double tau = std::atan2(s2, c2) / (2.0 * w);
  for (std::size_t i = 1; i <= n; ++i) {
    const double c = std::cos(w * (x[i] - tau)), s = std::sin(w * (x[i] - tau));
    yc += (y[i] - mean) * c;
    ys += (y[i] - mean) * s;
    cc += c * c;
    ss += s * s;
  }
  return (yc * yc / cc + ys * ys / ss) / (2.0 * var);
}

// Largest |fast - direct| / (1 + direct) over the half of the grid that
// calcLomb keeps, with calcLomb's settings; t and v are 0-based.
double fast_vs_direct(const std::vector<double>& t, const std::vector<double>& v) {
  std::vector<float> x{0.0f}, y{0.0f};
  for (std::size_t i = 0; i < t.size(); ++i) {
    x.push_back(static_cast<float>(t[i]));
    y.push_back(static_cast<float>(v[i]));
  }
  const unsigned long n = t.size(), nwk = 64 * 512;
  std::vector<float> wk1(nwk + 1), wk2(nwk + 1);
  unsigned long nout = 0, jmax = 0;
  float prob = 0.0f;
  fasper(x.data(), y.data(), n, 4.0f, 2.0f, wk1.data(), wk2.data(), nwk, &nout, &jmax, &prob);
  EXPECT_EQ(nout, 4 * n);
  EXPECT_EQ(wk2[jmax], *std::max_element(wk2.begin() + 1, wk2.begin() + 1 + nout));
  const double df = 1.0 / ((x[n] - x[1]) * 4.0f);  // times ascend
  double worst = 0.0;
  for (unsigned long j = 1; j <= nout / 2; ++j) {
    const double p = direct_lomb(x, y, j * df);
    worst = std::max(worst, std::fabs(wk2[j] - p) / (1.0 + p));
  }
  return worst;
}

// Bound of the relative error of each extirpolated term for n points: on
// the kept half of the grid the doubled frequency advances by at most
// theta = 8 pi n / ndim per grid step, and a cubic through 4 grid points
// misses exp(i theta s) by at most theta^4 (9 / 16) / 4!.
double term_error_bound(std::size_t n) {
  double ndim = 128;
  while (ndim < 64.0 * n) ndim *= 2;
  return std::pow(8 * M_PI * n / ndim, 4) * (9.0 / 16.0) / 24.0;
}

TEST(LombPeriodogram, FastMethodAgreesWithDirectEvaluation) {
  // Beyond single precision (~1e-6) the fast method differs from the direct
  // sums only by its extirpolation. The term errors (at most eps of each
  // term, see above) have no common sign and cancel like a random walk in
  // the sums, which leaves the power P off by about 2 eps sqrt(P) <=
  // eps (1 + P): the tolerance. eps is 6.6e-5 for the synthetic series and
  // 1.5e-4 for record 100; measured: 1.4e-5 and 4.0e-5. With 3-point
  // extirpolation the errors are 6.8e-4 and 1.9e-4, and the check fails.
  std::vector<double> t, v;
  std::mt19937 gen(3);
  std::normal_distribution<double> noise(0.0, 0.02);
  std::uniform_real_distribution<double> jitter(0.6, 1.0);
  for (double time = 0.0; t.size() < 300; time += jitter(gen)) {
    t.push_back(time);
    v.push_back(0.8 + 0.05 * std::sin(2 * M_PI * 0.1 * time) + noise(gen));
  }
  EXPECT_LT(fast_vs_direct(t, v), term_error_bound(t.size()));

  const std::vector<int32_t> beats = kelo::test::read_beats("hrv/mitdb100_5min.beats.txt");
  const auto n = static_cast<int32_t>(beats.size()) - 1;
  std::vector<double> rt(n), rr(n);
  std::vector<char> ann(n);
  calcRR(beats.data(), n, 200, ann.data(), rt.data(), rr.data());
  EXPECT_LT(fast_vs_direct({rt.begin() + 1, rt.end()}, {rr.begin() + 1, rr.end()}), term_error_bound(n - 1));
}

TEST(LombPeriodogram, GridOfCalcLomb) {
  const std::vector<int32_t> beats = kelo::test::beats_from_intervals({160, 150, 170, 165, 155, 160, 158, 162});
  const int32_t n = static_cast<int32_t>(beats.size()) - 1;
  std::vector<double> t(n), rr(n), freq(2 * n, -1.0), amp(2 * n, -1.0);
  std::vector<char> ann(n);
  calcRR(beats.data(), n, 200, ann.data(), t.data(), rr.data());
  calcLomb(t.data(), rr.data(), n, freq.data(), amp.data(), 2 * n);
  const double df = 1.0 / (4.0 * (t[n - 1] - t[1]));
  for (int32_t i = 0; i < 2 * (n - 1); ++i) EXPECT_NEAR(freq[i], (i + 1) * df, 1e-6 * (i + 1) * df) << i;
  EXPECT_EQ(freq[2 * n - 2] + freq[2 * n - 1] + amp[2 * n - 2] + amp[2 * n - 1], -4.0);  // untouched

  // Fewer than two analysed points, or too little room: nothing written.
  std::vector<double> f2(8, -1.0), a2(8, -1.0);
  calcLomb(t.data(), rr.data(), 2, f2.data(), a2.data(), 8);
  calcLomb(t.data(), rr.data(), n, f2.data(), a2.data(), 2 * (n - 1) - 1);
  EXPECT_EQ(std::count(f2.begin(), f2.end(), -1.0) + std::count(a2.begin(), a2.end(), -1.0), 16);
}

}  // namespace
