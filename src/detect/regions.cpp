// Candidate QRS regions: where the energy envelope lies strictly above the
// adaptive threshold, from both curves or without the threshold curve.
//
// Without the curve. Every threshold value is
//   T(k) = t(k) + 4 * pow(s(k), 3),
// t(k) being half the moving average of the envelope over about 3 * fs
// samples (summed in a fixed order, held at the ends) and s(k) the local
// spread, a two-pass standard deviation over 0.4 s. Computed as written
// this costs 3 * fs additions, a few hundred more operations and a call of
// pow per sample. Yet only the comparison F(k) > T(k) matters, and it is
// almost never close. So T(k) is bracketed, cheaply and rigorously:
//
//  - Sums over a moving window come from prefix sums over blocks of the
//    recording, with a bound on their rounding error (each addition errs by
//    at most u times the largest partial sum, u = 2^-53), so the exact sum
//    of each window is known to lie in an interval.
//  - A sum of m terms taken in any order, in particular in the fixed order,
//    lies within (m - 1) u / (1 - (m - 1) u) of the sum of the magnitudes
//    of the exact sum. From the exact window sums follow bounds on what
//    the fixed-order arithmetic gives: for t directly (the envelope is never
//    negative); for s through sum x, sum x^2 and the error analysis of the
//    two-pass deviation (the computed mean's error adds n (mean error)^2 to
//    the sum of squares, the squares and their sum a relative error each).
//    Every later step (division, square root, halving, the final addition)
//    is rounded monotonically, so it carries bounds over unchanged.
//  - pow(s, 3) is bracketed by s * s * s widened by 2^-40 relative. This
//    rests on the platform's pow being accurate to 2^-43 relative (about a
//    thousand units in the last place; C libraries keep pow within one
//    unit). Where relative bounds could underflow or overflow, the exact
//    value is computed; pow(+0, 3) is +0 by the C standard.
//  - F(k) <= tLo settles most samples at once (4 pow(s, 3) is never
//    negative). Then F(k) > THi means above and F(k) <= TLo not above; only
//    in between, a relative gap of about 1e-12 that real signals essentially
//    never produce, is T(k) computed exactly, as written.
//
// A window holding a NaN or an infinity makes t(k) or s(k) NaN or +Inf,
// and T(k) with it: F(k) > T(k) is then false for every F(k), which needs
// no bracketing.
#include <algorithm>
#include <cmath>

#include "detect/detector.hpp"
#include "keloecgsolver/rt_nonfinite.h"
#include "runtime/kernels.hpp"

namespace kelo::detect {

namespace {

constexpr double kUnit = 0x1p-53;       // unit roundoff of double
constexpr double kPowMargin = 0x1p-40;  // relative widening of s * s * s
constexpr double kMax = 0x1.fffffffffffffp1023;  // the largest finite double
constexpr std::size_t kBlock = 4096;    // samples decided per pass

// Appends region bounds as `above` changes from sample to sample, then
// applies the fixes at the ends and the pairing.
class RegionBuilder {
 public:
  explicit RegionBuilder(std::size_t n) : n_(n) {}

  // above(k) for k = 0, 1, ..., n - 1 in order.
  void next(bool above) {
    if (k_ > 0 && above != previous_) {
      // delta(k) = above(k + 1) - above(k) for the 1-based k = k_.
      if (above) r_.start.push_back(static_cast<double>(k_));
      else r_.end.push_back(static_cast<double>(k_));
    }
    previous_ = above;
    ++k_;
  }

  Regions finish() {
    if (!r_.start.empty() && !r_.end.empty()) {
      const double nd = static_cast<double>(n_);
      // The recording begins above threshold: the first region starts at 1.
      if (r_.start.front() > r_.end.front()) r_.start.insert(r_.start.begin(), 1.0);
      // The recording ends above threshold: the last region ends at n.
      if (r_.start.back() > r_.end.back()) r_.end.push_back(nd);
      if (r_.start.front() <= 0.0) r_.start.front() = 1.0;
      if (r_.end.back() > nd) r_.end.back() = nd;
    }
    const std::size_t nRegions = std::min(r_.start.size(), r_.end.size());
    r_.start.resize(nRegions);
    r_.end.resize(nRegions);
    return std::move(r_);
  }

