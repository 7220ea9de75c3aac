// Stable index sort of doubles (NaN last), in-place int32 sort and unique.
#include <algorithm>
#include <cmath>
#include <vector>

#include "keloecgsolver/kernels.h"
#include "keloecgsolver/rt_nonfinite.h"
#include "runtime/boundary.hpp"
#include "runtime/emx.hpp"
#include "runtime/kernels.hpp"

namespace kelo::kern {

// Bottom-up merge sort of positions: pairs first, then runs of width
// 2, 4, 8, ... merged left to right. Element p, standing before q, keeps its
// place when x(p) <= x(q) or x(q) is NaN, so equal numbers keep their input
// order and NaNs follow every number in input order.
void sort_index(std::span<const double> x, std::span<int32_t> idx) {
  const std::size_t n = std::min(x.size(), idx.size());
  auto keeps_place = [&](int32_t p, int32_t q) {  // 1-based positions
    const double a = x[static_cast<std::size_t>(p - 1)];
    const double b = x[static_cast<std::size_t>(q - 1)];
    return a <= b || std::isnan(b);
  };
  for (std::size_t p = 0; p + 1 < n; p += 2) {
    const auto left = static_cast<int32_t>(p + 1);
    if (keeps_place(left, left + 1)) {
      idx[p] = left;
      idx[p + 1] = left + 1;
    } else {
      idx[p] = left + 1;
      idx[p + 1] = left;
    }
  }
  if (n % 2 == 1) idx[n - 1] = static_cast<int32_t>(n);

  std::vector<int32_t> work(n);
  for (std::size_t width = 2; width < n; width *= 2) {
    for (std::size_t start = 0; start + width < n; start += 2 * width) {
      const std::size_t mid = start + width;
      const std::size_t end = std::min(start + 2 * width, n);
      std::size_t l = start, r = mid, out = 0;
      while (l < mid && r < end) work[out++] = keeps_place(idx[l], idx[r]) ? idx[l++] : idx[r++];
      while (l < mid) work[out++] = idx[l++];
      while (r < end) work[out++] = idx[r++];
      std::copy_n(work.begin(), out, idx.begin() + static_cast<std::ptrdiff_t>(start));
    }
  }
}

namespace {

// Half a unit in the last place of a, as the grouping tolerance of unique:
// 2^(e - 53) for a = f * 2^e with 0.5 <= f < 1, the smallest subnormal for
// tiny a, NaN for infinite or NaN a.
double half_ulp_tolerance(double a) {
  if (!std::isfinite(a)) return rtNaN;
  if (a <= 2.2250738585072014E-308) return 4.94065645841247E-324;
  int e = 0;
  std::frexp(a, &e);
  return std::ldexp(1.0, e - 53);
}

}  // namespace

std::vector<double> unique(std::span<const double> x) {
  const std::size_t n = x.size();
  std::vector<int32_t> idx(n);
  sort_index(x, idx);
  std::vector<double> sorted(n);
  for (std::size_t k = 0; k < n; ++k) sorted[k] = x[static_cast<std::size_t>(idx[k] - 1)];

  std::size_t minusInf = 0;
  while (minusInf < n && rtIsInf(sorted[minusInf]) && sorted[minusInf] < 0.0) ++minusInf;
  std::size_t end = n;  // one past the last non-NaN
  while (end > minusInf && std::isnan(sorted[end - 1])) --end;
  const std::size_t nans = n - end;
  std::size_t finiteEnd = end;
  while (finiteEnd > minusInf && rtIsInf(sorted[finiteEnd - 1]) && sorted[finiteEnd - 1] > 0.0)
    --finiteEnd;
  const bool plusInf = finiteEnd < end;

  std::vector<double> b;
  b.reserve(n);
  if (minusInf > 0) b.push_back(rtMinusInf);
  std::size_t k = minusInf;
  while (k < finiteEnd) {
    const double v = sorted[k];
    const double tol = half_ulp_tolerance(std::fabs(v) / 2.0);
    ++k;
    while (k < finiteEnd && std::fabs(v - sorted[k]) < tol) ++k;
    b.push_back(v);
  }
  if (plusInf) b.push_back(rtInf);
  for (std::size_t j = 0; j < nans; ++j) b.push_back(sorted[end + j]);
  return b;
}

}  // namespace kelo::kern

using namespace kelo;

extern "C" {

KELO_API void m_refp1_sort(emxArray_int32_T* x) {
  // Sorting integers stably or not gives the same values; std::stable_sort
  // is the same ascending order as the bottom-up merge of the index sort.
  // It never throws: without memory for its buffer it sorts in place.
  auto v = elements(x);
  std::stable_sort(v.begin(), v.end());
}

KELO_API void m_unique(const emxArray_real_T* x, emxArray_real_T* b) {
  guarded(
      [&] {
        const std::vector<double> values = kern::unique(elements(x));
        if (!resize_row(b, static_cast<int32_t>(values.size()))) return;
        auto out = elements(b);
        std::copy_n(values.begin(), std::min(values.size(), out.size()), out.begin());
      },
      [&] { empty(b); });
}

}  // extern "C"
