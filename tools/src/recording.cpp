#include "recording.hpp"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "errors.hpp"
#include "file_util.hpp"
#include "readers.hpp"
#include "wfdb.hpp"

namespace keloecg {

namespace fs = std::filesystem;

namespace {

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
  return s;
}

std::string trim(std::string_view s) {
  const auto b = s.find_first_not_of(" \t\r\n");
  if (b == std::string_view::npos) return {};
  const auto e = s.find_last_not_of(" \t\r\n");
  return std::string(s.substr(b, e - b + 1));
}

bool exists_file(const fs::path& p) {
  std::error_code ec;
  return fs::is_regular_file(p, ec);
}

fs::path with_suffix(const fs::path& p, const std::string& suffix) {
  return fs::path(p.string() + suffix);
}

// The WFDB header of path: path itself (.hea), the header of a .dat, or
// path.hea for a record named without extension.
std::optional<fs::path> wfdb_header_of(const fs::path& path) {
  const std::string ext = lower(path.extension().string());
  if (ext == ".hea") return path;
  if (ext == ".dat" || ext == ".atr") {
    auto hea = path;
    hea.replace_extension(".hea");
    if (exists_file(hea)) return hea;
  }
  if (!exists_file(path) && exists_file(with_suffix(path, ".hea"))) return with_suffix(path, ".hea");
  return std::nullopt;
}

std::string sniff(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  char head[8] = {};
  if (!in.read(head, sizeof head)) return "";
  if (std::string_view(head, 8) == "0       ") return "edf";
  if (static_cast<unsigned char>(head[0]) == 0xFF && std::string_view(head + 1, 7) == "BIOSEMI") return "edf";
  return "";
}

std::optional<double> parse_double(std::string_view s) {
  s = std::string_view(s).substr(0, s.find_last_not_of(" \t\r") + 1);
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  if (!s.empty() && s.front() == '+') s.remove_prefix(1);
  double v = 0.0;
  const auto [ptr, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
  if (ec != std::errc() || ptr != s.data() + s.size() || s.empty()) return std::nullopt;
  return v;
}

// Annotation files that belong to a recording, by naming convention.
std::optional<fs::path> find_annotations(const fs::path& path, bool wfdb) {
  fs::path stem = path;
  if (!wfdb || exists_file(path) || path.extension() == ".hea") stem.replace_extension();
  for (const char* suffix : {".atr", ".beats.txt"}) {
    if (exists_file(with_suffix(stem, suffix))) return with_suffix(stem, suffix);
  }
  return std::nullopt;
}

std::string fmt_number(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%g", v);
  return buf;
}

}  // namespace

std::optional<double> to_millivolts(std::string units) {
  units = lower(trim(units));
  if (units == "mv") return 1.0;
  if (units == "uv" || units == "\xc2\xb5v" || units == "\xce\xbcv") return 1e-3;
  if (units == "v") return 1e3;
  if (units == "nv") return 1e-6;
  return std::nullopt;
}

std::string detect_format(const fs::path& path) {
  if (wfdb_header_of(path)) return "wfdb";
  const std::string ext = lower(path.extension().string());
  if (ext == ".edf" || ext == ".bdf" || ext == ".rec") return "edf";
  if (ext == ".csv" || ext == ".tsv" || ext == ".txt") return "csv";
  if (ext == ".f32") return "f32";
  if (ext == ".f64") return "f64";
  if (exists_file(path)) return sniff(path);
  return "";
}

bool looks_like_recording(const fs::path& path) {
  const std::string ext = lower(path.extension().string());
  return ext == ".hea" || ext == ".edf" || ext == ".bdf" || ext == ".csv" || ext == ".tsv" ||
         ext == ".f32" || ext == ".f64";
}

namespace detail {

SampleRange requested_range(const LoadOptions& options, double fs, std::int64_t total) {
  const auto at = [&](double s) {
    const double k = std::floor(s * fs);
    return k <= 0.0 ? std::int64_t{0} : k >= static_cast<double>(total) ? total : static_cast<std::int64_t>(k);
  };
  const std::int64_t first = at(options.from_s);
  const std::int64_t last = options.to_s ? std::max(first, std::min(total, at(*options.to_s) + 1)) : total;
  return {first, last};
}

int choose_lead(const std::vector<std::string>& names, const std::string& lead, const std::string& where) {
  const auto listing = [&] {
    std::string s = names.size() == 1 ? "the recording has 1 lead: " : "the recording has " + std::to_string(names.size()) + " leads: ";
    for (std::size_t i = 0; i < names.size(); ++i) {
      s += (i ? ", " : "") + std::to_string(i) + (names[i].empty() ? "" : " " + names[i]);
    }
    return s;
  };
  if (names.empty()) throw InputError(where, "the recording holds no signal");
  if (lead.empty()) return 0;
  if (std::all_of(lead.begin(), lead.end(), [](unsigned char c) { return std::isdigit(c); })) {
    const auto index = parse_double(lead);
    if (index && *index < static_cast<double>(names.size())) return static_cast<int>(*index);
    throw InputError(where, "lead " + lead + " does not exist (" + listing() + ")");
  }
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (lower(trim(names[i])) == lower(trim(lead))) return static_cast<int>(i);
  }
  throw InputError(where, "no lead is named \"" + lead + "\" (" + listing() + ")");
}

std::map<std::string, std::string> read_sidecar(const fs::path& path) {
  auto info = path;
  info.replace_extension(".info");
  std::map<std::string, std::string> out;
  if (!exists_file(info)) return out;
  std::istringstream in(read_text(info));
  for (std::string line; std::getline(in, line);) {
    const auto eq = line.find('=');
    if (line.empty() || line[0] == '#' || eq == std::string::npos) continue;
    out[trim(line.substr(0, eq))] = trim(line.substr(eq + 1));
  }
  return out;
}

Recording read_wfdb(const fs::path& header_path, const LoadOptions& options) {
  const std::string where = display(header_path);
  const auto header = wfdb::parse_header(read_text(header_path), where);
  std::vector<std::string> names;
  for (const auto& s : header.signals) names.push_back(s.description);
  const int lead = choose_lead(names, options.lead, where);
  const auto& sig = header.signals[static_cast<std::size_t>(lead)];
  auto data = wfdb::read_signal(header, header_path, lead, options.from_s, options.to_s);

  Recording rec;
  rec.name = header.record;
  rec.format = "WFDB " + std::to_string(sig.format);
  rec.fs = header.fs;
  rec.lead_names = names;
  rec.lead_index = lead;
  rec.units = sig.units;
  rec.warnings = std::move(data.warnings);
  rec.first_sample = data.first;
  rec.total_samples = data.total;

  // Invalid-sample codes mark gaps; the last valid value is held over them
  // (the first valid value before the first one) so the detector sees a
  // flat line rather than a spike to the ADC limit.
  const int invalid = wfdb::invalid_sample_code(sig.format);
  std::size_t invalid_count = 0;
  const auto first_valid = std::find_if(data.adc.begin(), data.adc.end(), [&](int v) { return v != invalid; });
  if (first_valid == data.adc.end() && !data.adc.empty()) throw InputError(where, "every sample of the lead is marked invalid");
  int held = first_valid == data.adc.end() ? 0 : *first_valid;
  rec.samples.reserve(data.adc.size());
  for (int v : data.adc) {
    if (v == invalid) {
      ++invalid_count;
      v = held;
    }
    held = v;
    rec.samples.push_back((v - sig.baseline) / sig.gain);
  }
  if (invalid_count > 0) {
    rec.warnings.push_back(std::to_string(invalid_count) + " invalid samples replaced by the last valid value");
  }
  const auto range = wfdb::adc_range(sig);
  rec.full_scale = std::max(std::abs(range.max - sig.baseline), std::abs(range.min - sig.baseline)) / sig.gain;
  rec.full_scale_source = "ADC range of the header";
  return rec;
}

}  // namespace detail

