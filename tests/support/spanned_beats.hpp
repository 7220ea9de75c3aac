// Beat windows spanned by two shapes: S, a narrow peak (a Gaussian two
// samples wide), and D, a pattern of alternating sign, centred, made
// orthogonal to the centred S and scaled to its norm. A window S + tD then
// correlates with S + uD by cos(atan t - atan u), with S alone by
// 1 / sqrt(1 + t^2), and shifting it by a sample or two only lowers that.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

namespace kelo::test {

struct SpannedShapes {
  std::vector<double> s, d;
};

inline SpannedShapes spanned_shapes(int width) {
  const int half = width / 2;
  std::vector<double> s(width), d(width), centred(width);
  double ms = 0.0, md = 0.0, sd = 0.0, ss = 0.0, dd = 0.0;
  for (int i = 0; i < width; ++i) {
    s[i] = std::exp(-(i - half) * (i - half) / 8.0);
    d[i] = i % 2 == 0 ? 1.0 : -1.0;
    ms += s[i];
    md += d[i];
  }
  for (int i = 0; i < width; ++i) {
    centred[i] = s[i] - ms / width;
    d[i] -= md / width;
    sd += centred[i] * d[i];
    ss += centred[i] * centred[i];
  }
  for (int i = 0; i < width; ++i) {
    d[i] -= sd / ss * centred[i];
    dd += d[i] * d[i];
  }
  for (double& v : d) v *= std::sqrt(ss / dd);
  return {s, d};
}

// Adds scale * (S + tD) centred on the 1-based position `centre`.
inline void add_spanned_beat(std::vector<double>& x, const SpannedShapes& shapes, int32_t centre, double t,
                             double scale = 1.0) {
  const auto width = static_cast<int32_t>(shapes.s.size());
  for (int32_t i = 0; i < width; ++i) x[centre - 1 - width / 2 + i] += scale * (shapes.s[i] + t * shapes.d[i]);
}

}  // namespace kelo::test
