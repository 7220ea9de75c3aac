#include "wfdb.hpp"

#include <array>
#include <charconv>
#include <cmath>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

#include "errors.hpp"
#include "file_util.hpp"

namespace keloecg::wfdb {

namespace {

std::vector<std::string> split_ws(std::string_view line) {
  std::vector<std::string> out;
  std::size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && (line[i] == ' ' || line[i] == '\t' || line[i] == '\r')) ++i;
    const std::size_t start = i;
    while (i < line.size() && line[i] != ' ' && line[i] != '\t' && line[i] != '\r') ++i;
    if (i > start) out.emplace_back(line.substr(start, i - start));
  }
  return out;
}

template <typename T>
bool parse_number(std::string_view s, T& out) {
  if (!s.empty() && s.front() == '+') s.remove_prefix(1);
  const auto [ptr, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
  return ec == std::errc() && ptr == s.data() + s.size();
}

// Reads the leading number of s (up to the first of `stops`) and removes it.
template <typename T>
bool take_number(std::string_view& s, std::string_view stops, T& out) {
  const std::size_t end = std::min(s.find_first_of(stops), s.size());
  if (!parse_number(s.substr(0, end), out)) return false;
  s.remove_prefix(end);
  return true;
}

class HeaderParser {
 public:
  HeaderParser(const std::string& where) : where_(where) {}

  [[noreturn]] void fail(int line, const std::string& what) const {
    throw InputError(where_, "line " + std::to_string(line) + ": " + what);
  }

  void record_line(const std::vector<std::string>& t, int line, Header& h) const {
    h.record = t[0];
    if (h.record.find('/') != std::string::npos) {
      fail(line, "multi-segment records are not supported");
    }
    if (t.size() > 1 && (!parse_number(t[1], h.signal_count) || h.signal_count < 0)) {
      fail(line, "bad number of signals \"" + t[1] + "\"");
    }
    if (t.size() > 2) {
      std::string_view fs = t[2];
      if (!take_number(fs, "/(", h.fs) || !(h.fs > 0.0)) {
        fail(line, "bad sampling frequency \"" + t[2] + "\"");
      }
    }
    if (t.size() > 3) {
      long long n = 0;
      if (!parse_number(t[3], n) || n < 0) fail(line, "bad number of samples \"" + t[3] + "\"");
      if (n > 0) h.samples_per_signal = n;  // 0 means "not stated"
    }
  }

  SignalLine signal_line(const std::vector<std::string>& t, int line) const {
    SignalLine s;
    s.file = t[0];
    if (t.size() < 2) fail(line, "signal line without a format");
    parse_format(t[1], line, s);
    bool has_baseline = false;
    if (t.size() > 2) has_baseline = parse_gain(t[2], line, s);
    if (t.size() > 3 && !parse_number(t[3], s.adc_resolution)) fail(line, "bad ADC resolution \"" + t[3] + "\"");
    if (t.size() > 4 && !parse_number(t[4], s.adc_zero)) fail(line, "bad ADC zero \"" + t[4] + "\"");
    if (t.size() > 5) s.initial_value = int_field(t[5], line, "initial value");
    if (t.size() > 6) s.checksum = int_field(t[6], line, "checksum");
    if (t.size() > 7) s.block_size = int_field(t[7], line, "block size");
    for (std::size_t i = 8; i < t.size(); ++i) s.description += (i > 8 ? " " : "") + t[i];
    if (!has_baseline) s.baseline = s.adc_zero;
    if (s.adc_resolution == 0) s.adc_resolution = s.format == 212 ? 12 : 16;
    if (s.adc_resolution < 1 || s.adc_resolution > 31) fail(line, "bad ADC resolution");
    return s;
  }

 private:
  int int_field(const std::string& text, int line, const char* what) const {
    int v = 0;
    if (!parse_number(text, v)) fail(line, std::string("bad ") + what + " \"" + text + "\"");
    return v;
  }

  // format[xSPF][:SKEW][+OFFSET]
  void parse_format(const std::string& text, int line, SignalLine& s) const {
    std::string_view f = text;
    if (!take_number(f, "x:+", s.format)) fail(line, "bad signal format \"" + text + "\"");
    if (!f.empty() && f.front() == 'x') {
      f.remove_prefix(1);
      if (!take_number(f, ":+", s.samples_per_frame)) fail(line, "bad samples per frame in \"" + text + "\"");
    }
    if (!f.empty() && f.front() == ':') {
      f.remove_prefix(1);
      if (!take_number(f, "+", s.skew)) fail(line, "bad skew in \"" + text + "\"");
    }
    if (!f.empty() && f.front() == '+') {
      f.remove_prefix(1);
      if (!take_number(f, "", s.byte_offset) || s.byte_offset < 0) fail(line, "bad byte offset in \"" + text + "\"");
    }
    if (!f.empty()) fail(line, "bad signal format \"" + text + "\"");
  }

  // gain[(baseline)][/units]; returns whether a baseline was given.
  bool parse_gain(const std::string& text, int line, SignalLine& s) const {
    std::string_view g = text;
    if (!take_number(g, "(/", s.gain)) fail(line, "bad gain \"" + text + "\"");
    if (s.gain == 0.0) s.gain = 200.0;
    bool has_baseline = false;
    if (!g.empty() && g.front() == '(') {
      g.remove_prefix(1);
      if (!take_number(g, ")", s.baseline) || g.empty()) fail(line, "bad baseline in \"" + text + "\"");
      g.remove_prefix(1);  // ')'
      has_baseline = true;
    }
    if (!g.empty() && g.front() == '/') {
      g.remove_prefix(1);
      if (g.empty()) fail(line, "empty units in \"" + text + "\"");
      s.units = std::string(g);
      g = {};
    }
    if (!g.empty()) fail(line, "bad gain \"" + text + "\"");
    return has_baseline;
  }

  std::string where_;
};

}  // namespace

