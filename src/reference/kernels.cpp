// The median and the smoother in their plain form.
#include <algorithm>
#include <cmath>
#include <vector>

#include "keloecgsolver/rt_nonfinite.h"
#include "reference/detector.hpp"
#include "runtime/kernels.hpp"

namespace kelo::ref {

double median(std::span<const double> x) {
  const std::size_t n = x.size();
  if (n == 0) return rtNaN;
  std::vector<int32_t> idx(n);
  kern::sort_index(x, idx);
  if (std::isnan(x[static_cast<std::size_t>(idx[n - 1] - 1)])) return rtNaN;  // NaNs sort last
  const std::size_t mid = n / 2;
  if (n % 2 == 1) return x[static_cast<std::size_t>(idx[mid] - 1)];
  const double a = x[static_cast<std::size_t>(idx[mid - 1] - 1)];
  const double b = x[static_cast<std::size_t>(idx[mid] - 1)];
  const bool sameSide = (a < 0.0 && b < 0.0) || (a >= 0.0 && b >= 0.0);
  if (sameSide && !rtIsInf(a) && !rtIsInf(b)) return a + (b - a) / 2.0;
  return (a + b) / 2.0;
}

// y(i) is the mean of x(max(1, i-h) .. min(n, i+h)) for the odd span
// s = 2 * ceil(span / 2) - 1 and h = floor(s / 2). Each sum is taken in the
// order of the zero-padded construction: x(i+h) first when it exists (else
// 0.0), then x(i+h-1), x(i+h-2), ... down to the start of the window.
void smooth(std::span<const double> x, double span, std::span<double> y) {
  const std::size_t n = std::min(x.size(), y.size());
  double s = 2.0 * std::ceil(span / 2.0) - 1.0;
  if (!(s >= 1.0)) s = 1.0;
  const double hd = std::floor(s / 2.0);
  const std::size_t h = hd >= static_cast<double>(n) ? n : static_cast<std::size_t>(hd);
  for (std::size_t i = 0; i < n; ++i) {
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
    y[i] = sum / static_cast<double>(hi - lo + 1);
  }
}

}  // namespace kelo::ref
