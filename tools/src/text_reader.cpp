// Text/CSV tables and raw little-endian float32/float64 files. Neither
// stores its sampling rate: it comes from --fs or from a sidecar STEM.info
// (key=value lines: fs, full_scale, units, lead, record).
#include <algorithm>
#include <bit>
#include <cctype>
#include <cstdio>
#include <optional>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>

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

// The first byte of the text that no text table holds (a NUL or another
// control character), looked for in its first 4 KB.
std::optional<std::size_t> binary_byte(std::string_view text) {
  const std::size_t n = std::min<std::size_t>(text.size(), 4096);
  for (std::size_t i = 0; i < n; ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c < 0x20 && c != '\t' && c != '\n' && c != '\r' && c != '\f' && c != '\v') return i;
  }
  return std::nullopt;
}

// A field as an error message shows it: control bytes escaped, long
// fields cut.
std::string shown(std::string_view field) {
  std::string out;
  for (char ch : field.substr(0, 40)) {
    const auto c = static_cast<unsigned char>(ch);
    if (c < 0x20 || c == 0x7F) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\x%02X", c);
      out += buf;
    } else {
      out += ch;
    }
  }
  return field.size() > 40 ? out + "..." : out;
}

// Whether the first column of a table counts time (or samples) rather than
// holding a signal: its header names it so, or, without a header, it rises
// by the same step (within 1 %) over the first rows. `rows` starts at the
// first data line.
bool is_time_column(std::string_view header_name, std::string_view rows, char delimiter) {
  std::string name(trim(header_name));
  std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
  const std::string_view word = std::string_view(name).substr(0, name.find_first_of(" _-([/"));
  for (const char* known : {"time", "t", "sec", "secs", "seconds", "s", "ms", "timestamp", "elapsed", "sample",
                            "samples", "index", "n", "#"}) {
    if (word == known) return true;
  }
  if (!name.empty()) return false;  // a header that names something else
  std::vector<double> first;
  std::size_t pos = 0;
  while (pos < rows.size() && first.size() < 1000) {
    auto end = rows.find('\n', pos);
    if (end == std::string_view::npos) end = rows.size();
    const std::string_view line = trim(rows.substr(pos, end - pos));
    pos = end + 1;
    if (line.empty() || line.front() == '#') continue;
    const auto v = number(split(line, delimiter).front());
    if (!v) return false;
    first.push_back(*v);
  }
  if (first.size() < 3) return false;
  const double step = (first.back() - first.front()) / static_cast<double>(first.size() - 1);
  if (!(step > 0.0)) return false;
  for (std::size_t i = 1; i < first.size(); ++i) {
    if (std::abs(first[i] - first[i - 1] - step) > 0.01 * step) return false;
  }
  return true;
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
  if (const auto at = binary_byte(text)) {
    char byte[8];
    std::snprintf(byte, sizeof byte, "0x%02X", static_cast<unsigned char>(text[*at]));
    throw InputError(where, std::string("not a text table: byte ") + std::to_string(*at) + " is " + byte +
                                " (binary data; for raw samples give --format f32 or f64)");
  }
  Recording rec;
  rec.format = "CSV";
  rec.units = "mV";

  char delimiter = 0;
  int column = -1;
  std::size_t pos = 0;
  int line_no = 0;
  while (pos < text.size()) {
    const std::size_t line_start = pos;
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
      // A time (or sample number) column is not the ECG: without --lead
      // the first column after it is analysed.
      const std::string_view rows = std::string_view(text).substr(header ? std::min(pos, text.size()) : line_start);
      if (options.lead.empty() && fields.size() > 1 &&
          is_time_column(header ? std::string_view(rec.lead_names[0]) : std::string_view(), rows, delimiter)) {
        column = 1;
        const std::string name0 = rec.lead_names[0].empty() ? "" : " (" + rec.lead_names[0] + ")";
        rec.warnings.push_back("column 0" + name0 + " counts time, not ECG: column 1" +
                               (rec.lead_names[1].empty() ? "" : " (" + rec.lead_names[1] + ")") +
                               " is analysed (choose another with --lead)");
      }
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
      throw InputError(where, "line " + std::to_string(line_no) + ": \"" + shown(field) + "\" is not a number");
    }
    if (std::isnan(*v)) throw InputError(where, "line " + std::to_string(line_no) + ": the sample is not a number (NaN)");
    if (std::isinf(*v)) throw InputError(where, "line " + std::to_string(line_no) + ": the sample is infinite");
    rec.samples.push_back(*v);
  }
  if (delimiter == 0) throw InputError(where, "holds no samples");
  rec.lead_index = column;
  apply_sidecar(path, options, rec);
  // The whole table has been read (its length is only known at its end);
  // only the samples asked for are kept.
  rec.total_samples = static_cast<std::int64_t>(rec.samples.size());
  const auto range = requested_range(options, rec.fs, rec.total_samples);
  rec.first_sample = range.first;
  rec.samples.erase(rec.samples.begin() + range.last, rec.samples.end());
  rec.samples.erase(rec.samples.begin(), rec.samples.begin() + range.first);
  rec.samples.shrink_to_fit();
  return rec;
}

Recording read_raw(const fs::path& path, const LoadOptions& options, int bytes_per_sample) {
  const std::string where = display(path);
  require_readable_file(path);
  std::error_code ec;
  const auto size = static_cast<std::int64_t>(fs::file_size(path, ec));
  if (ec) throw InputError(where, "cannot read its size: " + ec.message());
  const auto width = static_cast<std::int64_t>(bytes_per_sample);
  if (size % width != 0) {
    throw InputError(where, "size " + std::to_string(size) + " bytes is not a whole number of " +
                                (bytes_per_sample == 4 ? "float32" : "float64") + " samples");
  }
  Recording rec;
  rec.format = bytes_per_sample == 4 ? "float32" : "float64";
  rec.lead_names = {""};
  choose_lead(rec.lead_names, options.lead, where);
  apply_sidecar(path, options, rec);

  // Only the bytes of the samples asked for are read.
  rec.total_samples = size / width;
  const auto range = requested_range(options, rec.fs, rec.total_samples);
  rec.first_sample = range.first;
  const auto n = static_cast<std::size_t>(range.last - range.first);
  std::vector<char> bytes(n * static_cast<std::size_t>(width));
  std::ifstream in(path, std::ios::binary);
  in.seekg(range.first * width);
  if (!in || !in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()))) {
    throw InputError(where, "read error (did the file change while it was read?)");
  }
  rec.samples.resize(n);
  static_assert(std::endian::native == std::endian::little, "raw input is read as little-endian");
  for (std::size_t i = 0; i < n; ++i) {
    const char* p = bytes.data() + i * static_cast<std::size_t>(width);
    if (bytes_per_sample == 4) {
      float f;
      std::memcpy(&f, p, sizeof f);
      rec.samples[i] = f;
    } else {
      std::memcpy(&rec.samples[i], p, sizeof(double));
    }
  }
  return rec;
}

}  // namespace keloecg::detail