Header parse_header(std::string_view text, const std::string& where) {
  HeaderParser parser(where);
  Header h;
  bool have_record = false;
  int line_no = 0;
  std::size_t pos = 0;
  while (pos <= text.size()) {
    const std::size_t end = std::min(text.find('\n', pos), text.size());
    std::string_view line = text.substr(pos, end - pos);
    pos = end + 1;
    ++line_no;
    const auto tokens = split_ws(line);
    if (tokens.empty() || tokens[0][0] == '#') {
      if (end == text.size()) break;
      continue;
    }
    if (!have_record) {
      parser.record_line(tokens, line_no, h);
      have_record = true;
    } else if (static_cast<int>(h.signals.size()) < h.signal_count) {
      h.signals.push_back(parser.signal_line(tokens, line_no));
    }
    if (end == text.size()) break;
  }
  if (!have_record) throw InputError(where, "empty header (no record line)");
  if (static_cast<int>(h.signals.size()) < h.signal_count) {
    throw InputError(where, "the record line announces " + std::to_string(h.signal_count) +
                                " signals but only " + std::to_string(h.signals.size()) +
                                " signal lines follow");
  }
  return h;
}

AdcRange adc_range(const SignalLine& s) {
  const long long half = 1LL << (s.adc_resolution - 1);
  return {static_cast<int>(s.adc_zero - half), static_cast<int>(s.adc_zero + half - 1)};
}

std::vector<int> decode_212(std::span<const std::uint8_t> bytes, std::size_t count) {
  std::vector<int> out;
  out.reserve(count);
  auto sign12 = [](int v) { return v >= 2048 ? v - 4096 : v; };
  for (std::size_t i = 0; out.size() < count && i + 1 < bytes.size(); i += 3) {
    const int b0 = bytes[i], b1 = bytes[i + 1];
    out.push_back(sign12(b0 | ((b1 & 0x0F) << 8)));
    if (out.size() < count && i + 2 < bytes.size()) {
      out.push_back(sign12(bytes[i + 2] | ((b1 & 0xF0) << 4)));
    }
  }
  return out;
}