Recording load_recording(const fs::path& path, const LoadOptions& options) {
  const std::string where = display(path);
  std::string format = lower(options.format);
  if (format == "auto") {
    format = detect_format(path);
    if (format.empty()) {
      require_readable_file(path);
      throw InputError(where, "unknown format (known: WFDB .hea, EDF/EDF+/BDF, CSV/text, "
                              "raw .f32/.f64; or choose one with --format)");
    }
  }

  Recording rec;
  bool wfdb = false;
  if (format == "wfdb") {
    const auto header = wfdb_header_of(path);
    if (!header) {
      if (!exists_file(path)) require_readable_file(path);
      throw InputError(where, "no WFDB header (.hea) found for this file");
    }
    rec = detail::read_wfdb(*header, options);
    wfdb = true;
  } else if (format == "edf" || format == "bdf") {
    rec = detail::read_edf(path, options);
  } else if (format == "csv" || format == "text" || format == "txt") {
    rec = detail::read_text_table(path, options);
  } else if (format == "f32" || format == "float32") {
    rec = detail::read_raw(path, options, 4);
  } else if (format == "f64" || format == "float64") {
    rec = detail::read_raw(path, options, 8);
  } else {
    throw InputError("", "unknown --format \"" + options.format + "\" (use auto, wfdb, edf, csv, f32 or f64)");
  }
  rec.path = where;
  if (rec.name.empty()) rec.name = path.stem().string();

  if (!(rec.fs > 0.0) || !std::isfinite(rec.fs)) {
    throw InputError(where, "bad sampling rate " + fmt_number(rec.fs) + " Hz");
  }
  // An ECG sampled below 50 Hz has lost its QRS complexes, and resampling
  // from above 10 kHz would take long for nothing.
  if (rec.fs < kLowestSamplingRate || rec.fs > kHighestSamplingRate) {
    throw InputError(where, "a sampling rate of " + fmt_number(rec.fs) + " Hz is outside what keloecg analyses (" +
                                fmt_number(kLowestSamplingRate) + " Hz to " + fmt_number(kHighestSamplingRate / 1000) + " kHz)");
  }
  // Formats that store their rate keep it (several files of different
  // formats may be given together, --fs meant for the raw ones).
  if (options.fs && *options.fs != rec.fs) {
    rec.warnings.push_back("--fs " + fmt_number(*options.fs) + " ignored: the file gives its rate, " +
                           fmt_number(rec.fs) + " Hz (--fs is for text and raw input)");
  }
  if (rec.total_samples == 0) throw InputError(where, "holds no samples");
  for (std::size_t i = 0; i < rec.samples.size(); ++i) {
    if (!std::isfinite(rec.samples[i])) {
      const auto at = rec.first_sample + static_cast<std::int64_t>(i);
      throw InputError(where, "sample " + std::to_string(at) + " (at " + fmt_number(static_cast<double>(at) / rec.fs) +
                                  " s) is " + (std::isnan(rec.samples[i]) ? "not a number (NaN)" : "infinite"));
    }
  }
  if (const auto factor = to_millivolts(rec.units)) {
    if (*factor != 1.0) {
      for (double& v : rec.samples) v *= *factor;
      if (rec.full_scale) *rec.full_scale *= *factor;
    }
    rec.units = "mV";
  } else {
    rec.warnings.push_back("unit \"" + rec.units + "\" is not a voltage unit I know; samples are analysed as given");
  }
  rec.annotations = find_annotations(path, wfdb);
  return rec;
}

}  // namespace keloecg
