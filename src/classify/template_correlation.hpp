// Beat classification by correlation with an average-beat template, shared
// by the fixed-length and the record variants. Positions are 1-based.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>

#include "runtime/numeric.hpp"

namespace kelo::classify {

// A template shorter than the signal is correlated as 1-based samples
// a .. b of the signal. Returns 0 when b - a + 1 is not the template's
// length (and, as a guard that valid windows never reach, when the range
// leaves the signal). The 1e-20 in the denominator makes a flat segment or
// a flat template correlate 0 instead of dividing by zero.
inline double m_calcCorr(std::span<const double> tmpl, std::span<const double> signal, int32_t a,
                         int32_t b) {
  const int32_t len = kelo::sat_add(kelo::sat_sub(b, a), 1);
  if (len <= 0 || static_cast<std::size_t>(len) != tmpl.size()) return 0.0;
  if (a < 1 || static_cast<std::size_t>(b) > signal.size()) return 0.0;
  const std::span<const double> seg = signal.subspan(static_cast<std::size_t>(a - 1), tmpl.size());
  const double count = static_cast<double>(len);

  double tsum = 0.0;
  double ssum = 0.0;
  for (std::size_t i = 0; i < tmpl.size(); ++i) tsum += tmpl[i];
  for (std::size_t i = 0; i < seg.size(); ++i) ssum += seg[i];
  const double mt = tsum / count;
  const double ms = ssum / count;

  double cross = 0.0;
  double tt = 0.0;
  double ss = 0.0;
  for (std::size_t i = 0; i < tmpl.size(); ++i) {
    const double dt = tmpl[i] - mt;
    const double ds = seg[i] - ms;
    cross += dt * ds;
    tt += dt * dt;
    ss += ds * ds;
  }
  return cross / (std::sqrt(tt * ss) + 1e-20);
}

// m_calcCorr with the template's part (its mean, its centred values and
// their sum of squares) worked out once for all the windows a pass
// correlates with it. The same operations in the same order: correlate()
// gives m_calcCorr's bits (the tests compare the two).
class PreparedTemplate {
 public:
  // centred: room for tmpl.size() values, kept for the object's life.
  PreparedTemplate(std::span<const double> tmpl, std::span<double> centred) : centred_(centred.first(tmpl.size())) {
    const double count = static_cast<double>(tmpl.size());
    double tsum = 0.0;
    for (std::size_t i = 0; i < tmpl.size(); ++i) tsum += tmpl[i];
    const double mt = tsum / count;
    for (std::size_t i = 0; i < tmpl.size(); ++i) {
      centred_[i] = tmpl[i] - mt;
      tt_ += centred_[i] * centred_[i];
    }
  }

  double correlate(std::span<const double> signal, int32_t a, int32_t b) const {
    const int32_t len = kelo::sat_add(kelo::sat_sub(b, a), 1);
    if (len <= 0 || static_cast<std::size_t>(len) != centred_.size()) return 0.0;
    if (a < 1 || static_cast<std::size_t>(b) > signal.size()) return 0.0;
    const std::span<const double> seg = signal.subspan(static_cast<std::size_t>(a - 1), centred_.size());
    double ssum = 0.0;
    for (std::size_t i = 0; i < seg.size(); ++i) ssum += seg[i];
    const double ms = ssum / static_cast<double>(len);
    double cross = 0.0;
    double ss = 0.0;
    for (std::size_t i = 0; i < seg.size(); ++i) {
      const double ds = seg[i] - ms;
      cross += centred_[i] * ds;
      ss += ds * ds;
    }
    return cross / (std::sqrt(tt_ * ss) + 1e-20);
  }

 private:
  std::span<double> centred_;
  double tt_ = 0.0;
};

// Window geometry: the template covers r - half .. r + half; the shift
// search moves that window by up to shift samples either way.
struct Window {
  int32_t half;
  int32_t shift;
};

}  // namespace kelo::classify
