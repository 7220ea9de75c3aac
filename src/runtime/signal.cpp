// Signal kernels: moving-average smoother, correlation, find, differences,
// the two recursive filters, the local-range gradient and saturating
// integer multiplication.
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "keloecgsolver/kernels.h"
#include "keloecgsolver/rt_nonfinite.h"
#include "runtime/boundary.hpp"
#include "runtime/emx.hpp"
#include "runtime/kernels.hpp"
#include "runtime/numeric.hpp"

namespace kelo::kern {

// Moving average with truncated ends. The span is made odd,
// s = 2 * ceil(span / 2) - 1, h = floor(s / 2), and y(i) is the mean of
// x(max(1, i-h) .. min(n, i+h)).
//
// The sum of each window is accumulated in the order of the reference
// construction (a zero-padded column to which shifted copies of x are added
// one shift at a time): it starts with x(i+h) when that exists, else with
// 0.0, and then adds x(i+h-1), x(i+h-2), ... down to x(max(1, i-h)). The
// divisor is the number of samples inside the window.
//
// A span below 1 or NaN means no smoothing (s = 1). A half-width beyond n
// behaves exactly like a half-width of n, so it is clamped there; this keeps
// huge spans from costing memory or time without changing a single bit.
std::size_t smooth_half_width(double span, std::size_t n) {
  double s = 2.0 * std::ceil(span / 2.0) - 1.0;
  if (!(s >= 1.0)) s = 1.0;
  const double hd = std::floor(s / 2.0);
  return hd >= static_cast<double>(n) ? n : static_cast<std::size_t>(hd);
}

double smooth_at(std::span<const double> x, std::size_t h, std::size_t i) {
  const std::size_t n = x.size();
  const std::size_t lo = i >= h ? i - h : 0;
  const std::size_t top = i + h;
  double sum;
  std::size_t j;
  if (top < n) {
    sum = x[top];
    j = top;
  } else {
    sum = 0.0;
    j = n;
  }
  while (j > lo) sum += x[--j];
  const std::size_t hi = std::min(top, n - 1);
  return sum / static_cast<double>(hi - lo + 1);
}

// The windows that lie wholly inside x (h <= i < n - h) go to the
// vectorised kernel; the truncated ones at both ends are summed here.
void smooth(std::span<const double> x, double span, std::span<double> y,
            const simd::Kernels& kernels) {
  const std::size_t n = std::min(x.size(), y.size());
  const auto xs = x.first(n);
  const std::size_t h = smooth_half_width(span, n);
  const std::size_t innerBegin = std::min(h, n);
  const std::size_t innerEnd = n >= h ? std::max(n - h, innerBegin) : innerBegin;
  for (std::size_t i = 0; i < innerBegin; ++i) y[i] = smooth_at(xs, h, i);
  if (innerEnd > innerBegin) kernels.window_means(xs.data(), h, innerBegin, innerEnd, y.data());
  for (std::size_t i = innerEnd; i < n; ++i) y[i] = smooth_at(xs, h, i);
}

// Pearson correlation: the covariance of the two centred columns divided by
// the product of their standard deviations (divisor n - 1 throughout).
double corr(std::span<const double> x, std::span<const double> y) {
  const std::size_t n = std::min(x.size(), y.size());
  double c12;
  if (n == 0) {
    c12 = rtNaN;
  } else if (n == 1) {
    c12 = 0.0;
  } else {
    double sx = 0.0, sy = 0.0;
    for (std::size_t k = 0; k < n; ++k) sx += x[k];
    for (std::size_t k = 0; k < n; ++k) sy += y[k];
    const double mx = sx / static_cast<double>(n);
    const double my = sy / static_cast<double>(n);
    double acc = 0.0;
    for (std::size_t k = 0; k < n; ++k) acc += (x[k] - mx) * (y[k] - my);
    c12 = acc / static_cast<double>(n - 1);
  }
  return c12 / (std_dev(x.first(n)) * std_dev(y.first(n)));
}

}  // namespace kelo::kern