std::vector<int> decode_16(std::span<const std::uint8_t> bytes, std::size_t count) {
  std::vector<int> out;
  out.reserve(count);
  for (std::size_t i = 0; out.size() < count && i + 1 < bytes.size(); i += 2) {
    out.push_back(static_cast<std::int16_t>(bytes[i] | (bytes[i + 1] << 8)));
  }
  return out;
}

int invalid_sample_code(int format) { return format == 212 ? -2048 : -32768; }

int checksum16(std::span<const int> samples) {
  std::uint32_t sum = 0;
  for (int v : samples) sum += static_cast<std::uint32_t>(v);
  return static_cast<std::int16_t>(sum & 0xFFFFu);
}

namespace {

// Whole samples held by `bytes` bytes of a format.
std::size_t samples_in(int format, std::size_t bytes) {
  return format == 212 ? bytes * 2 / 3 : bytes / 2;
}

// Byte position of stream sample s (even for format 212).
std::uint64_t byte_of(int format, std::uint64_t s) { return format == 212 ? s / 2 * 3 : s * 2; }

// Bytes that hold `count` stream samples from an even sample on.
std::uint64_t bytes_for(int format, std::uint64_t count) {
  return format == 212 ? count / 2 * 3 + (count % 2) * 2 : count * 2;
}

}  // namespace

