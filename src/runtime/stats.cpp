// Statistics kernels: mean, standard deviation, median, extrema and the
// small element-wise routines of the detection unit.
#include <cmath>
#include <vector>

#include "keloecgsolver/kernels.h"
#include "keloecgsolver/rt_nonfinite.h"
#include "runtime/boundary.hpp"
#include "runtime/emx.hpp"
#include "runtime/kernels.hpp"
#include "runtime/numeric.hpp"

namespace kelo::kern {

double mean(std::span<const double> x) {
  // The sum starts from the first element (not from 0.0), which decides the
  // sign of an all-zero sum.
  double sum = 0.0;
  if (!x.empty()) {
    sum = x[0];
    for (std::size_t k = 1; k < x.size(); ++k) sum += x[k];
  }
  return sum / static_cast<double>(x.size());
}

double std_dev(std::span<const double> x) {
  const std::size_t n = x.size();
  if (n == 0) return rtNaN;
  double xbar = x[0];
  for (std::size_t k = 1; k < n; ++k) xbar += x[k];
  xbar /= static_cast<double>(n);
  double r = x[0] - xbar;
  double y = r * r;
  for (std::size_t k = 1; k < n; ++k) {
    r = x[k] - xbar;
    y += r * r;
  }
  const double d = n > 1 ? static_cast<double>(n - 1) : static_cast<double>(n);
  return std::sqrt(y / d);
}

double vector_median(std::span<const double> x) {
  const std::size_t n = x.size();
  if (n == 0) return rtNaN;
  std::vector<int32_t> idx(n);
  sort_index(x, idx);
  if (std::isnan(x[static_cast<std::size_t>(idx[n - 1] - 1)])) return rtNaN;  // NaNs sort last
  const std::size_t mid = n / 2;
  if (n % 2 == 1) return x[static_cast<std::size_t>(idx[mid] - 1)];
  const double a = x[static_cast<std::size_t>(idx[mid - 1] - 1)];
  const double b = x[static_cast<std::size_t>(idx[mid] - 1)];
  // Same sign and finite: a + (b - a) / 2 cannot overflow; otherwise the
  // plain mean is used.
  const bool sameSide = (a < 0.0 && b < 0.0) || (a >= 0.0 && b >= 0.0);
  if (sameSide && !rtIsInf(a) && !rtIsInf(b)) return a + (b - a) / 2.0;
  return (a + b) / 2.0;
}

double median(std::span<const double> x) { return x.empty() ? rtNaN : vector_median(x); }

namespace {

// Extremum that skips NaNs: start from x(1), or from the first non-NaN
// element; a later element replaces the current value only when `better`.
template <class Better>
double extremum(std::span<const double> x, Better better) {
  if (x.empty()) return rtNaN;  // never given an empty vector by the library
  if (x.size() == 1) return x[0];
  std::size_t start = 0;
  if (std::isnan(x[0])) {
    start = 1;
    while (start < x.size() && std::isnan(x[start])) ++start;
    if (start == x.size()) return rtNaN;
  }
  double value = x[start];
  for (std::size_t k = start + 1; k < x.size(); ++k)
    if (better(x[k], value)) value = x[k];
  return value;
}

}  // namespace

double max_value(std::span<const double> x) {
  return extremum(x, [](double a, double b) { return a > b; });
}

double min_value(std::span<const double> x) {
  return extremum(x, [](double a, double b) { return a < b; });
}

}  // namespace kelo::kern

using namespace kelo;

extern "C" {

KELO_API double m_mean(const emxArray_real_T* x) { return kern::mean(elements(x)); }
KELO_API double m_std(const emxArray_real_T* x) { return kern::std_dev(elements(x)); }
KELO_API double m_median(const emxArray_real_T* x) {
  return guarded([&] { return kern::median(elements(x)); }, [] { return rtNaN; });
}
KELO_API double m_vectormedian(const emxArray_real_T* x) {
  return guarded([&] { return kern::vector_median(elements(x)); }, [] { return rtNaN; });
}
KELO_API double m_max(const emxArray_real_T* x) { return kern::max_value(elements(x)); }
KELO_API double m_b_max(const emxArray_real_T* x) { return kern::max_value(elements(x)); }
KELO_API double m_min(const emxArray_real_T* x) { return kern::min_value(elements(x)); }
KELO_API double m_b_min(const emxArray_real_T* x) { return kern::min_value(elements(x)); }

KELO_API void m_b_median(const emxArray_real_T* x, emxArray_real_T* y) {
  int32_t rows = 0;
  int32_t cols = 0;
  if (x != nullptr && x->numDimensions >= 2) {
    rows = x->size[0];
    cols = x->size[1];
  } else if (x != nullptr && x->numDimensions == 1) {
    rows = x->size[0];
    cols = 1;
  }
  guarded(
      [&] {
        if (!resize_row(y, cols < 0 ? 0 : cols)) return;
        auto out = elements(y);
        auto in = elements(x);
        std::vector<double> column;
        for (std::size_t j = 0; j < out.size(); ++j) {
          if (rows <= 0 || in.size() < (j + 1) * static_cast<std::size_t>(rows)) {
            out[j] = rtNaN;
            continue;
          }
          column.assign(in.begin() + static_cast<std::ptrdiff_t>(j * rows),
                        in.begin() + static_cast<std::ptrdiff_t>((j + 1) * rows));
          out[j] = kern::vector_median(column);
        }
      },
      [&] { empty(y); });
}

KELO_API void m_power(const emxArray_real_T* x, emxArray_real_T* y) {
  if (x == nullptr || y == nullptr) return;
  guarded(
      [&] {
        const int32_t n = numel(x);
        if (y->numDimensions == x->numDimensions && x->numDimensions == 2) {
          if (!resize(y, {x->size[0], x->size[1]})) return;
        } else if (!resize_column(y, n)) {
          return;
        }
        auto in = elements(x);
        auto out = elements(y);
        for (std::size_t k = 0; k < in.size() && k < out.size(); ++k) out[k] = rt_pow_snf(in[k], 3.0);
      },
      [&] { empty(y); });
}

KELO_API int32_t m_mrdivide(int32_t a, double b) {
  return round_to_int32(static_cast<double>(a) / b);
}

KELO_API void m_repmat(double v, double count, emxArray_real_T* y) {
  // A negative or NaN count gives an empty row (to_int32_sat maps NaN to 0).
  int32_t n = to_int32_sat(count);
  if (n < 0) n = 0;
  guarded(
      [&] {
        if (!resize_row(y, n)) return;
        for (double& e : elements(y)) e = v;
      },
      [&] { empty(y); });
}

KELO_API void m_refp1_sign(emxArray_real_T* x) {
  for (double& e : elements(x)) {
    if (e > 0.0) e = 1.0;
    else if (e < 0.0) e = -1.0;
    else if (e == 0.0) e = 0.0;
  }
}

KELO_API void m_refp1_exp(emxArray_real_T* x) {
  for (double& e : elements(x)) e = std::exp(e);
}

KELO_API double m_length(const emxArray_real_T* x) { return vector_length(x); }
KELO_API double m_b_length(const emxArray_real_T* x) { return vector_length(x); }

}  // extern "C"