using namespace kelo;

namespace {

struct Biquad {
  double b[3];
  double a[3];
};

// Low-pass and high-pass coefficients (a(1) = 1).
constexpr Biquad kLowPass = {{0.3913357725017686, 0.7826715450035372, 0.3913357725017686},
                             {1.0, 0.36952737735124136, 0.19581571265583317}};
constexpr Biquad kHighPass = {{0.9780304792065597, -1.9560609584131194, 0.9780304792065597},
                              {1.0, -1.9555782403150355, 0.9565436765112033}};

// Transposed direct form II with zero initial state: per sample, shift the
// state, add b(i) * x to z(i), output z1, subtract a(i) * y from z(2), z(3).
void run_filter(const Biquad& f, const emxArray_real_T* x, emxArray_real_T* y) {
  if (x == nullptr || !resize_column(y, numel(x))) return;  // may throw: see the callers
  auto in = elements(x);
  auto out = elements(y);
  double z[3] = {0.0, 0.0, 0.0};
  for (std::size_t k = 0; k < in.size() && k < out.size(); ++k) {
    z[0] = z[1];
    z[1] = z[2];
    z[2] = 0.0;
    for (int i = 0; i < 3; ++i) z[i] += f.b[i] * in[k];
    out[k] = z[0];
    for (int i = 1; i < 3; ++i) z[i] -= f.a[i] * out[k];
  }
}

// 1-based positions of the true elements of mask, as a column of the
// element type of idx.
template <class Rec>
void find_true(const emxArray_boolean_T* mask, Rec* idx) {
  auto m = elements(mask);
  const auto count = static_cast<int32_t>(std::count(m.begin(), m.end(), true));
  if (!resize_column(idx, count)) return;
  auto out = elements(idx);
  std::size_t j = 0;
  for (std::size_t k = 0; k < m.size() && j < out.size(); ++k)
    if (m[k]) out[j++] = static_cast<emx_element_t<Rec>>(k + 1);
}

}  // namespace

