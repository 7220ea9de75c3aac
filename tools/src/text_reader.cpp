// Text/CSV tables and raw little-endian float32/float64 files. Neither
// stores its sampling rate: it comes from --fs or from a sidecar STEM.info
// (key=value lines: fs, full_scale, units, lead, record).
#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>

#include "errors.hpp"
#include "file_util.hpp"
#include "readers.hpp"

namespace keloecg::detail {

namespace fs = std::filesystem;

namespace {

std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t' || s.front() == '\r')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
  if (s.size() >= 2 && s.front() == '"' && s.back() == '"') s = s.substr(1, s.size() - 2);
  return s;
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// Whether a decimal number too far from 1 for a double lies below 1 in
// magnitude (it underflows) rather than above (it overflows): the decimal
// exponent of its leading nonzero digit, plus its exponent part, is
// negative. Exponents are saturated, so that no spelling overflows here.
bool below_one(std::string_view s) {
  if (!s.empty() && (s.front() == '-' || s.front() == '+')) s.remove_prefix(1);
  constexpr long long kCap = 1'000'000'000'000LL;
  long long integer_digits = 0, leading_zeros = 0;
  bool point = false, nonzero = false;
  std::size_t i = 0;
  for (; i < s.size() && (is_digit(s[i]) || s[i] == '.'); ++i) {
    if (s[i] == '.') {
      point = true;
    } else if (!nonzero && s[i] == '0') {
      leading_zeros += point ? 1 : 0;
    } else {
      nonzero = true;
      if (!point) integer_digits = std::min(integer_digits + 1, kCap);
    }
  }
  long long exponent = 0;
  if (i < s.size() && (s[i] == 'e' || s[i] == 'E')) {
    ++i;
    const bool negative = i < s.size() && s[i] == '-';
    if (i < s.size() && (s[i] == '-' || s[i] == '+')) ++i;
    for (; i < s.size() && is_digit(s[i]); ++i) exponent = std::min(exponent * 10 + (s[i] - '0'), kCap);
    if (negative) exponent = -exponent;
  }
  const long long leading = integer_digits > 0 ? integer_digits - 1 : -std::min(leading_zeros + 1, kCap);
  return leading + exponent < 0;
}

// A decimal number as the nearest double: one too small for a double is a
// zero of its sign (as the rounding gives it), one too large is infinite
// (which the callers refuse by name).
std::optional<double> number(std::string_view s) {
  s = trim(s);
  if (!s.empty() && s.front() == '+') s.remove_prefix(1);
  if (s.empty()) return std::nullopt;
  double v = 0.0;
  const auto [ptr, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
  if (ptr != s.data() + s.size()) return std::nullopt;
  if (ec == std::errc::result_out_of_range) {
    return std::copysign(below_one(s) ? 0.0 : HUGE_VAL, s.front() == '-' ? -1.0 : 1.0);
  }
  if (ec != std::errc()) return std::nullopt;
  return v;
}

std::vector<std::string_view> split(std::string_view line, char delimiter) {
  std::vector<std::string_view> out;
  if (delimiter != ' ') {
    std::size_t start = 0;
    while (true) {
      const auto end = line.find(delimiter, start);
      out.push_back(line.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
      if (end == std::string_view::npos) break;
      start = end + 1;
    }
    return out;
  }
  std::size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && (line[i] == ' ' || line[i] == '\t' || line[i] == '\r')) ++i;
    const std::size_t start = i;
    while (i < line.size() && line[i] != ' ' && line[i] != '\t' && line[i] != '\r') ++i;
    if (i > start) out.push_back(line.substr(start, i - start));
  }
  return out;
}

// Commas or semicolons when the first line has them, else runs of blanks
// and tabs.
char guess_delimiter(std::string_view line) {
  for (char c : {',', ';'}) {
    if (line.find(c) != std::string_view::npos) return c;
  }
  return ' ';
}

// Sampling rate and the other facts a sidecar may give; --fs wins.
void apply_sidecar(const fs::path& path, const LoadOptions& options, Recording& rec) {
  const auto info = read_sidecar(path);
  // A rate or full scale that is there must be usable: an unreadable,
  // zero or infinite one (a damaged sidecar, or 1e-400 that rounds to 0) is
  // an error, never silently "not given" or a full scale that turns the
  // clipping test off.
  auto get = [&](const char* key) -> std::optional<double> {
    const auto it = info.find(key);
    if (it == info.end()) return std::nullopt;
    const auto v = number(it->second);
    if (!v || !(*v > 0.0) || std::isinf(*v)) {
      auto sidecar = path;
      throw InputError(display(sidecar.replace_extension(".info")),
                       std::string(key) + " \"" + it->second + "\" is not a positive finite number");
    }
    return v;
  };
  rec.fs = options.fs.value_or(get("fs").value_or(0.0));
  if (const auto full = get("full_scale")) {
    rec.full_scale = *full;
    rec.full_scale_source = "sidecar " + path.stem().string() + ".info";
  }
  if (const auto it = info.find("units"); it != info.end()) rec.units = it->second;
  if (const auto it = info.find("record"); it != info.end()) rec.name = it->second;
  if (const auto it = info.find("lead"); it != info.end() && rec.lead_names.size() == 1 && rec.lead_names[0].empty()) {
    rec.lead_names[0] = it->second;
  }
  if (!(rec.fs > 0.0)) {
    throw InputError(display(path), "the sampling rate is not stored in this format: give it with --fs");
  }
}

}  // namespace

Recording read_text_table(const fs::path& path, const LoadOptions& options) {
  const std::string where = display(path);
  const std::string text = read_text(path);
  Recording rec;
  rec.format = "CSV";
  rec.units = "mV";

  char delimiter = 0;
  int column = -1;
  std::size_t pos = 0;
  int line_no = 0;
  while (pos < text.size()) {
    auto end = text.find('\n', pos);
    if (end == std::string::npos) end = text.size();
    const std::string_view line = trim(std::string_view(text).substr(pos, end - pos));
    pos = end + 1;
    ++line_no;
    if (line.empty() || line.front() == '#') continue;
    if (delimiter == 0) {
      delimiter = guess_delimiter(line);
      const auto fields = split(line, delimiter);
      bool header = false;
      for (auto f : fields) header = header || !number(f);
      for (auto f : fields) rec.lead_names.emplace_back(header ? trim(f) : std::string_view());
      column = choose_lead(rec.lead_names, options.lead, where);
      if (header) continue;
    }
    const auto fields = split(line, delimiter);
    if (fields.size() <= static_cast<std::size_t>(column)) {
      throw InputError(where, "line " + std::to_string(line_no) + " has " + std::to_string(fields.size()) +
                                  " column" + (fields.size() == 1 ? "" : "s") + ", column " +
                                  std::to_string(column) + " is needed");
    }
    const auto field = trim(fields[static_cast<std::size_t>(column)]);
    const auto v = number(field);
    if (!v) {
      throw InputError(where, "line " + std::to_string(line_no) + ": \"" + std::string(field) + "\" is not a number");
    }
    if (std::isnan(*v)) throw InputError(where, "line " + std::to_string(line_no) + ": the sample is not a number (NaN)");
    if (std::isinf(*v)) throw InputError(where, "line " + std::to_string(line_no) + ": the sample is infinite");
    rec.samples.push_back(*v);
  }
  if (delimiter == 0) throw InputError(where, "holds no samples");
  rec.lead_index = column;
  apply_sidecar(path, options, rec);
  return rec;
}

Recording read_raw(const fs::path& path, const LoadOptions& options, int bytes_per_sample) {
  const std::string where = display(path);
  const auto bytes = read_bytes(path);
  if (bytes.size() % static_cast<std::size_t>(bytes_per_sample) != 0) {
    throw InputError(where, "size " + std::to_string(bytes.size()) + " bytes is not a whole number of " +
                                (bytes_per_sample == 4 ? "float32" : "float64") + " samples");
  }
  Recording rec;
  rec.format = bytes_per_sample == 4 ? "float32" : "float64";
  rec.lead_names = {""};
  choose_lead(rec.lead_names, options.lead, where);
  const std::size_t n = bytes.size() / static_cast<std::size_t>(bytes_per_sample);
  rec.samples.resize(n);
  static_assert(std::endian::native == std::endian::little, "raw input is read as little-endian");
  for (std::size_t i = 0; i < n; ++i) {
    const auto* p = bytes.data() + i * static_cast<std::size_t>(bytes_per_sample);
    if (bytes_per_sample == 4) {
      float f;
      std::memcpy(&f, p, sizeof f);
      rec.samples[i] = f;
    } else {
      std::memcpy(&rec.samples[i], p, sizeof(double));
    }
  }
  apply_sidecar(path, options, rec);
  return rec;
}

}  // namespace keloecg::detail