SignalData read_signal(const Header& header, const std::filesystem::path& header_path, int index, double from_s,
                       std::optional<double> to_s) {
  const SignalLine& sig = header.signals.at(static_cast<std::size_t>(index));
  const std::string where = display(header_path);
  if (sig.format != 212 && sig.format != 16) {
    throw InputError(where, "signal format " + std::to_string(sig.format) +
                                " is not supported (formats 212 and 16 are)");
  }
  if (sig.samples_per_frame != 1) {
    throw InputError(where, "signals with several samples per frame are not supported");
  }
  if (sig.skew != 0) throw InputError(where, "signals with skew are not supported");
  if (sig.file == "~" || sig.file == "-") {
    throw InputError(where, "signal " + std::to_string(index) + " has no signal file");
  }

  // The signals stored in one file are interleaved frame by frame, in the
  // order of their header lines.
  int group = 0, position = -1;
  for (std::size_t k = 0; k < header.signals.size(); ++k) {
    const SignalLine& other = header.signals[k];
    if (other.file != sig.file) continue;
    if (other.format != sig.format || other.byte_offset != sig.byte_offset) {
      throw InputError(where, "signals sharing the file " + sig.file +
                                  " must have the same format and byte offset");
    }
    if (static_cast<int>(k) == index) position = group;
    ++group;
  }

  const auto dat_path = header_path.parent_path() / sig.file;
  const std::string dat = display(dat_path);
  require_readable_file(dat_path);
  std::error_code ec;
  const std::uint64_t size = std::filesystem::file_size(dat_path, ec);
  if (ec) throw InputError(dat, "cannot read its size: " + ec.message());
  const auto offset = static_cast<std::uint64_t>(sig.byte_offset);
  if (offset > size) throw InputError(dat, "shorter than its byte offset");

  const auto g = static_cast<std::uint64_t>(group);
  const std::uint64_t available = samples_in(sig.format, size - offset) / g;
  std::uint64_t frames = available;
  if (header.samples_per_signal) {
    frames = static_cast<std::uint64_t>(*header.samples_per_signal);
    if (frames > available) {
      throw InputError(dat, "truncated: the header announces " + std::to_string(frames) +
                                " samples per signal, the file holds " + std::to_string(available));
    }
  }
  auto frame_at = [&](double s) {
    const double f = std::floor(s * header.fs);
    return f <= 0.0 ? std::uint64_t{0} : f >= static_cast<double>(frames) ? frames : static_cast<std::uint64_t>(f);
  };
  const std::uint64_t first = frame_at(from_s);
  const std::uint64_t last = to_s ? std::max(first, std::min(frames, frame_at(*to_s) + 1)) : frames;

  SignalData out;
  out.first = static_cast<long long>(first);
  out.total = static_cast<long long>(frames);
  out.adc.reserve(last - first);
  std::ifstream in(dat_path, std::ios::binary);
  if (!in) throw InputError(dat, "cannot open");
  // Blocks of an even number of frames from an even stream sample on, so
  // that every block starts on a whole byte pair of format 212.
  constexpr std::uint64_t kBlock = 1 << 16;
  std::uint64_t f = g % 2 == 1 ? first & ~std::uint64_t{1} : first;
  std::vector<std::uint8_t> bytes;
  while (f < last) {
    const std::uint64_t n = std::min(kBlock, last - f);
    const std::uint64_t from = f * g;
    bytes.resize(bytes_for(sig.format, n * g));
    in.seekg(static_cast<std::streamoff>(offset + byte_of(sig.format, from)));
    if (!in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()))) {
      throw InputError(dat, "read error (did the file change while it was read?)");
    }
    const auto stream = sig.format == 212 ? decode_212(bytes, n * g) : decode_16(bytes, n * g);
    for (std::uint64_t k = 0; k < n; ++k) {
      if (f + k >= first) out.adc.push_back(stream[k * g + static_cast<std::uint64_t>(position)]);
    }
    f += n;
  }

  const std::string label = "signal " + std::to_string(index);
  if (sig.initial_value && first == 0 && !out.adc.empty() && out.adc.front() != *sig.initial_value) {
    out.warnings.push_back(label + ": first sample " + std::to_string(out.adc.front()) +
                           " differs from the header's initial value " +
                           std::to_string(*sig.initial_value));
  }
  if (sig.checksum && header.samples_per_signal && first == 0 && last == frames) {
    const int sum = checksum16(out.adc);
    if (sum != *sig.checksum) {
      out.warnings.push_back(label + ": checksum " + std::to_string(sum) +
                             " differs from the header's " + std::to_string(*sig.checksum) +
                             " (is the .dat file the one of this header?)");
    }
  }
  return out;
}

namespace {

constexpr std::array<std::string_view, 42> kSymbols = {
      "",  "N", "L", "R", "a", "V", "F", "J", "A", "S", "E", "j", "/", "Q",
      "~", "",  "|", "",  "s", "T", "*", "D", "\"", "=", "p", "B", "^", "t",
      "+", "u", "?", "!", "[", "]", "e", "n", "@", "x", "f", "(", ")", "r"};

}  // namespace

std::string_view code_symbol(int code) {
  return code >= 0 && code < static_cast<int>(kSymbols.size()) ? kSymbols[static_cast<std::size_t>(code)] : std::string_view();
}

int symbol_code(std::string_view symbol) {
  for (std::size_t code = 1; code < kSymbols.size(); ++code) {
    if (!symbol.empty() && kSymbols[code] == symbol) return static_cast<int>(code);
  }
  return 0;
}