extern "C" {

KELO_API void m_smooth_emlc(const emxArray_real_T* x, double span, emxArray_real_T* y) {
  guarded(
      [&] {
        if (x == nullptr || !resize_column(y, numel(x))) return;
        kern::smooth(elements(x), span, elements(y));
      },
      [&] { empty(y); });
}

KELO_API double m_corr_emlc(const emxArray_real_T* x, const emxArray_real_T* y) {
  return kern::corr(elements(x), elements(y));
}

KELO_API void m_find(const emxArray_boolean_T* mask, emxArray_real_T* idx) {
  guarded([&] { find_true(mask, idx); }, [&] { empty(idx); });
}

KELO_API void m_b_eml_li_find(const emxArray_boolean_T* mask, emxArray_int32_T* idx) {
  guarded([&] { find_true(mask, idx); }, [&] { empty(idx); });
}

KELO_API void m_diff(const emxArray_real_T* x, emxArray_real_T* y) {
  const int32_t n = numel(x);
  if (n <= 1) {  // no element: never allocates
    if (y != nullptr && y->numDimensions >= 2) resize(y, {0, 0});
    else resize_column(y, 0);
    return;
  }
  guarded(
      [&] {
        if (!resize_column(y, n - 1)) return;
        auto in = elements(x);
        auto out = elements(y);
        for (std::size_t k = 0; k + 1 < in.size() && k < out.size(); ++k) out[k] = in[k + 1] - in[k];
      },
      [&] { empty(y); });
}

KELO_API void m_b_filter(const emxArray_real_T* x, emxArray_real_T* y) {
  guarded([&] { run_filter(kLowPass, x, y); }, [&] { empty(y); });
}
KELO_API void m_filter(const emxArray_real_T* x, emxArray_real_T* y) {
  guarded([&] { run_filter(kHighPass, x, y); }, [&] { empty(y); });
}

KELO_API void m_gradientIEM(const emxArray_real_T* x, emxArray_real_T* g, emxArray_real_T* gs) {
  const int32_t n = numel(x);
  const bool sized = guarded([&] { return resize_column(g, n) && resize_column(gs, n); },
                             [&] {
                               empty(g);
                               empty(gs);
                               return false;
                             });
  if (!sized) return;
  auto in = elements(x);
  auto range = elements(g);
  auto mean = elements(gs);
  std::fill(range.begin(), range.end(), 0.0);
  std::fill(mean.begin(), mean.end(), 0.0);
  const std::size_t len = std::min({in.size(), range.size(), mean.size()});
  // 0-based k = 5 .. n-6 are the 1-based positions 6 .. n-5.
  for (std::size_t k = 5; k + 5 < len; ++k) {
    double hi = 0.0;       // the running maximum starts at 0.0 ...
    double lo = 100000.0;  // ... and the running minimum at 100000.0
    for (std::size_t j = k - 5; j <= k + 5; ++j) {
      if (in[j] > hi) hi = in[j];
      if (in[j] < lo) lo = in[j];
    }
    range[k] = hi - lo;
  }
  for (std::size_t k = 5; k + 5 < len; ++k) {
    double sum = 0.0;
    for (std::size_t j = k - 5; j <= k + 5; ++j) sum += range[j];
    mean[k] = sum / 11.0;
  }
}

// Product of the magnitudes from 16-bit halves, negated (two's complement
// over the 64-bit pair) when the signs differ.
KELO_API void m_mul_wide_s32(int32_t in0, int32_t in1, uint32_t* ptrOutBitsHi,
                             uint32_t* ptrOutBitsLo) {
  const uint32_t absIn0 = in0 < 0 ? ~static_cast<uint32_t>(in0) + 1U : static_cast<uint32_t>(in0);
  const uint32_t absIn1 = in1 < 0 ? ~static_cast<uint32_t>(in1) + 1U : static_cast<uint32_t>(in1);
  const uint32_t in0Hi = absIn0 >> 16U, in0Lo = absIn0 & 65535U;
  const uint32_t in1Hi = absIn1 >> 16U, in1Lo = absIn1 & 65535U;
  const uint32_t productHiLo = in0Hi * in1Lo;
  const uint32_t productLoHi = in0Lo * in1Hi;
  uint32_t productLoLo = in0Lo * in1Lo;
  uint32_t carry = 0U;
  uint32_t outLo = productLoLo + (productLoHi << 16U);
  if (outLo < productLoLo) carry = 1U;
  productLoLo = outLo;
  outLo += productHiLo << 16U;
  if (outLo < productLoLo) carry++;
  uint32_t outHi = carry + in0Hi * in1Hi + (productLoHi >> 16U) + (productHiLo >> 16U);
  if ((in0 != 0) && (in1 != 0) && ((in0 > 0) != (in1 > 0))) {
    outHi = ~outHi;
    outLo = ~outLo;
    outLo++;
    if (outLo == 0U) outHi++;
  }
  if (ptrOutBitsHi != nullptr) *ptrOutBitsHi = outHi;
  if (ptrOutBitsLo != nullptr) *ptrOutBitsLo = outLo;
}

KELO_API int32_t m_mul_s32_s32_s32_sat(int32_t a, int32_t b) {
  uint32_t hi = 0, lo = 0;
  m_mul_wide_s32(a, b, &hi, &lo);
  const auto shi = static_cast<int32_t>(hi);
  // The product fits when the high word is the sign extension of the low.
  if (shi > 0 || (shi == 0 && lo >= 0x80000000U)) return kInt32Max;
  if (shi < -1 || (shi == -1 && lo < 0x80000000U)) return kInt32Min;
  return static_cast<int32_t>(lo);
}

}  // extern "C"
