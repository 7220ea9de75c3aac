// Lomb-Scargle periodogram of an unevenly sampled series by the fast method
// of Press and Rybicki (1989): the data are extirpolated onto a regular grid
// and two FFTs give the trigonometric sums at every frequency at once.
//
// The arithmetic is single precision with the mixed float/double steps of
// the published method kept exactly; arrays are indexed from 1. Deliberate
// differences from the published routines: the extirpolation order is 4,
// a zero (or NaN) hs2wt gives the negative sign to swt, the variance of the
// analysed values is also stored in the global pwr, a zero variance is not
// trapped, and no diagnostic ends the process (a routine that cannot go on
// safely returns instead). The published code keeps the arguments of its
// square, maximum and minimum macros in static scratch variables; here they
// are the helpers' own locals, so that calls on several threads share
// nothing.
#include <atomic>
#include <cmath>
#include <limits>

#include "hrv/hrv_internal.hpp"
#include "keloecgsolver/hrv.h"
#include "runtime/boundary.hpp"

extern "C" {
KELO_API float pwr = 0.0f;
}

namespace kelo::hrv {
namespace {

constexpr std::array<int, 11> kFactorials{0, 1, 1, 2, 6, 24, 120, 720, 5040, 40320, 362880};
constexpr float kOfac = 4.0f;   // oversampling factor of the frequency grid
constexpr float kHifac = 2.0f;  // grid up to twice the average Nyquist frequency
constexpr std::size_t kMinNmax = 512;
constexpr std::size_t kWorkPerPoint = 64;

// Square; exactly zero gives zero.
double square(float a) { return a == 0.0f ? 0.0 : static_cast<double>(a * a); }

long lmax(long a, long b) { return a > b ? a : b; }
long lmin(long a, long b) { return a < b ? a : b; }

// a modulo m by repeated subtraction, as the grid positions are reduced.
// A position that cannot be reduced (infinite, or so large that subtracting
// m no longer changes it) becomes NaN, which spread() then ignores.
float reduce(float a, float m) {
  while (a >= m) {
    const float next = a - m;
    if (next == a) return std::numeric_limits<float>::quiet_NaN();
    a = next;
  }
  return a;
}

// The trigonometric terms of frequency j from the FFTs of the data (wk1)
// and of the doubled-frequency sampling pattern (wk2) at index k = 2j + 1,
// turned into the normalised power.
float power_at(OneBased<float> wk1, OneBased<float> wk2, std::size_t k, std::size_t n, float var) {
  const float hypo = static_cast<float>(std::sqrt(static_cast<double>(wk2[k] * wk2[k] + wk2[k + 1] * wk2[k + 1])));
  const float hc2wt = static_cast<float>(0.5 * wk2[k] / hypo);
  const float hs2wt = static_cast<float>(0.5 * wk2[k + 1] / hypo);
  const float cwt = static_cast<float>(std::sqrt(0.5 + hc2wt));
  const double swt_abs = std::fabs(std::sqrt(0.5 - hc2wt));
  const float swt = static_cast<float>(hs2wt > 0.0f ? swt_abs : -swt_abs);
  const float den = static_cast<float>(0.5 * static_cast<double>(n) + hc2wt * wk2[k] + hs2wt * wk2[k + 1]);
  const float cterm = static_cast<float>(square(cwt * wk1[k] + swt * wk1[k + 1]) / den);
  const float sterm = static_cast<float>(square(cwt * wk1[k + 1] - swt * wk1[k]) / (static_cast<float>(n) - den));
  return static_cast<float>((cterm + sterm) / (2.0 * var));
}

}  // namespace

void publish_variance(float var) noexcept {
  std::atomic_ref<float>(pwr).store(var, std::memory_order_relaxed);
}

void spread(float y, OneBased<float> yy, float x, int m) {
  if (m > 10) {
    report("factorial table too small");
    return;
  }
  const std::size_t n = yy.size();
  // Positions outside the array (or NaN) and orders the array cannot hold
  // would index outside yy: nothing is added.
  if (m < 1 || static_cast<std::size_t>(m) > n ||
      !(x >= 1.0f && static_cast<double>(x) < static_cast<double>(n) + 1.0))
    return;
  const long ix = static_cast<long>(x);
  if (x == static_cast<float>(ix)) {
    yy[static_cast<std::size_t>(ix)] += y;
    return;
  }
  const long ilo = lmin(lmax(static_cast<long>(x - 0.5 * m + 1.0), 1), static_cast<long>(n - m + 1));
  const long ihi = ilo + m - 1;
  int nden = kFactorials[m];
  float fac = x - static_cast<float>(ilo);
  for (long j = ilo + 1; j <= ihi; ++j) fac *= x - static_cast<float>(j);
  yy[static_cast<std::size_t>(ihi)] += y * fac / (static_cast<float>(nden) * (x - static_cast<float>(ihi)));
  for (long j = ihi - 1; j >= ilo; --j) {
    nden = (nden / static_cast<int>(j + 1 - ilo)) * static_cast<int>(j - ihi);
    yy[static_cast<std::size_t>(j)] += y * fac / (static_cast<float>(nden) * (x - static_cast<float>(j)));
  }
}

void avevar(OneBased<const float> data, float& ave, float& var) {
  const std::size_t n = data.size();
  ave = 0.0f;
  for (std::size_t j = 1; j <= n; ++j) ave += data[j];
  ave /= static_cast<float>(n);
  var = 0.0f;
  float ep = 0.0f;
  for (std::size_t j = 1; j <= n; ++j) {
    const float s = data[j] - ave;
    ep += s;
    var += s * s;
  }
  var = (var - ep * ep / static_cast<float>(n)) / static_cast<float>(n - 1);
  publish_variance(var);
}

void zeromean(std::span<float> y) {
  double mean = 0.0;
  for (float v : y) mean += v;
  mean /= static_cast<double>(y.size());
  for (float& v : y) v = static_cast<float>(v - mean);
}

bool fasper(OneBased<const float> x, OneBased<const float> y, float ofac, float hifac,
            OneBased<float> wk1, OneBased<float> wk2, FasperResult& result, const GridFft& fft) {
  result = FasperResult{};
  const std::size_t n = x.size();
  const std::size_t nwk = wk1.size();
  const float nfreqt_f = ofac * hifac * static_cast<float>(n) * static_cast<float>(kMacc);
  // The grid doubles from 64 until it holds nfreqt points; the loop stops
  // early once the workspace is exceeded, which changes nothing else.
  if (!(nfreqt_f < 0x1p62f)) {
    report("workspaces too small\n");
    return false;
  }
  const auto nfreqt = static_cast<std::size_t>(nfreqt_f);
  std::size_t nfreq = 64;
  while (nfreq < nfreqt && nfreq <= nwk) nfreq <<= 1;
  const std::size_t ndim = nfreq << 1;
  if (ndim > nwk) {
    report("workspaces too small\n");
    return false;
  }
  const auto nout = static_cast<std::size_t>(0.5 * ofac * hifac * static_cast<double>(n));
  if (2 * nout + 2 > ndim) {  // cannot happen for positive factors; keeps the reads inside
    report("workspaces too small\n");
    return false;
  }

  float ave = 0.0f, var = 0.0f;
  avevar(y, ave, var);
  result.variance = var;
  float xmin = x[1];
  float xmax = xmin;
  for (std::size_t j = 2; j <= n; ++j) {
    if (x[j] < xmin) xmin = x[j];
    if (x[j] > xmax) xmax = x[j];
  }
  const float xdif = xmax - xmin;
  for (std::size_t j = 1; j <= ndim; ++j) wk1[j] = wk2[j] = 0.0f;

  // Extirpolate the centred values at the times, and unit weights at twice
  // the times, onto the grid of ndim points (which wraps around).
  const OneBased<float> grid1 = wk1.first(ndim);
  const OneBased<float> grid2 = wk2.first(ndim);
  const float fac = static_cast<float>(ndim) / (xdif * ofac);
  const auto fndim = static_cast<float>(ndim);
  for (std::size_t j = 1; j <= n; ++j) {
    float ck = reduce((x[j] - xmin) * fac, fndim);
    float ckk = static_cast<float>(2.0 * ck);
    ck += 1.0f;
    ckk = reduce(ckk, fndim);
    ckk += 1.0f;
    spread(y[j] - ave, grid1, ck, kMacc);
    spread(1.0f, grid2, ckk, kMacc);
  }
  if (fft) {
    fft(grid1, grid2);
  } else {
    // Both grids at once, sharing the twiddle factors; grids that overlap
    // (a caller's workspaces) one after the other, as written.
    float* const grids[] = {&grid1[1], &grid2[1]};
    const bool apart = grids[0] + ndim <= grids[1] || grids[1] + ndim <= grids[0];
    if (apart) {
      realft(grids, ndim, 1, kelo::simd::best_isa());
    } else {
      realft(std::span(grids).first(1), ndim, 1, kelo::simd::best_isa());
      realft(std::span(grids).last(1), ndim, 1, kelo::simd::best_isa());
    }
  }

  const auto df = static_cast<float>(1.0 / (xdif * ofac));
  float pmax = -1.0f;
  for (std::size_t j = 1, k = 3; j <= nout; ++j, k += 2) {
    const float p = power_at(wk1, wk2, k, n, var);
    wk1[j] = static_cast<float>(j) * df;
    wk2[j] = p;
    if (wk2[j] > pmax) {
      result.jmax = j;
      pmax = wk2[j];
    }
  }
  result.nout = nout;

  // Significance of the highest peak.
  const auto expy = static_cast<float>(std::exp(static_cast<double>(-pmax)));
  const auto effm = static_cast<float>(2.0 * static_cast<double>(nout) / ofac);
  result.prob = effm * expy;
  if (result.prob > 0.01) result.prob = static_cast<float>(1.0 - std::pow(1.0 - expy, static_cast<double>(effm)));
  return true;
}

bool lomb_amplitudes(std::span<const double> t, std::span<const double> rr, std::span<double> freq,
                     std::span<double> amp, const GridFft& fft) {
  const std::size_t n = t.size();
  std::size_t nmax = kMinNmax;
  while (nmax < n) nmax <<= 1;
  const std::size_t nwk = kWorkPerPoint * nmax;
  // 1-based buffers: one element more than their count.
  const auto x = CArray<float>::zeroed(nmax + 1);
  const auto y = CArray<float>::zeroed(nmax + 1);
  const auto wk1 = CArray<float>::zeroed(nwk + 1);
  const auto wk2 = CArray<float>::zeroed(nwk + 1);

  // Interval 0 is never an NN interval: the analysed series is
  // rr[1..n-1] at t[1..n-1]. (The mean is left in: the periodogram removes
  // it itself.)
  const std::size_t points = n - 1;
  const OneBased<float> xs = x.one_based();
  const OneBased<float> ys = y.one_based();
  for (std::size_t i = 1; i <= points; ++i) {
    xs[i] = static_cast<float>(t[i]);
    ys[i] = static_cast<float>(rr[i]);
  }
  FasperResult result;
  if (!fasper(OneBased<const float>(x.span().data(), points), OneBased<const float>(y.span().data(), points),
              kOfac, kHifac, wk1.one_based(), wk2.one_based(), result, fft))
    return false;

  // The lower half of the grid, up to the average Nyquist frequency, as
  // amplitudes whose squares sum to power in s^2. The divisor uses the full
  // nout on purpose. (Amplitudes are the only output form: no power or
  // smoothed output is offered.) The variance is this call's own, the value
  // also published in pwr.
  const std::size_t count = result.nout / 2;
  const double divisor = static_cast<double>(result.nout) / (2.0 * static_cast<double>(result.variance));
  const OneBased<float> f = wk1.one_based();
  const OneBased<float> p = wk2.one_based();
  for (std::size_t i = 0; i < count; ++i) {
    freq[i] = f[i + 1];
    amp[i] = std::sqrt(static_cast<double>(p[i + 1]) / divisor);
  }
  return true;
}

}  // namespace kelo::hrv