std::string encode_annotations(std::span<const Annotation> annotations) {
  enum : unsigned { kSkip = 59, kNum = 60, kSub = 61, kChn = 62, kAux = 63 };
  std::string out;
  const auto word = [&](unsigned code, unsigned value) {
    const unsigned w = code << 10 | (value & 0x3FF);
    out += static_cast<char>(w & 0xFF);
    out += static_cast<char>(w >> 8);
  };
  long long time = 0;
  int chan = 0, num = 0;
  for (const Annotation& a : annotations) {
    if (a.code < 1 || a.code > 49) throw std::invalid_argument("annotation code " + std::to_string(a.code) + " cannot be written");
    long long delta = a.sample - time;
    if (delta < 0) throw std::invalid_argument("annotations out of time order");
    if (delta > 1023) {
      if (delta > INT32_MAX) throw std::invalid_argument("annotation interval too long");
      // The 32-bit interval, high 16 bits first, each half little-endian.
      word(kSkip, 0);
      const auto interval = static_cast<std::uint32_t>(delta);
      for (std::uint32_t half : {interval >> 16, interval & 0xFFFF}) {
        out += static_cast<char>(half & 0xFF);
        out += static_cast<char>(half >> 8);
      }
      delta = 0;
    }
    word(static_cast<unsigned>(a.code), static_cast<unsigned>(delta));
    time = a.sample;
    if (a.subtype != 0) word(kSub, static_cast<unsigned>(a.subtype));
    if (a.chan != chan) word(kChn, static_cast<unsigned>(chan = a.chan));
    if (a.num != num) word(kNum, static_cast<unsigned>(num = a.num));
    if (!a.aux.empty()) {
      const std::string aux = a.aux.substr(0, 255);
      word(kAux, static_cast<unsigned>(aux.size()));
      out += aux;
      if (aux.size() % 2) out += '\0';
    }
  }
  word(0, 0);
  return out;
}

bool is_beat_symbol(std::string_view symbol) {
  static constexpr std::string_view beats = "NLRBAaJSVrFejnE/fQ?";
  return symbol.size() == 1 && beats.find(symbol[0]) != std::string_view::npos;
}

std::vector<Annotation> parse_annotations(std::span<const std::uint8_t> bytes, const std::string& where) {
  enum : int { kSkip = 59, kNum = 60, kSub = 61, kChn = 62, kAux = 63 };
  std::vector<Annotation> out;
  long long time = 0;
  int chan = 0, num = 0;  // these carry over from one annotation to the next
  std::size_t pos = 0;
  auto word = [&](std::size_t at) { return static_cast<unsigned>(bytes[at] | (bytes[at + 1] << 8)); };
  auto truncated = [&]() {
    return InputError(where, "annotation data ends in the middle of an entry (byte " + std::to_string(pos) + ")");
  };
  while (pos + 2 <= bytes.size()) {
    const unsigned w = word(pos);
    pos += 2;
    const int code = static_cast<int>(w >> 10);
    const int value = static_cast<int>(w & 0x3FF);
    if (code == 0 && value == 0) return out;  // end of data
    switch (code) {
      case kSkip: {
        if (pos + 4 > bytes.size()) throw truncated();
        // A 32-bit interval, high 16 bits first, each half little-endian.
        const auto interval = static_cast<std::int32_t>((word(pos) << 16) | word(pos + 2));
        pos += 4;
        time += interval;
        break;
      }
      case kNum:
        num = value;
        if (!out.empty()) out.back().num = num;
        break;
      case kSub:
        if (!out.empty()) out.back().subtype = value;
        break;
      case kChn:
        chan = value;
        if (!out.empty()) out.back().chan = chan;
        break;
      case kAux: {
        const std::size_t padded = static_cast<std::size_t>(value + (value & 1));
        if (pos + padded > bytes.size()) throw truncated();
        std::string aux(reinterpret_cast<const char*>(bytes.data() + pos), static_cast<std::size_t>(value));
        if (const auto nul = aux.find('\0'); nul != std::string::npos) aux.resize(nul);
        if (!out.empty()) out.back().aux = std::move(aux);
        pos += padded;
        break;
      }
      default: {
        time += value;
        Annotation a;
        a.sample = time;
        a.code = code;
        a.symbol = std::string(code_symbol(code));
        a.chan = chan;
        a.num = num;
        out.push_back(std::move(a));
      }
    }
  }
  if (pos != bytes.size()) throw truncated();
  return out;  // no end marker: accept what was read
}

}  // namespace keloecg::wfdb