 private:
  std::size_t n_;
  std::size_t k_ = 0;
  bool previous_ = false;
  Regions r_;
};


// pow(s, 3) >= cube_low(sLo) for every s >= sLo, and <= cube_high(sHi) for
// every s <= sHi; empty where relative bounds are not safe.
std::optional<double> cube_low(double s) {
  if (s < 0x1p-300) return 0.0;
  if (!(s <= 0x1p300)) return std::nullopt;
  return s * s * s * (1.0 - kPowMargin);
}

std::optional<double> cube_high(double s) {
  if (s == 0.0) return 0.0;
  if (s < 0x1p-300) return 0x1p-899;
  if (!(s <= 0x1p300)) return std::nullopt;
  return s * s * s * (1.0 + kPowMargin);
}

// What is known of a sample while its block is decided.
enum class Verdict : unsigned char {
  Below,       // not above
  Above,       // above
  NeedSpread,  // the spread and T decide
};

// Marks in the bounds of the spread: NaN or infinite (never above). A t
// or spread that could not be bracketed is marked -2 by the kernels (then
// T is computed exactly), a NaN or infinite t is marked NaN.
constexpr double kNonFiniteSpread = -1.0;

}  // namespace

namespace {

// Four quarters of x summed side by side (four chains of additions in
// flight), then each quarter shifted by the sum of those before it. With
// Counting, non-finite samples count instead of adding.
template <bool Squares, bool Counting>
double quartered_prefix(const double* x, std::size_t count, double* prefix, uint32_t* nonFinite) {
  const std::size_t q = count / 4;
  double sum[4] = {}, largest[4] = {};
  uint32_t bad[4] = {};
  const auto add = [&](std::size_t i, std::size_t j) {
    double v = x[j];
    if constexpr (Squares) v = v * v;
    if constexpr (Counting) {
      const bool finite = std::fabs(x[j]) <= kMax;
      bad[i] += finite ? 0 : 1;
      nonFinite[j + 1] = bad[i];
      v = finite ? v : 0.0;
    }
    sum[i] += v;
    largest[i] = std::max(largest[i], std::fabs(sum[i]));
    prefix[j + 1] = sum[i];
  };
  for (std::size_t j = 0; j < q; ++j) {
#pragma GCC unroll 4
    for (std::size_t i = 0; i < 4; ++i) add(i, i * q + j);
  }
  for (std::size_t j = 4 * q; j < count; ++j) add(3, j);
  prefix[0] = 0.0;
  if constexpr (Counting) nonFinite[0] = 0;
  double most = std::max({largest[0], largest[1], largest[2], largest[3]});
  double offset = 0.0;
  uint32_t offsetBad = 0;
  for (std::size_t i = 1; i < 4; ++i) {
    offset += sum[i - 1];
    offsetBad += bad[i - 1];
    most = std::max(most, std::fabs(offset));
    const std::size_t end = i < 3 ? (i + 1) * q : count;
    for (std::size_t j = i * q + 1; j <= end; ++j) {
      prefix[j] += offset;
      most = std::max(most, std::fabs(prefix[j]));
      if constexpr (Counting) nonFinite[j] += offsetBad;
    }
  }
  // Each prefix took at most count + 4 additions, each rounding by at most
  // u times the largest magnitude summed; two prefixes make a difference.
  return 2.5 * kUnit * static_cast<double>(count + 8) * most;
}

template <bool Squares>
PrefixSums prefix_sums_of(const double* x, std::size_t count, double* prefix, uint32_t* nonFinite) {
  // First without a look at each sample: once a partial sum is NaN or
  // infinite it stays so, so a finite total (and largest partial sum: the
  // maximum passes NaNs over) means every sample was finite and no sum
  // overflowed, and every prefix counts no non-finite sample.
  const double error = quartered_prefix<Squares, false>(x, count, prefix, nonFinite);
  if (std::isfinite(error) && std::isfinite(prefix[count])) return {error, true};
  const double counted = quartered_prefix<Squares, true>(x, count, prefix, nonFinite);
  return {counted, nonFinite[count] == 0};
}

}  // namespace

PrefixSums prefix_sums(const double* x, std::size_t count, bool squares, double* prefix,
                       uint32_t* nonFinite) {
  return squares ? prefix_sums_of<true>(x, count, prefix, nonFinite)
                 : prefix_sums_of<false>(x, count, prefix, nonFinite);
}

Regions candidate_regions(std::span<const double> qrsFeature, std::span<const double> qrsThreshold) {
  const std::size_t n = std::min(qrsFeature.size(), qrsThreshold.size());
  RegionBuilder builder(n);
  for (std::size_t k = 0; k < n; ++k) builder.next(qrsFeature[k] > qrsThreshold[k]);
  return builder.finish();
}

Regions regions_without_threshold(std::span<const double> ecg, std::span<const double> qrsFeature,
                                  const Widths& w, double fs, const simd::Kernels& kernels,
                                  BracketStats* stats) {
  const std::size_t n = qrsFeature.size();
  const std::size_t h = kern::smooth_half_width(w.smoothingSpan, n);
  const ThresholdHold hold = threshold_hold(n, fs);
  // The held ends of t take two values, computed exactly once.
  const auto exact_half_mean = [&](std::size_t k) { return kern::smooth_at(qrsFeature, h, k) / 2.0; };
  const double headT = hold.headCount > 0 ? exact_half_mean(hold.headSource) : 0.0;
  const double tailT = hold.headCount > 0 ? exact_half_mean(hold.tailSource) : 0.0;
  const auto held_t = [&](std::size_t source) { return source == hold.headSource ? headT : tailT; };

  // The spread's windows fit for k in [sh, n - sh); elsewhere the spread is
  // a held value (or 0), taken exactly.
  const auto sh = static_cast<std::size_t>(std::max<int64_t>(w.spreadHalfWidth, 0));
  const bool spreadWindows = sh >= 1 && n > 2 * sh;
  const auto exact_spread = [&](std::size_t k) { return local_spread_at(ecg, w.spreadHalfWidth, k); };

  const std::size_t block = std::min(n, kBlock);
  const std::size_t margin = std::max(h, sh);
  std::vector<double> work(4 * block + 2 * (block + 2 * margin + 1));
  double* const tLo = work.data();
  double* const tHi = tLo + block;
  double* const sLo = tHi + block;
  double* const sHi = sLo + block;
  double* const prefix = sHi + block;
  double* const squarePrefix = prefix + block + 2 * margin + 1;
  std::vector<uint32_t> nonFinite(block + 2 * margin + 1);
  std::vector<Verdict> verdict(block);
  RegionBuilder builder(n);
  std::size_t exact = 0;

  for (std::size_t b0 = 0; b0 < n; b0 += block) {
    const std::size_t b1 = std::min(b0 + block, n);
    // Pass 1: t(k) bracketed through prefix sums of the envelope over the
    // block's windows. F(k) <= tLo <= t(k) <= T(k) settles most samples
    // without the spread.
    const std::size_t a0 = b0 > h ? b0 - h : 0;
    const std::size_t a1 = std::min(n, b1 + h);
    const PrefixSums sums = prefix_sums(qrsFeature.data() + a0, a1 - a0, false, prefix, nonFinite.data());
    const double error = sums.error;
    // Windows that fit whole, at once; those cut at an end one by one.
    const std::size_t whole0 = std::max(b0, h), whole1 = std::min(b1, n > h ? n - h : 0);
    if (whole1 > whole0)
      kernels.mean_bounds(prefix + (whole0 - h - a0), 2 * h + 1, whole1 - whole0, error,
                          tLo + (whole0 - b0), tHi + (whole0 - b0));
    const bool plain = whole0 == b0 && whole1 == b1 && sums.allFinite &&
                       hold.source(b0) == b0 && hold.source(b1 - 1) == b1 - 1 &&
                       (b1 <= hold.tailBegin || b0 >= hold.tailEnd);
    std::size_t open0 = b1, open1 = b0;  // the first and one past the last open sample
    for (std::size_t k = b0; k < b1; ++k) {
      const std::size_t i = k - b0;
      if (!plain) {
        const std::size_t source = hold.source(k);
        const std::size_t lo = (k > h ? k - h : 0) - a0, hi = std::min(n, k + h + 1) - a0;
        if (source != k) {
          tLo[i] = tHi[i] = held_t(source);
        } else if (!sums.allFinite && nonFinite[hi] != nonFinite[lo]) {
          tLo[i] = tHi[i] = rtNaN;  // t is NaN or +Inf
        } else if (k < whole0 || k >= whole1) {
          kernels.mean_bounds(prefix + lo, hi - lo, 1, error, tLo + i, tHi + i);
        }
      }
      // A NaN envelope value, and any value against a NaN or infinite t
      // (marked NaN), is never above; an unknown t (marked -2) goes on.
      const bool open = qrsFeature[k] > tLo[i];
      verdict[i] = open ? Verdict::NeedSpread : Verdict::Below;
      open0 = open && k < open0 ? k : open0;
      open1 = open ? k + 1 : open1;
    }
    // Pass 2: bounds on the spread of the samples still open, through
    // prefix sums of the ECG and of its squares.
    const std::size_t fit0 = std::max(open0, sh), fit1 = std::min(open1, n > sh ? n - sh : 0);
    const bool windows = spreadWindows && fit1 > fit0;
    if (windows) {
      const std::size_t c0 = fit0 - sh, c1 = fit1 + sh;
      const PrefixSums sums = prefix_sums(ecg.data() + c0, c1 - c0, false, prefix, nonFinite.data());
      const PrefixSums squared = prefix_sums(ecg.data() + c0, c1 - c0, true, squarePrefix, nonFinite.data());
      kernels.spread_bounds(prefix, squarePrefix, 2 * sh + 1, fit1 - fit0, sums.error, squared.error,
                            sLo + (fit0 - b0), sHi + (fit0 - b0));
      if (!sums.allFinite)
        for (std::size_t k = fit0; k < fit1; ++k)
          if (nonFinite[k + sh + 1 - c0] != nonFinite[k - sh - c0])
            sLo[k - b0] = sHi[k - b0] = kNonFiniteSpread;
    }
    // The open samples without a whole window: held, or one-sample windows.
    const auto exact_spreads = [&](std::size_t from, std::size_t to) {
      for (std::size_t k = from; k < to; ++k) {
        if (verdict[k - b0] != Verdict::NeedSpread) continue;
        const double s = exact_spread(k);
        sLo[k - b0] = sHi[k - b0] = std::isfinite(s) ? s : kNonFiniteSpread;
      }
    };
    if (windows) {
      exact_spreads(open0, fit0);
      exact_spreads(fit1, open1);
    } else {
      exact_spreads(open0, open1);
    }
    // Pass 3: the open samples, by the bounds of T(k) or, between them, by
    // T(k) itself.
    for (std::size_t k = b0; k < b1; ++k) {
      const std::size_t i = k - b0;
      if (verdict[i] == Verdict::Below) continue;
      const double f = qrsFeature[k];
      if (tLo[i] >= 0.0) {  // t bracketed (else marked unknown)
        if (sLo[i] == kNonFiniteSpread) {
          verdict[i] = Verdict::Below;
          continue;
        }
        const std::optional<double> pLo = cube_low(sLo[i]);
        const std::optional<double> pHi = cube_high(sHi[i]);
        if (sLo[i] >= 0.0 && pLo && pHi) {
          if (f > tHi[i] + 4.0 * *pHi) {
            verdict[i] = Verdict::Above;
            continue;
          }
          if (f <= tLo[i] + 4.0 * *pLo) {
            verdict[i] = Verdict::Below;
            continue;
          }
        }
      }
      ++exact;
      const std::size_t source = hold.source(k);
      const double t = source == k ? exact_half_mean(k) : held_t(source);
      verdict[i] = f > t + 4.0 * rt_pow_snf(exact_spread(k), 3.0) ? Verdict::Above : Verdict::Below;
    }
    for (std::size_t k = b0; k < b1; ++k) builder.next(verdict[k - b0] == Verdict::Above);
  }
  if (stats != nullptr) stats->exact = exact;
  return builder.finish();
}

}  // namespace kelo::detect