namespace {

bool positive_finite(float v) { return v > 0.0f && v <= std::numeric_limits<float>::max(); }

}  // namespace

extern "C" {

KELO_API void calcLomb(const double* t, const double* rr, int32_t n, double* freq, double* amp,
                       int32_t capacity) {
  if (t == nullptr || rr == nullptr || freq == nullptr || amp == nullptr || n < 3) return;
  const auto m = static_cast<std::size_t>(n);
  if (capacity < 0 || static_cast<std::size_t>(capacity) < 2 * (m - 1)) return;
  const auto cap = static_cast<std::size_t>(capacity);
  kelo::guarded([&] { kelo::hrv::lomb_amplitudes({t, m}, {rr, m}, {freq, cap}, {amp, cap}); },
                [] { kelo::hrv::report("insufficient memory"); });
}

KELO_API void fasper(float x[], float y[], unsigned long n, float ofac, float hifac, float wk1[],
                     float wk2[], unsigned long nwk, unsigned long* nout, unsigned long* jmax,
                     float* prob) {
  using kelo::hrv::OneBased;
  if (nout == nullptr || jmax == nullptr || prob == nullptr) return;
  kelo::hrv::FasperResult result;
  if (x != nullptr && y != nullptr && wk1 != nullptr && wk2 != nullptr && n >= 1 &&
      positive_finite(ofac) && positive_finite(hifac))
    kelo::hrv::fasper(OneBased<const float>(x, n), OneBased<const float>(y, n), ofac, hifac,
                      OneBased<float>(wk1, nwk), OneBased<float>(wk2, nwk), result);
  *nout = result.nout;
  *jmax = result.jmax;
  *prob = result.prob;
}

KELO_API void spread(float y, float yy[], unsigned long n, float x, int m) {
  if (yy == nullptr) return;
  kelo::hrv::spread(y, kelo::hrv::OneBased<float>(yy, n), x, m);
}

KELO_API void avevar(float data[], unsigned long n, float* ave, float* var) {
  if (data == nullptr || ave == nullptr || var == nullptr) return;
  kelo::hrv::avevar(kelo::hrv::OneBased<const float>(data, n), *ave, *var);
}

KELO_API void zeromean(float* y, unsigned long n) {
  if (y == nullptr) return;
  kelo::hrv::zeromean({y, n});
}

}  // extern "C"
