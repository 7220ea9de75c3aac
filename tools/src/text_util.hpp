// Small text helpers shared by the outputs and messages.
#pragma once

#include <cmath>
#include <cstdio>
#include <string>

namespace keloecg {

// m:ss.s, cut (not rounded) to the tenth of a second, so that a recording
// of 179.99 s never reads as 3:00.0.
inline std::string clock_text(double seconds) {
  char buf[48];
  if (!(std::abs(seconds) < 1e9)) {  // beyond any recording: plain seconds
    std::snprintf(buf, sizeof buf, "%g s", seconds);
    return buf;
  }
  const bool negative = seconds < 0;
  const auto tenths = static_cast<long long>(std::floor(std::abs(seconds) * 10.0 + 1e-6));
  std::snprintf(buf, sizeof buf, "%s%lld:%02lld.%lld", negative ? "-" : "", tenths / 600, tenths % 600 / 10,
                tenths % 10);
  return buf;
}

// A number in at most 6 significant digits ("360", "0.0078125", "1e-300").
inline std::string short_number(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%g", v);
  return buf;
}

}  // namespace keloecg
