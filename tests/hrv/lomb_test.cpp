// Lomb periodogram: the FFTs against a direct DFT, the extirpolation
// weights, the frequency grid, and the fast periodogram against a direct
// evaluation of the normalised Lomb-Scargle periodogram.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <random>
#include <vector>

#include "hrv/hrv_support.hpp"
#include "keloecgsolver/hrv.h"

namespace {

using cd = std::complex<double>;

// sum_k x_k exp(sign 2 pi i jk / n), directly.
std::vector<cd> dft(const std::vector<cd>& x, int sign) {
  const std::size_t n = x.size();
  std::vector<cd> out(n);
  for (std::size_t j = 0; j < n; ++j)
    for (std::size_t k = 0; k < n; ++k) out[j] += x[k] * std::polar(1.0, sign * 2.0 * M_PI * double(j * k % n) / double(n));
  return out;
}

std::vector<float> random_values(std::size_t n, unsigned seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  std::vector<float> v(n);
  for (float& e : v) e = u(gen);
  return v;
}

TEST(LombFft, ComplexTransformMatchesDirectDft) {
  for (int sign : {1, -1}) {
    const std::size_t nn = 64;
    const std::vector<float> v = random_values(2 * nn, 7);
    std::vector<float> data(2 * nn + 1, 0.0f);  // 1-based
    std::copy(v.begin(), v.end(), data.begin() + 1);
    four1(data.data(), nn, sign);
    std::vector<cd> x(nn);
    for (std::size_t k = 0; k < nn; ++k) x[k] = {v[2 * k], v[2 * k + 1]};
    const std::vector<cd> want = dft(x, sign);
    for (std::size_t k = 0; k < nn; ++k) {
      EXPECT_NEAR(data[2 * k + 1], want[k].real(), 2e-5) << k;
      EXPECT_NEAR(data[2 * k + 2], want[k].imag(), 2e-5) << k;
    }
  }
}

TEST(LombFft, RealTransformPacksTheSpectrumAndInverts) {
  const std::size_t n = 128;
  const std::vector<float> v = random_values(n, 11);
  std::vector<float> data(n + 1, 0.0f);
  std::copy(v.begin(), v.end(), data.begin() + 1);
  realft(data.data(), n, 1);
  const std::vector<cd> want = dft(std::vector<cd>(v.begin(), v.end()), 1);
  EXPECT_NEAR(data[1], want[0].real(), 2e-5);
  EXPECT_NEAR(data[2], want[n / 2].real(), 2e-5);
  for (std::size_t k = 1; k < n / 2; ++k) {
    EXPECT_NEAR(data[2 * k + 1], want[k].real(), 2e-5) << k;
    EXPECT_NEAR(data[2 * k + 2], want[k].imag(), 2e-5) << k;
  }
  realft(data.data(), n, -1);  // inverse, without the factor 2 / n
  for (std::size_t k = 0; k < n; ++k) EXPECT_NEAR(data[k + 1] * 2.0f / n, v[k], 1e-6) << k;
}

TEST(LombSpread, WeightsReproduceCubicMomentsAndStayInside) {
  // Lagrange extirpolation over 4 points is exact for polynomials up to
  // degree 3: sum_j yy[j] j^p = y x^p, for positions inside and at the edges.
  for (float x : {5.3f, 1.2f, 19.7f, 20.6f}) {
    std::vector<float> yy(22, 0.0f);  // yy[1..20], one guard element on each side
    spread(2.0f, yy.data(), 20, x, 4);
    EXPECT_EQ(yy[0], 0.0f);
    EXPECT_EQ(yy[21], 0.0f);
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
  spread(1.0f, yy.data(), 20, 5.5f, 11);  // factorial table too small: nothing added
  spread(1.0f, yy.data(), 20, 21.0f, 4);  // outside yy[1..20]
  spread(1.0f, yy.data(), 20, NAN, 4);
  EXPECT_EQ(yy, before);
}

TEST(LombAvevar, MeanVarianceAndPwr) {
  float data[] = {99.0f, 1.0f, 2.0f, 3.0f, 4.0f};  // 1-based: element 0 unused
  float ave = 0.0f, var = 0.0f;
  pwr = 0.0f;
  avevar(data, 4, &ave, &var);
  EXPECT_EQ(ave, 2.5f);
  EXPECT_FLOAT_EQ(var, 5.0f / 3.0f);
  EXPECT_EQ(pwr, var);
}

struct Points {
  std::vector<float> x, y;  // 1-based
};

Points points_of(const std::vector<double>& t, const std::vector<double>& v) {
  Points p{{0.0f}, {0.0f}};
  for (std::size_t i = 0; i < t.size(); ++i) {
    p.x.push_back(static_cast<float>(t[i]));
    p.y.push_back(static_cast<float>(v[i]));
  }
  return p;
}

// The normalised Lomb-Scargle periodogram at frequency f, evaluated term by
// term in double precision on the same single-precision points.
double direct_lomb(const Points& p, double f) {
  const std::size_t n = p.x.size() - 1;
  double mean = 0.0, var = 0.0;
  for (std::size_t i = 1; i <= n; ++i) mean += p.y[i];
  mean /= n;
  for (std::size_t i = 1; i <= n; ++i) var += (p.y[i] - mean) * (p.y[i] - mean);
  var /= n - 1;
  const double w = 2.0 * M_PI * f;
  double s2 = 0.0, c2 = 0.0;
  for (std::size_t i = 1; i <= n; ++i) {
    s2 += std::sin(2.0 * w * p.x[i]);
    c2 += std::cos(2.0 * w * p.x[i]);
  }
  const double tau = std::atan2(s2, c2) / (2.0 * w);
  double yc = 0.0, ys = 0.0, cc = 0.0, ss = 0.0;
  for (std::size_t i = 1; i <= n; ++i) {
    const double c = std::cos(w * (p.x[i] - tau)), s = std::sin(w * (p.x[i] - tau));
    yc += (p.y[i] - mean) * c;
    ys += (p.y[i] - mean) * s;
    cc += c * c;
    ss += s * s;
  }
  return (yc * yc / cc + ys * ys / ss) / (2.0 * var);
}

// Largest |fast - direct| over the part of the grid that calcLomb keeps.
double fast_vs_direct(const Points& p) {
  const unsigned long n = p.x.size() - 1, nwk = 64 * 512;
  std::vector<float> wk1(nwk + 1), wk2(nwk + 1);
  unsigned long nout = 0, jmax = 0;
  float prob = 0.0f;
  fasper(const_cast<float*>(p.x.data()), const_cast<float*>(p.y.data()), n, 4.0f, 2.0f, wk1.data(), wk2.data(), nwk,
         &nout, &jmax, &prob);
  EXPECT_EQ(nout, 4 * n);
  const auto [lo, hi] = std::minmax_element(p.x.begin() + 1, p.x.end());
  const double df = 1.0 / ((*hi - *lo) * 4.0f);
  double worst = 0.0;
  for (unsigned long j = 1; j <= nout / 2; ++j) worst = std::max(worst, std::fabs(wk2[j] - direct_lomb(p, j * df)));
  EXPECT_EQ(wk2[jmax], *std::max_element(wk2.begin() + 1, wk2.begin() + 1 + nout));
  return worst;
}

TEST(LombPeriodogram, FastMethodAgreesWithDirectEvaluation) {
  // The fast method is exact up to the extirpolation: 4-point Lagrange
  // interpolation of exp(i w t) on a grid of ndim >= 32 n points over
  // 4 spans. On the kept half of the grid the doubled frequency advances the
  // phase by at most pi / 8 per grid step, where the interpolation error is
  // below (pi / 8)^4 * (9 / 16) / 4! ~ 5.5e-4 of each term (the random signs
  // of the errors make the sums better still); single precision adds ~1e-6.
  // Powers average 1 for noise and reach about n / 2 at a sinusoid's peak,
  // so the tolerance is set relative to 1 + the power.
  std::vector<double> t, v;
  std::mt19937 gen(3);
  std::normal_distribution<double> noise(0.0, 0.02);
  double time = 0.0;
  for (int i = 0; i < 300; ++i, time += 0.6 + 0.4 * std::uniform_real_distribution<double>()(gen)) {
    t.push_back(time);
    v.push_back(0.8 + 0.05 * std::sin(2 * M_PI * 0.1 * time) + noise(gen));
  }
  const double synthetic = fast_vs_direct(points_of(t, v));

  const std::vector<int32_t> beats = kelo::test::read_beats("hrv/mitdb100_5min.beats.txt");
  std::vector<double> rt(beats.size() - 1), rr(beats.size() - 1);
  std::vector<char> ann(beats.size() - 1);
  calcRR(beats.data(), static_cast<int32_t>(rr.size()), 200, ann.data(), rt.data(), rr.data());
  const double recorded = fast_vs_direct(points_of({rt.begin() + 1, rt.end()}, {rr.begin() + 1, rr.end()}));

  RecordProperty("max_abs_error_synthetic", std::to_string(synthetic));
  RecordProperty("max_abs_error_mitdb100", std::to_string(recorded));
  std::printf("fast vs direct, largest |difference|: synthetic %.3g, mitdb 100 %.3g\n", synthetic, recorded);
  EXPECT_LT(synthetic, 1e-3);
  EXPECT_LT(recorded, 1e-3);
}

TEST(LombPeriodogram, GridOfCalcLomb) {
  const std::vector<int32_t> beats = kelo::test::beats_from_intervals({160, 150, 170, 165, 155, 160, 158, 162});
  const int32_t n = static_cast<int32_t>(beats.size()) - 1;
  std::vector<double> t(n), rr(n), freq(2 * n, -1.0), amp(2 * n, -1.0);
  std::vector<char> ann(n);
  calcRR(beats.data(), n, 200, ann.data(), t.data(), rr.data());
  calcLomb(t.data(), rr.data(), n, freq.data(), amp.data(), 2 * n);
  const double df = 1.0 / (4.0 * (t[n - 1] - t[1]));
  for (int32_t i = 0; i < 2 * (n - 1); ++i) {
    EXPECT_NEAR(freq[i], (i + 1) * df, 1e-6 * (i + 1) * df) << i;
    EXPECT_GE(amp[i], 0.0);
  }
  for (int32_t i = 2 * (n - 1); i < 2 * n; ++i) EXPECT_EQ(freq[i], -1.0);  // untouched

  // Fewer than two analysed points, or too little room: nothing written.
  std::vector<double> f2(8, -1.0), a2(8, -1.0);
  calcLomb(t.data(), rr.data(), 2, f2.data(), a2.data(), 8);
  calcLomb(t.data(), rr.data(), n, f2.data(), a2.data(), 2 * (n - 1) - 1);
  EXPECT_EQ(std::count(f2.begin(), f2.end(), -1.0) + std::count(a2.begin(), a2.end(), -1.0), 16);
}

TEST(LombPeriodogram, FasperRefusesSmallWorkspaces) {
  // 4 points: nfreqt = 4 * 2 * 4 * 4 = 128, so ndim = 256.
  std::vector<float> x{0, 0, 1, 2, 3}, y{0, 1, 2, 1, 2}, wk1(257, -1.0f), wk2(257, -1.0f);
  unsigned long nout = 9, jmax = 9;
  float prob = 0.0f;
  fasper(x.data(), y.data(), 4, 4.0f, 2.0f, wk1.data(), wk2.data(), 255, &nout, &jmax, &prob);
  EXPECT_EQ(nout, 0u);
  EXPECT_EQ(std::count(wk1.begin(), wk1.end(), -1.0f), 257);
  fasper(x.data(), y.data(), 4, 4.0f, 2.0f, wk1.data(), wk2.data(), 256, &nout, &jmax, &prob);
  EXPECT_EQ(nout, 16u);
  EXPECT_EQ(wk1[0], -1.0f);  // element 0 of a 1-based buffer is never touched
}

TEST(LombDiagnostics, ProgName) {
  EXPECT_STREQ(prog_name("/usr/local/bin/hrv"), "hrv");
  EXPECT_STREQ(prog_name("hrv"), "hrv");
  EXPECT_STREQ(prog_name("dir/"), "");
  EXPECT_EQ(prog_name(nullptr), nullptr);
}

}  // namespace
