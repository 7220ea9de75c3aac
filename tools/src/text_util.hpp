// Small text helpers shared by the outputs and messages.
#pragma once

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>
#include <string_view>
#include <cstdio>
#include <string>

namespace keloecg {

// m:ss.s, or h:mm:ss.s from an hour on, cut (not rounded) to the tenth of
// a second (or to `decimals` decimals), so that a recording of 179.99 s
// never reads as 3:00.0.
inline std::string clock_text(double seconds, int decimals = 1) {
  char buf[64];
  if (!(std::abs(seconds) < 1e9)) {  // beyond any recording: plain seconds
    std::snprintf(buf, sizeof buf, "%g s", seconds);
    return buf;
  }
  decimals = std::clamp(decimals, 0, 6);
  long long unit = 1;
  for (int d = 0; d < decimals; ++d) unit *= 10;
  const bool negative = seconds < 0;
  const auto ticks = static_cast<long long>(std::floor(std::abs(seconds) * static_cast<double>(unit) + 1e-6));
  const long long whole = ticks / unit, hours = whole / 3600, minutes = whole % 3600 / 60, secs = whole % 60;
  int n = hours > 0 ? std::snprintf(buf, sizeof buf, "%s%lld:%02lld:%02lld", negative ? "-" : "", hours, minutes, secs)
                    : std::snprintf(buf, sizeof buf, "%s%lld:%02lld", negative ? "-" : "", minutes, secs);
  if (decimals > 0) {
    std::snprintf(buf + n, sizeof buf - static_cast<std::size_t>(n), ".%0*d", decimals, static_cast<int>(ticks % unit));
  }
  return buf;
}

// Seconds from a time given as seconds ("90", "5.5") or as [h:]mm:ss with
// optional decimals ("1:30", "1:30:00.5"); minutes and seconds after the
// first field must lie below 60. Nothing for anything else, a negative
// time included.
inline std::optional<double> parse_clock(std::string_view text) {
  double total = 0.0;
  int fields = 0;
  while (true) {
    const auto colon = text.find(':');
    const std::string_view field = text.substr(0, colon);
    const bool last = colon == std::string_view::npos;
    double v = 0.0;
    const auto [ptr, ec] = std::from_chars(field.data(), field.data() + field.size(), v);
    if (field.empty() || ec != std::errc() || ptr != field.data() + field.size() || !(v >= 0.0) || !std::isfinite(v)) {
      return std::nullopt;
    }
    if (!last && v != std::floor(v)) return std::nullopt;  // only the seconds may have decimals
    if (fields > 0 && v >= 60.0) return std::nullopt;
    total = total * 60.0 + v;
    if (++fields > 3) return std::nullopt;
    if (last) return total;
    text.remove_prefix(colon + 1);
  }
}

// A number in at most 6 significant digits ("360", "0.0078125", "1e-300").
inline std::string short_number(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%g", v);
  return buf;
}

}  // namespace keloecg
