// Signal conditioning of the QRS detector in its plain form: centring, the sliding-window
// measures, the energy envelope, the adaptive threshold and the cutting of
// the recording into candidate QRS regions.
#include <algorithm>
#include <cmath>

#include "reference/detector.hpp"
#include "keloecgsolver/rt_nonfinite.h"
#include "runtime/kernels.hpp"

namespace kelo::ref {

namespace {

// Window of half-width h centred on 0-based index k (h <= k < n - h).
std::span<const double> window_at(std::span<const double> x, std::size_t k, int64_t h) {
  const auto half = static_cast<std::size_t>(h);
  return x.subspan(k - half, 2 * half + 1);
}

// 0-based indices k whose window of half-width h fits: the 1-based
// positions 1 + h .. n - h. Calls f(k) for each, in ascending order.
template <class F>
void for_each_full_window(std::size_t n, int64_t h, F f) {
  const auto half = static_cast<std::size_t>(h);
  for (std::size_t k = half; k + half < n; ++k) f(k);
}

}  // namespace

Widths widths_for(double fs) {
  return Widths{
      static_cast<int64_t>(std::floor(0.2 * fs)),
      static_cast<int64_t>(std::floor(0.028 * fs)),
      static_cast<int64_t>(std::floor(0.1 * fs)),
      static_cast<int64_t>(std::floor(0.08 * fs)),
      3.0 * fs,
      0.2 * fs,
  };
}

// The edge holds read elements 1 + h and n - h without a check of their
// own; recordings too short for them (the threshold's hold of fs samples is
// the longest) are not analysed at all, and neither are rates that give no
// meaningful window (NaN, infinite, zero or negative).
bool fits_edge_holds(std::size_t n, double fs) {
  if (!std::isfinite(fs) || !(fs > 0.0)) return false;
  return fs < 1.0 || static_cast<double>(n) >= fs + 1.0;
}

void centre(std::span<double> ecg) {
  const double m = median(ecg);
  for (double& v : ecg) v = v - m;
}

void edge_hold(std::span<double> x, int64_t h) {
  if (h < 1 || x.size() < static_cast<std::size_t>(h) + 1) return;
  const auto half = static_cast<std::size_t>(h);
  const std::size_t n = x.size();
  const double head = x[half];  // element 1 + h
  std::fill_n(x.begin(), half, head);
  const double tail = x[n - half - 1];  // element n - h, read after the head hold
  std::fill(x.begin() + static_cast<std::ptrdiff_t>(n - half), x.end(), tail);
}

std::vector<double> local_spread(std::span<const double> ecg, int64_t h) {
  std::vector<double> localSpread(ecg.size(), 0.0);
  for_each_full_window(ecg.size(), h,
                       [&](std::size_t k) { localSpread[k] = kern::std_dev(window_at(ecg, k, h)); });
  edge_hold(localSpread, h);
  return localSpread;
}

std::vector<double> slope(std::span<const double> ecg) {
  std::vector<double> s(ecg.size(), 0.0);
  for (std::size_t k = 1; k + 1 < ecg.size(); ++k) s[k] = ecg[k + 1] - ecg[k - 1];
  return s;
}

std::vector<double> range_product(std::span<const double> ecg, std::span<const double> slope,
                                  int64_t h) {
  const std::size_t n = ecg.size();
  std::vector<double> ampRange(n, 0.0);
  std::vector<double> slopeRange(n, 0.0);
  for_each_full_window(n, h, [&](std::size_t k) {
    const auto a = window_at(ecg, k, h);
    ampRange[k] = kern::max_value(a) - kern::min_value(a);
    const auto s = window_at(slope, k, h);
    slopeRange[k] = kern::max_value(s) - kern::min_value(s);
  });
  std::vector<double> product(n);
  for (std::size_t k = 0; k < n; ++k) product[k] = slopeRange[k] * ampRange[k] * ampRange[k];
  return product;
}

std::vector<double> envelope(std::span<const double> product, int64_t h) {
  std::vector<double> qrsFeature(product.size(), 0.0);
  for_each_full_window(product.size(), h,
                       [&](std::size_t k) { qrsFeature[k] = kern::max_value(window_at(product, k, h)); });
  edge_hold(qrsFeature, h);
  return qrsFeature;
}

std::vector<double> threshold_curve(std::span<const double> qrsFeature,
                                    std::span<const double> localSpread, double fs) {
  const std::size_t n = qrsFeature.size();
  std::vector<double> qrsThreshold(n);
  smooth(qrsFeature, 3.0 * fs, qrsThreshold);
  for (double& v : qrsThreshold) v = v / 2.0;

  // Hold of fs samples at both ends. The index arithmetic takes the integer
  // part, which matters only for a non-integral rate: elements
  // 1 .. floor(fs) take element floor(1 + fs); then floor(fs) elements at
  // positions floor(1 + (n - fs) + j), j = 0, 1, ..., take element
  // floor(n - fs). Needs n >= fs + 1 (fits_edge_holds).
  if (fs >= 1.0 && static_cast<double>(n) >= fs + 1.0) {
    const auto count = static_cast<std::size_t>(fs);
    const double nd = static_cast<double>(n);
    const double head = qrsThreshold[static_cast<std::size_t>(1.0 + fs) - 1];
    std::fill_n(qrsThreshold.begin(), count, head);
    const double tail = qrsThreshold[static_cast<std::size_t>(nd - fs) - 1];
    for (std::size_t j = 0; j < count; ++j) {
      const auto pos = static_cast<std::size_t>(1.0 + (nd - fs) + static_cast<double>(j));
      if (pos >= 1 && pos <= n) qrsThreshold[pos - 1] = tail;
    }
  }

  for (std::size_t k = 0; k < n && k < localSpread.size(); ++k)
    qrsThreshold[k] = qrsThreshold[k] + 4.0 * rt_pow_snf(localSpread[k], 3.0);
  return qrsThreshold;
}

Regions candidate_regions(std::span<const double> qrsFeature, std::span<const double> qrsThreshold) {
  const std::size_t n = std::min(qrsFeature.size(), qrsThreshold.size());
  std::vector<double> above(n);
  for (std::size_t k = 0; k < n; ++k) above[k] = qrsFeature[k] > qrsThreshold[k] ? 1.0 : 0.0;

  Regions r;
  for (std::size_t k = 0; k + 1 < n; ++k) {
    const double delta = above[k + 1] - above[k];
    if (delta == 1.0) r.start.push_back(static_cast<double>(k + 1));
    if (delta == -1.0) r.end.push_back(static_cast<double>(k + 1));
  }

  if (!r.start.empty() && !r.end.empty()) {
    const double nd = static_cast<double>(n);
    // The recording begins above threshold: the first region starts at 1.
    if (r.start.front() > r.end.front()) r.start.insert(r.start.begin(), 1.0);
    // The recording ends above threshold: the last region ends at n.
    if (r.start.back() > r.end.back()) r.end.push_back(nd);
    if (r.start.front() <= 0.0) r.start.front() = 1.0;
    if (r.end.back() > nd) r.end.back() = nd;
  }

  const std::size_t nRegions = std::min(r.start.size(), r.end.size());
  r.start.resize(nRegions);
  r.end.resize(nRegions);
  return r;
}

}  // namespace kelo::ref
