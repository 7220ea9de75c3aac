// Statistics kernels: mean, standard deviation, median, extrema and the
// small element-wise routines of the detection unit.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
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

namespace {

// The element a stable ascending sort would put at 0-based rank r, given
// its value v: only the two zeros compare equal while differing in bits,
// and a stable sort keeps them in input order behind every negative number.
double stable_rank_value(std::span<const double> x, std::size_t r, double v) {
  if (v != 0.0) return v;
  std::size_t below = 0;
  for (double e : x) below += e < 0.0 ? 1 : 0;
  std::size_t zero = 0;
  for (double e : x) {
    if (e != 0.0) continue;
    if (below + zero == r) return e;
    ++zero;
  }
  return v;
}

// Doubles as unsigned keys in the same order (-0 just below +0).
uint64_t order_key(double v) {
  const auto bits = std::bit_cast<uint64_t>(v);
  return (bits >> 63) != 0 ? ~bits : bits | (uint64_t{1} << 63);
}

// The value of rank r (0-based, ascending) among the NaN-free values of w,
// which it reorders. Large inputs are first narrowed down by the leading
// bits of their keys (a histogram of 11 bits per round, the elements of
// the bin holding rank r moved to the front); a selection finishes.
double select_rank(std::span<double> w, std::size_t r) {
  constexpr int kDigit = 11;
  constexpr std::size_t kBins = std::size_t{1} << kDigit;
  constexpr std::size_t kSmall = 2048;
  int shift = 64 - kDigit;
  std::vector<uint32_t> counts;
  while (w.size() > kSmall && shift >= 0) {
    // Four interleaved histograms, so that runs of equal bins do not wait
    // on each other's increments.
    counts.assign(4 * kBins, 0);
    const auto bin = [&](double v) { return (order_key(v) >> shift) & (kBins - 1); };
    std::size_t k = 0;
    for (; k + 4 <= w.size(); k += 4)
      for (std::size_t j = 0; j < 4; ++j) ++counts[j * kBins + bin(w[k + j])];
    for (; k < w.size(); ++k) ++counts[bin(w[k])];
    std::size_t chosen = 0, before = 0;
    for (;; ++chosen) {
      const std::size_t c = counts[chosen] + counts[kBins + chosen] + counts[2 * kBins + chosen] +
                            counts[3 * kBins + chosen];
      if (r < before + c) break;
      before += c;
    }
    std::size_t kept = 0;
    for (double v : w)
      if (bin(v) == chosen) w[kept++] = v;
    w = w.first(kept);
    r -= before;
    shift = shift >= kDigit ? shift - kDigit : (shift > 0 ? 0 : -1);
  }
  std::nth_element(w.begin(), w.begin() + static_cast<std::ptrdiff_t>(r), w.end());
  return w[r];
}

// The median's two middle values by rank, found in what a sample of the
// data brackets: the values whose keys lie between two sample quantiles
// around the median's rank are gathered into `work` and selected there.
// Empty when the bracket missed the rank (then the caller selects on a
// full copy). Sets `nan` when x holds a NaN.
struct Middle {
  double lower, upper;  // ranks mid - 1 (even counts only) and mid
};
std::optional<Middle> bracketed_middle(std::span<const double> x, std::span<double> work, bool& nan) {
  const std::size_t n = x.size();
  const std::size_t mid = n / 2;
  constexpr std::size_t kSample = 8192;
  constexpr std::size_t kReach = 160;  // sample ranks either side of the median's (3.5 sigma)
  std::vector<uint64_t> sample(kSample);
  for (std::size_t j = 0; j < kSample; ++j) sample[j] = order_key(x[j * (n / kSample)]);
  std::sort(sample.begin(), sample.end());
  const std::size_t centre = mid / (n / kSample);
  const uint64_t low = sample[centre > kReach ? centre - kReach : 0];
  const uint64_t high = sample[std::min(centre + kReach, kSample - 1)];
  std::size_t below = 0, kept = 0;
  uint64_t largestBelow = 0;
  nan = false;
  // Branch-free: every value is written, and the write position moves
  // on only for values inside the bracket (work has room for all of x).
  bool anyNaN = false;
  for (const double v : x) {
    const uint64_t key = order_key(v);
    anyNaN |= v != v;
    const bool under = key < low;
    below += under;
    largestBelow = under && key > largestBelow ? key : largestBelow;
    work[kept] = v;
    kept += !under && key <= high;
  }
  nan = anyNaN;
  if (nan || mid < below || mid >= below + kept) return std::nullopt;
  const auto w = work.first(kept);
  const std::size_t r = mid - below;
  std::nth_element(w.begin(), w.begin() + static_cast<std::ptrdiff_t>(r), w.end());
  Middle m{0.0, w[r]};
  if (n % 2 == 0) {
    if (r > 0) m.lower = *std::max_element(w.begin(), w.begin() + static_cast<std::ptrdiff_t>(r));
    else if (below > 0) m.lower = std::bit_cast<double>((largestBelow >> 63) != 0 ? largestBelow & ~(uint64_t{1} << 63) : ~largestBelow);
    else return std::nullopt;
  }
  return m;
}

double median_of(std::span<const double> x, std::span<double> work) {
  const std::size_t n = x.size();
  if (n == 0) return rtNaN;
  const std::size_t mid = n / 2;
  double a = 0.0, b = 0.0;
  bool nan = false;
  std::optional<Middle> m;
  if (n >= 65536) m = bracketed_middle(x, work, nan);
  if (nan) return rtNaN;  // a NaN sorts last, and then the median is NaN
  if (m) {
    a = m->lower;
    b = m->upper;
  } else {
    for (std::size_t k = 0; k < n; ++k) {
      work[k] = x[k];
      nan = nan || x[k] != x[k];
    }
    if (nan) return rtNaN;
    b = select_rank(work.first(n), mid);
    if (n % 2 == 0) {
      // Rank mid - 1: b again when more than mid elements lie below or at
      // b's value, else the largest value below b.
      std::size_t less = 0;
      double below = -std::numeric_limits<double>::infinity();
      for (double v : x) {
        const bool lower = v < b;
        less += lower ? 1 : 0;
        below = lower && v > below ? v : below;
      }
      a = less <= mid - 1 ? b : below;
    }
  }
  b = stable_rank_value(x, mid, b);
  if (n % 2 == 1) return b;
  a = stable_rank_value(x, mid - 1, a);
  // Same sign and finite: a + (b - a) / 2 cannot overflow; otherwise the
  // plain mean is used.
  const bool sameSide = (a < 0.0 && b < 0.0) || (a >= 0.0 && b >= 0.0);
  if (sameSide && !rtIsInf(a) && !rtIsInf(b)) return a + (b - a) / 2.0;
  return (a + b) / 2.0;
}

}  // namespace

double vector_median(std::span<const double> x) {
  std::vector<double> work(x.size());
  return median_of(x, work);
}

double median(std::span<const double> x) { return vector_median(x); }

double median(std::span<const double> x, std::span<double> scratch) {
  if (scratch.size() < x.size()) return vector_median(x);
  return median_of(x, scratch);
}

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
