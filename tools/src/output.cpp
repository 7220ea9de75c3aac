#include "output.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <sstream>

#include "keloecgsolver/version.h"
#include "text_util.hpp"

namespace keloecg {

namespace {

std::string fixed(double v, int decimals) {
  if (std::isnan(v)) return "NaN";
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.*f", decimals, v);
  return buf;
}

std::string pad(std::string s, std::size_t width, bool right = false) {
  if (s.size() >= width) return s;
  return right ? std::string(width - s.size(), ' ') + s : s + std::string(width - s.size(), ' ');
}

std::string percent(double fraction) { return std::isnan(fraction) ? "-" : fixed(100.0 * fraction, 2); }

Json nullable(double v) { return std::isfinite(v) ? Json(v) : Json(nullptr); }

template <typename T>
Json nullable(const std::optional<T>& v) {
  return v && std::isfinite(static_cast<double>(*v)) ? Json(*v) : Json(nullptr);
}

std::string csv_number(double v) { return std::isfinite(v) ? number(v, 10) : ""; }
std::string csv_number(const std::optional<double>& v) { return v ? csv_number(*v) : ""; }

constexpr const char* kTimeLabels[] = {
    "NN/RR ratio", "mean NN interval (AVNN)", "SD of NN intervals (SDNN)", "SD of 5-minute means (SDANN)",
    "mean of 5-minute SDs (SDNN index)", "RMS of successive differences", "successive differences > 50 ms"};
constexpr const char* kFreqLabels[] = {"total power, 0-0.4 Hz", "ULF power, 0-0.0033 Hz", "VLF power, 0.0033-0.04 Hz",
                                       "LF power, 0.04-0.15 Hz", "HF power, 0.15-0.4 Hz", "LF/HF ratio"};
constexpr std::size_t kUlf = 1;
constexpr const char* kUlfNote = "not meaningful over less than an hour: its periods are 5 minutes and longer";

// Unit suffixes of the CSV columns.
std::string unit_suffix(const std::string& unit) { return unit == "s^2" ? "s2" : unit; }

// Extra reading of a value in the units people usually quote.
std::string friendly(const std::string& unit, double v) {
  if (!std::isfinite(v)) return "";
  if (unit == "s") return "(" + fixed(v * 1e3, 1) + " ms)";
  if (unit == "s^2") return "(" + number(v * 1e6, 4) + " ms^2)";
  if (unit == "fraction") return "(" + fixed(v * 100.0, 2) + " %)";
  return "";
}

// The excerpt grade as the outputs give it: the library grades an excerpt
// without usable beats "usable" (it finds nothing irregular in it); the
// outputs do not.
bool graded(const QrsResult& q) { return q.status != KELO_STATUS_NO_USABLE_BEATS; }

std::string grade_text(const QrsResult& q) {
  return graded(q) ? excerpt_grade_text(q.excerpt_grade) : "not graded: no usable beats";
}

std::string span_text(const Excerpt& e) { return clock_text(e.start_s()) + " to " + clock_text(e.end_s()); }

std::string labels_summary(const std::vector<int>& labels) {
  std::map<int, std::size_t> counts;
  for (int l : labels) ++counts[l];
  std::string out;
  for (const auto& [label, n] : counts) out += (out.empty() ? "" : ", ") + std::to_string(n) + " " + label_name(label);
  return out;
}

}  // namespace

Json label_counts_json(const std::vector<int>& labels) {
  Json j = Json::object();
  for (int l : {1, 2, 3, 4}) j[label_name(l)] = std::count(labels.begin(), labels.end(), l);
  return j;
}

Json classes_json(const ClassCounts& c) {
  Json j = Json::object();
  for (std::size_t k = 0; k < kBeatClasses.size(); ++k) {
    j[kBeatClasses[k]] = json_object(
        {{"reference_beats", c.references[k]}, {"tp", c.matched[k]}, {"sensitivity", nullable(c.sensitivity(k))}});
  }
  return j;
}

std::string number(double v, int significant) {
  if (std::isnan(v)) return "NaN";
  if (std::isinf(v)) return v > 0 ? "Inf" : "-Inf";
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.*g", significant, v);
  return buf;
}

std::string time_column(std::size_t i) { return std::string(kTimeFields.at(i)) + "_" + unit_suffix(kTimeUnits[i]); }
std::string freq_column(std::size_t i) { return std::string(kFreqFields.at(i)) + "_" + unit_suffix(kFreqUnits[i]); }

Json span_json(const Excerpt& e) {
  Json j = Json::object();
  j["start_sample_200hz"] = e.start;
  j["samples_200hz"] = e.length;
  j["start_s"] = e.start_s();
  j["end_s"] = e.end_s();
  j["duration_s"] = e.duration_s();
  if (e.capped) j["capped_to_10_minutes"] = true;
  return j;
}

Json recording_json(const Prepared& p) {
  const Recording& r = p.recording;
  Json j = Json::object();
  j["path"] = r.path;
  j["name"] = r.name;
  j["format"] = r.format;
  j["lead"] = json_object({{"index", r.lead_index}, {"name", r.lead_name()}});
  j["leads"] = r.lead_names;
  j["sampling_rate_hz"] = r.fs;
  j["samples"] = r.total_samples;
  j["duration_s"] = r.duration_s();
  j["units"] = r.units;
  j["full_scale"] = nullable(r.full_scale);
  if (r.full_scale) j["full_scale_source"] = r.full_scale_source;
  j["resampled_to_200hz"] = p.resampled();
  j["samples_200hz"] = p.total;
  j["warnings"] = r.warnings;
  return j;
}

Json settings_json(const AnalysisSettings& s) {
  Json j = Json::object();
  j["start_s"] = s.start_s;
  j["duration_s"] = nullable(s.duration_s);
  j["full_scale"] = nullable(s.full_scale);
  j["window_s"] = s.window_s;
  j["segment_s"] = s.segment_s;
  j["short_hrv"] = s.short_hrv;
  j["beats"] = beats_mode_name(s.beats);
  if (s.score_from_s > 0.0) j["score_from_s"] = s.score_from_s;
  return j;
}

namespace {

Json detection_json(const DetectionInfo& d) {
  Json j = Json::object();
  j["way"] = d.segments == 1 ? "whole excerpt in one pass" : "overlapping segments";
  j["segments"] = d.segments;
  if (d.segments > 1) {
    j["segment_s"] = d.segment_s;
    j["overlap_s"] = d.overlap_s;
    j["seams_joined_on_common_beats"] = d.seams_agreed;
    j["seams_joined_otherwise"] = d.seams_other;
  }
  return j;
}

}  // namespace

Json qrs_json(const Prepared& p, const QrsResult& q) {
  Json j = Json::object();
  j["excerpt"] = span_json(q.excerpt);
  j["detection"] = detection_json(q.detection);
  j["status"] = q.status;
  j["status_text"] = status_text(q.status);
  j["heart_rate_bpm"] = nullable(q.heart_rate);
  if (q.rejected_rate) j["rejected_heart_rate_bpm"] = nullable(*q.rejected_rate);
  j["excerpt_grade"] = graded(q) ? Json(q.excerpt_grade) : Json(nullptr);
  j["excerpt_grade_text"] = grade_text(q);
  j["full_scale"] = nullable(q.full_scale);
  j["clipping_tested"] = q.full_scale.has_value();
  j["window_s"] = q.window_s;
  j["window_grades"] = q.window_grades;
  Json names = Json::object(), counts = Json::object();
  for (int g : {0, 3, 5, 6}) names[std::to_string(g)] = window_grade_text(g);
  for (int g : {0, 3, 5, 6}) counts[window_grade_text(g)] = std::count(q.window_grades.begin(), q.window_grades.end(), g);
  j["window_grade_names"] = std::move(names);
  j["window_grade_counts"] = std::move(counts);
  Json peaks = Json::object();
  peaks["count"] = q.r_peaks.size();
  Json at200 = Json::array(), original = Json::array(), times = Json::array();
  for (const auto& b : beat_records(p, q)) {
    at200.push_back(b.sample);
    original.push_back(b.sample_original);
    times.push_back(b.time_s);
  }
  peaks["sample_200hz"] = std::move(at200);
  peaks["sample_original"] = std::move(original);
  peaks["time_s"] = std::move(times);
  if (q.beats == BeatsMode::All) {
    Json labels = Json::array();
    for (int l : q.labels) labels.push_back(label_name(l));
    peaks["label"] = std::move(labels);
    peaks["label_counts"] = label_counts_json(q.labels);
  }
  j["r_peaks"] = std::move(peaks);
  return j;
}

Json figures_json(const HrvFigures& f) {
  Json j = Json::object();
  j["span"] = span_json(f.span);
  j["r_peaks"] = f.beats;
  j["heart_rate_bpm"] = nullable(f.heart_rate);
  j["status"] = f.status;
  j["status_text"] = status_text(f.status);
  j["computed"] = f.computed;
  if (!f.computed) j["not_computed"] = f.not_computed;
  Json time = Json::object(), freq = Json::object();
  for (std::size_t i = 0; i < kTimeFields.size(); ++i) time[kTimeFields[i]] = nullable(f.time_value(i));
  for (std::size_t i = 0; i < kFreqFields.size(); ++i) freq[kFreqFields[i]] = nullable(f.freq_value(i));
  if (f.intervals) {
    // Every beat: HRV over NN intervals only.
    j["intervals"] = *f.intervals;
    j["excluded_intervals"] = *f.excluded_intervals;
  }
  j["time_domain"] = std::move(time);
  j["frequency_domain"] = std::move(freq);
  j["ulf_meaningful"] = f.ulf_meaningful();
  return j;
}

Json hrv_json(const HrvResult& h) {
  Json j = Json::object();
  j["analysis"] = h.long_term ? "long-term" : "short";
  j["analysis_text"] = h.long_term ? "the whole excerpt, its 5-minute segments and its hours"
                                   : "the Java bridge's analysis of 3 to 10 minutes";
  const Json whole = figures_json(h.whole);
  for (const auto& [key, value] : whole.items()) j[key] = value;
  Json notes = Json::object();
  if (!h.whole.sdann_formed && h.whole.computed) notes["sdann"] = "not formed: needs two 5-minute segments";
  if (!h.whole.ulf_meaningful()) notes["ulf_pwr"] = kUlfNote;
  j["notes"] = std::move(notes);
  Json units = Json::object();
  for (std::size_t i = 0; i < kTimeFields.size(); ++i) units[kTimeFields[i]] = kTimeUnits[i];
  for (std::size_t i = 0; i < kFreqFields.size(); ++i) units[kFreqFields[i]] = kFreqUnits[i];
  j["units"] = std::move(units);
  if (!h.long_term) return j;

  Json seg = Json::object();
  seg["count"] = h.segments.size();
  if (!h.segments.empty()) {
    seg["span"] = span_json({h.segments.front().span.start, h.segments.back().span.end() - h.segments.front().span.start});
  }
  Json mean = Json::object(), used = Json::object();
  for (std::size_t i = 0; i < kFreqFields.size(); ++i) {
    mean[kFreqFields[i]] = nullable(h.segment_mean[i]);
    used[kFreqFields[i]] = h.segments_in_mean[i];
  }
  seg["frequency_domain_mean"] = std::move(mean);
  seg["segments_in_mean"] = std::move(used);
  seg["segments"] = Json::array();
  for (const auto& s : h.segments) seg["segments"].push_back(figures_json(s));
  j["five_minute_segments"] = std::move(seg);
  j["hours"] = Json::array();
  for (const auto& hour : h.hours) j["hours"].push_back(figures_json(hour));
  return j;
}

Json counts_json(const MatchCounts& c) {
  Json j = Json::object();
  j["reference_beats"] = c.references();
  j["detected_beats"] = c.detections();
  j["tp"] = c.true_positives;
  j["fn"] = c.false_negatives;
  j["fp"] = c.false_positives;
  j["sensitivity"] = nullable(c.sensitivity());
  j["positive_predictivity"] = nullable(c.positive_predictivity());
  j["f1"] = nullable(c.f1());
  return j;
}

Json validation_json(const Validation& v) {
  Json j = Json::object();
  j["record"] = v.record;
  j["annotations"] = v.annotations;
  j["excerpt"] = span_json(v.excerpt);
  j["match_window_ms"] = kMatchWindowSeconds * 1e3;
  const Json counts = counts_json(v.match.counts);
  for (const auto& [key, value] : counts.items()) j[key] = value;
  j["mean_abs_offset_ms"] = v.match.mean_abs_offset_s * 1e3;
  if (v.score_from_s > 0.0) j["score_from_s"] = v.score_from_s;
  j["classes"] = classes_json(v.classes);
  return j;
}

Json document(const Prepared& p, const AnalysisSettings& s, const QrsResult* qrs, const HrvResult* hrv,
              const Validation* validation) {
  Json j = Json::object();
  j["program"] = "keloecg";
  j["version"] = KELOECGSOLVER_VERSION_STRING;
  j["recording"] = recording_json(p);
  j["settings"] = settings_json(s);
  if (qrs) j["qrs"] = qrs_json(p, *qrs);
  if (hrv) j["hrv"] = hrv_json(*hrv);
  if (validation) j["validation"] = validation_json(*validation);
  return j;
}

std::string recording_text(const Prepared& p) {
  const Recording& r = p.recording;
  std::ostringstream out;
  out << "Recording   " << r.path;
  std::string lead = r.lead_name().empty() ? "lead " + std::to_string(r.lead_index)
                                           : "lead " + std::to_string(r.lead_index) + " " + r.lead_name();
  // The record name only when the file name does not already say it.
  const bool named = !r.name.empty() && std::filesystem::path(r.path).stem().string() != r.name;
  out << " (" << (named ? "record " + r.name + ", " : "") << lead << ")\n";
  out << "            " << r.format << ", " << number(r.fs) << " Hz, " << clock_text(r.duration_s()) << ", "
      << r.total_samples << " samples";
  if (p.resampled()) out << ", resampled to 200 Hz (" << p.total << " samples)";
  out << "\n";
  return out.str();
}

std::string qrs_text(const Prepared& p, const QrsResult& q, bool beats_listed) {
  (void)p;
  std::ostringstream out;
  out << "Excerpt     " << span_text(q.excerpt) << " (" << q.excerpt.length << " samples at 200 Hz)";
  if (q.excerpt.capped) out << ", the first 10 minutes (--short: the Java bridge's HRV over 3 to 10 minutes)";
  out << "\n";
  out << "Detection   ";
  if (q.detection.segments == 1) {
    out << "the whole excerpt in one pass\n";
  } else {
    out << q.detection.segments << " segments of " << clock_text(q.detection.segment_s) << " overlapping by "
        << number(q.detection.overlap_s) << " s; " << q.detection.seams_agreed << " of "
        << q.detection.seams_agreed + q.detection.seams_other
        << " seams joined between beats both segments found\n";
  }
  out << "Status      " << q.status << " " << status_text(q.status) << "\n";
  out << "Heart rate  ";
  if (q.heart_rate) {
    out << number(*q.heart_rate) << " bpm (median RR interval of the excerpt)\n";
  } else if (q.rejected_rate) {
    out << "none (" << number(*q.rejected_rate) << " bpm lies outside 30-220)\n";
  } else {
    out << "none (fewer than two R peaks)\n";
  }
  std::vector<std::string> notes;
  if (!q.labels.empty()) notes.push_back(labels_summary(q.labels));
  if (!beats_listed) notes.emplace_back("listed by keloecg qrs, or with --json or --csv");
  out << "R peaks     " << q.r_peaks.size();
  for (std::size_t i = 0; i < notes.size(); ++i) out << (i == 0 ? " (" : "; ") << notes[i];
  out << (notes.empty() ? "" : ")") << "\n";
  out << "Grade       ";
  if (graded(q)) {
    out << q.excerpt_grade << " " << excerpt_grade_text(q.excerpt_grade);
    if (!q.full_scale) out << " (clipping not tested: full scale unknown, give --full-scale)";
    else out << " (full scale " << number(*q.full_scale, 4) << " mV)";
  } else {
    out << grade_text(q);
  }
  out << "\n";

  std::map<int, int> counts;
  for (int g : q.window_grades) ++counts[g];
  out << "Windows     " << q.window_grades.size() << " x ";
  if (kelo::rules::one_window_over_all(q.excerpt.length / kelo::rules::kAnalysisRate, q.window_s)) {
    out << "the whole excerpt";
  } else {
    out << q.window_s << " s";
  }
  out << ":";
  for (auto [grade, n] : counts) out << " " << n << " " << window_grade_text(grade) << ",";
  out.seekp(-1, std::ios::cur);
  out << "\n";
  // One mark per window, 60 to a line (10 minutes of 10-second windows),
  // each line led by its time: . usable, o too few beats, C clipped,
  // I irregular.
  constexpr std::size_t kPerLine = 60;
  for (std::size_t i = 0; i < q.window_grades.size(); i += kPerLine) {
    const double at = q.excerpt.start_s() + static_cast<double>(i) * q.window_s;
    std::string marks = pad(q.window_grades.size() > kPerLine ? clock_text(at) : "", 12);
    for (std::size_t k = i; k < std::min(q.window_grades.size(), i + kPerLine); ++k) {
      const int g = q.window_grades[k];
      marks += g == 0 ? '.' : g == 3 ? 'o' : g == 5 ? 'C' : g == 6 ? 'I' : '?';
    }
    out << marks << "\n";
  }
  if (!q.window_grades.empty()) out << "            (. usable  o too few beats  C clipped  I irregular)\n";
  return out.str();
}

std::string beats_text(const Prepared& p, const QrsResult& q) {
  std::ostringstream out;
  out << "\nR peaks (0-based sample numbers of the whole recording)\n";
  out << pad("#", 7, true) << pad("time", 13, true) << pad("@200 Hz", 10, true);
  if (p.resampled()) out << pad("@" + number(p.recording.fs) + " Hz", 11, true);
  if (!q.labels.empty()) out << "  label";
  out << "\n";
  std::size_t i = 0;
  for (const auto& b : beat_records(p, q)) {
    out << pad(std::to_string(++i), 7, true) << pad(clock_text(b.time_s, 3), 13, true) << pad(std::to_string(b.sample), 10, true);
    if (p.resampled()) out << pad(std::to_string(b.sample_original), 11, true);
    if (!b.label.empty()) out << "  " << b.label;
    out << "\n";
  }
  return out.str();
}

namespace {

// The value of a figure as the text shows it, with its friendly reading.
std::pair<std::string, std::string> time_reading(const HrvFigures& f, std::size_t i) {
  const std::string unit = kTimeUnits[i];
  const auto v = f.time_value(i);
  if (!v) {
    if (i == 3 && f.computed && !f.sdann_formed) return {"-", "(not formed: needs two 5-minute segments)"};
    if (i == 4 && f.computed && !f.sdnn_index_formed) return {"-", "(not formed)"};
    return {"-", ""};
  }
  return {number(*v, 6) + (unit == "s" ? " s" : ""), friendly(unit, *v)};
}

std::pair<std::string, std::string> freq_reading(const std::optional<double>& v, std::size_t i, bool ulf_meaningful) {
  const std::string unit = kFreqUnits[i];
  if (!v) return {"-", ""};
  std::string extra = friendly(unit, *v);
  if (i == kUlf && !ulf_meaningful) extra += (extra.empty() ? "" : " ") + std::string("not meaningful under an hour");
  return {number(*v, 6) + (unit == "s^2" ? " s^2" : ""), extra};
}

void figure_line(std::ostringstream& out, const char* key, const char* label, const std::pair<std::string, std::string>& v) {
  std::string l = "  " + pad(key, 9) + pad(label, 36) + pad(v.first, 14, true) + "  " + v.second;
  l.erase(l.find_last_not_of(' ') + 1);
  out << l << "\n";
}

// Milliseconds, ms^2 and percent for the tables.
std::string ms(const std::optional<double>& v) { return v ? fixed(*v * 1e3, 1) : "-"; }
std::string ms2(const std::optional<double>& v) { return v ? number(*v * 1e6, 4) : "-"; }
std::string pct(const std::optional<double>& v) { return v ? fixed(*v * 100.0, 2) : "-"; }
std::string ratio(const std::optional<double>& v) { return v ? number(*v, 3) : "-"; }
std::string bpm(const std::optional<double>& v) { return v ? number(*v) : "-"; }

// A table of spans: two heading lines (names, units), then one row each,
// the first column left-aligned, the others right-aligned.
struct TextTable {
  std::vector<int> widths;
  std::vector<std::string> head, units;
  std::vector<std::vector<std::string>> rows;
  std::vector<std::string> notes;  // after each row ("" for none)

  void write(std::ostringstream& out) const {
    auto line = [&](const std::vector<std::string>& cells) {
      std::string l = " ";
      for (std::size_t c = 0; c < widths.size(); ++c) l += pad(cells[c], static_cast<std::size_t>(widths[c]), c > 0);
      return l;
    };
    out << line(head) << "\n" << line(units) << "\n";
    for (std::size_t r = 0; r < rows.size(); ++r) out << line(rows[r]) << notes[r] << "\n";
  }
};

void hours_table(std::ostringstream& out, const std::vector<HrvFigures>& hours) {
  out << "\nHourly (calcHrv over the R peaks of each hour)\n";
  TextTable t{{6, 12, 12, 8, 6, 9, 9, 8, 11, 11, 8},
              {"hour", "from", "to", "beats", "HR", "SDNN", "RMSSD", "pNN50", "LF", "HF", "LF/HF"},
              {"", "", "", "", "bpm", "ms", "ms", "%", "ms^2", "ms^2", ""}, {}, {}};
  for (std::size_t h = 0; h < hours.size(); ++h) {
    const auto& f = hours[h];
    t.rows.push_back({std::to_string(h + 1), clock_text(f.span.start_s()), clock_text(f.span.end_s()),
                      std::to_string(f.beats), bpm(f.heart_rate), ms(f.time_value(2)), ms(f.time_value(5)),
                      pct(f.time_value(6)), ms2(f.freq_value(3)), ms2(f.freq_value(4)), ratio(f.freq_value(5))});
    t.notes.push_back(f.computed ? "" : "  (" + f.not_computed + ")");
  }
  t.write(out);
}

void segments_table(std::ostringstream& out, const std::vector<HrvFigures>& segments) {
  out << "\nFive-minute segments (calcHrv over the R peaks of each)\n";
  TextTable t{{5, 12, 12, 7, 5, 4, 8, 9, 10, 10, 10, 10, 10, 7},
              {"#", "from", "to", "beats", "HR", "st", "SDNN", "RMSSD", "total", "ULF", "VLF", "LF", "HF", "LF/HF"},
              {"", "", "", "", "bpm", "", "ms", "ms", "ms^2", "ms^2", "ms^2", "ms^2", "ms^2", ""}, {}, {}};
  for (std::size_t k = 0; k < segments.size(); ++k) {
    const auto& f = segments[k];
    t.rows.push_back({std::to_string(k + 1), clock_text(f.span.start_s()), clock_text(f.span.end_s()),
                      std::to_string(f.beats), bpm(f.heart_rate), std::to_string(f.status), ms(f.time_value(2)),
                      ms(f.time_value(5)), ms2(f.freq_value(0)), ms2(f.freq_value(1)), ms2(f.freq_value(2)),
                      ms2(f.freq_value(3)), ms2(f.freq_value(4)), ratio(f.freq_value(5))});
    t.notes.emplace_back();
  }
  t.write(out);
  out << "  (st: status, 0 success, 3 no usable beats, 4 no spectral line below 0.4 Hz; ULF means nothing over 5 minutes)\n";
}

}  // namespace

std::string hrv_text(const HrvResult& h) {
  std::ostringstream out;
  const HrvFigures& f = h.whole;
  out << "\nHRV         " << (h.long_term ? "long-term, over the whole excerpt: " : "the Java bridge's analysis: ")
      << span_text(f.span) << ", " << f.beats << " R peaks\n";
  out << "            status " << f.status << " " << status_text(f.status) << "\n";
  if (!f.computed) {
    out << "            not computed: " << f.not_computed << "\n";
    return out.str();
  }
  if (f.intervals) {
    out << "NN          " << *f.intervals - *f.excluded_intervals << " of " << *f.intervals
        << " RR intervals; left out: " << *f.excluded_intervals << " next to a beat not labelled normal\n";
  }
  out << "Time domain\n";
  for (std::size_t i = 0; i < kTimeFields.size(); ++i) figure_line(out, kTimeFields[i], kTimeLabels[i], time_reading(f, i));
  out << "Frequency domain (Lomb periodogram of " << (h.long_term ? "the whole excerpt" : "the excerpt") << ")\n";
  if (!f.spectrum) {
    out << "  not formed: no spectral line below 0.4 Hz\n";
  } else {
    for (std::size_t i = 0; i < kFreqFields.size(); ++i) {
      figure_line(out, kFreqFields[i], kFreqLabels[i], freq_reading(f.freq_value(i), i, f.ulf_meaningful()));
    }
  }
  if (!h.long_term) return out.str();

  if (!h.segments.empty()) {
    out << "\nFrequency domain, mean of " << h.segments.size() << " five-minute segments ("
        << clock_text(h.segments.front().span.start_s()) << " to " << clock_text(h.segments.back().span.end_s()) << ")\n";
    for (std::size_t i = 0; i < kFreqFields.size(); ++i) {
      auto reading = freq_reading(h.segment_mean[i], i, false);
      if (h.segments_in_mean[i] < h.segments.size()) {
        reading.second += (reading.second.empty() ? "" : " ") + std::string("over ") +
                          std::to_string(h.segments_in_mean[i]) + " segments";
      }
      figure_line(out, kFreqFields[i], kFreqLabels[i], reading);
    }
  }
  hours_table(out, h.hours);
  segments_table(out, h.segments);
  return out.str();
}

std::string validation_text(const std::vector<Validation>& rows) {
  std::ostringstream out;
  auto line = [&](const std::string& name, const MatchCounts& c, const ClassCounts& k) {
    out << pad(name, 12) << pad(std::to_string(c.references()), 9, true) << pad(std::to_string(c.detections()), 9, true)
        << pad(std::to_string(c.true_positives), 9, true) << pad(std::to_string(c.false_negatives), 7, true)
        << pad(std::to_string(c.false_positives), 7, true) << pad(percent(c.sensitivity()), 9, true)
        << pad(percent(c.positive_predictivity()), 9, true) << pad(percent(c.f1()), 9, true);
    for (std::size_t i = 0; i < kBeatClasses.size(); ++i) out << pad(percent(k.sensitivity(i)), 9, true);
    out << "\n";
  };
  out << pad("record", 12) << pad("ref", 9, true) << pad("detected", 9, true) << pad("TP", 9, true)
      << pad("FN", 7, true) << pad("FP", 7, true) << pad("Se %", 9, true) << pad("+P %", 9, true)
      << pad("F1 %", 9, true);
  for (auto c : kBeatClasses) out << pad(std::string("Se ") + c + " %", 9, true);
  out << "\n";
  MatchCounts total;
  ClassCounts classes;
  for (const auto& v : rows) {
    line(v.record, v.match.counts, v.classes);
    total += v.match.counts;
    classes += v.classes;
  }
  if (rows.size() > 1) {
    out << std::string(125, '-') << "\n";
    line("total", total, classes);
  }
  out << "(beats matched within 150 ms; Se sensitivity, +P positive predictivity; Se by reference class:\n"
         " N = N L R e j, S = A a J S, V = V E, F = F, Q = / f Q ?";
  if (!rows.empty() && rows.front().score_from_s > 0.0) out << "; scored from " << number(rows.front().score_from_s) << " s";
  out << ")\n";
  return out.str();
}

std::string csv_line(const std::vector<std::string>& fields) {
  std::string out;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const std::string& f = fields[i];
    if (i) out += ',';
    if (f.find_first_of(",\"\n") != std::string::npos) {
      out += '"';
      for (char c : f) out += c == '"' ? std::string("\"\"") : std::string(1, c);
      out += '"';
    } else {
      out += f;
    }
  }
  return out + "\n";
}

std::string beats_csv(const Prepared& p, const QrsResult& q) {
  std::string out = csv_line({"beat", "time_s", "sample_200hz", "sample_original", "label", "rr_s", "window", "window_grade",
                              "window_grade_text", "excerpt_start_s", "excerpt_end_s", "status", "status_text",
                              "heart_rate_bpm", "excerpt_grade", "excerpt_grade_text"});
  const std::vector<std::string> excerpt = {csv_number(q.excerpt.start_s()), csv_number(q.excerpt.end_s()),
                                            std::to_string(q.status), status_text(q.status),
                                            csv_number(q.heart_rate), graded(q) ? std::to_string(q.excerpt_grade) : "",
                                            grade_text(q)};
  const auto records = beat_records(p, q);
  if (records.empty()) {
    std::vector<std::string> row(9, "");
    row.insert(row.end(), excerpt.begin(), excerpt.end());
    return out + csv_line(row);
  }
  // Window w covers samples w * L .. (w + 1) * L - 1 of the excerpt; with a
  // single window, the whole excerpt.
  const std::int64_t length = static_cast<std::int64_t>(q.window_s) * static_cast<std::int64_t>(kAnalysisRate);
  for (std::size_t i = 0; i < records.size(); ++i) {
    const auto& b = records[i];
    std::int64_t w = q.window_grades.size() == 1 ? 0 : (b.sample - q.excerpt.start) / length;
    const bool graded_window = w < static_cast<std::int64_t>(q.window_grades.size());
    std::vector<std::string> row = {
        std::to_string(i + 1), csv_number(b.time_s), std::to_string(b.sample), std::to_string(b.sample_original), b.label,
        i == 0 ? "" : csv_number(static_cast<double>(b.sample - records[i - 1].sample) / kAnalysisRate),
        graded_window ? std::to_string(w + 1) : "",
        graded_window ? std::to_string(q.window_grades[static_cast<std::size_t>(w)]) : "",
        graded_window ? window_grade_text(q.window_grades[static_cast<std::size_t>(w)]) : ""};
    row.insert(row.end(), excerpt.begin(), excerpt.end());
    out += csv_line(row);
  }
  return out;
}

namespace {

std::vector<std::string> figures_header() {
  std::vector<std::string> h = {"start_s", "end_s", "duration_s", "r_peaks", "heart_rate_bpm", "status"};
  for (std::size_t i = 0; i < kTimeFields.size(); ++i) h.push_back(time_column(i));
  for (std::size_t i = 0; i < kFreqFields.size(); ++i) h.push_back(freq_column(i));
  h.emplace_back("ulf_meaningful");
  h.emplace_back("nn_intervals");  // with all beats: the intervals HRV used, and those left out
  h.emplace_back("excluded_intervals");
  return h;
}

std::vector<std::string> figures_row(const HrvFigures& f) {
  std::vector<std::string> row = {csv_number(f.span.start_s()), csv_number(f.span.end_s()), csv_number(f.span.duration_s()),
                                  std::to_string(f.beats), csv_number(f.heart_rate), std::to_string(f.status)};
  for (std::size_t i = 0; i < kTimeFields.size(); ++i) row.push_back(csv_number(f.time_value(i)));
  for (std::size_t i = 0; i < kFreqFields.size(); ++i) row.push_back(csv_number(f.freq_value(i)));
  row.emplace_back(f.ulf_meaningful() ? "true" : "false");
  row.push_back(f.intervals ? std::to_string(*f.intervals - *f.excluded_intervals) : "");
  row.push_back(f.excluded_intervals ? std::to_string(*f.excluded_intervals) : "");
  return row;
}

}  // namespace

std::string hrv_csv(const HrvResult& h) {
  auto header = figures_header();
  header.insert(header.begin(), {"span", "number"});
  std::string out = csv_line(header);
  auto line = [&](const std::string& span, const std::string& n, std::vector<std::string> row) {
    row.insert(row.begin(), {span, n});
    out += csv_line(row);
  };
  line(h.long_term ? "whole excerpt" : "excerpt (short analysis)", "", figures_row(h.whole));
  if (!h.long_term) return out;
  if (!h.segments.empty()) {
    // The mean of the segments: frequency domain only.
    HrvFigures mean;
    mean.span = {h.segments.front().span.start, h.segments.back().span.end() - h.segments.front().span.start};
    std::vector<std::string> row = figures_row(mean);
    const std::size_t freq_at = 6 + kTimeFields.size();
    std::fill(row.begin() + 3, row.end(), "");
    for (std::size_t i = 0; i < kFreqFields.size(); ++i) row[freq_at + i] = csv_number(h.segment_mean[i]);
    row[freq_at + kFreqFields.size()] = "false";  // ulf_meaningful
    line("mean of 5-minute segments", std::to_string(h.segments.size()), row);
  }
  for (std::size_t k = 0; k < h.hours.size(); ++k) line("hour", std::to_string(k + 1), figures_row(h.hours[k]));
  for (std::size_t k = 0; k < h.segments.size(); ++k) line("5-minute segment", std::to_string(k + 1), figures_row(h.segments[k]));
  return out;
}

std::vector<std::string> summary_header() {
  std::vector<std::string> h = {"file", "record", "error", "format", "sampling_rate_hz", "duration_s",
                                "excerpt_start_s", "excerpt_end_s", "detection_segments", "status", "heart_rate_bpm",
                                "r_peaks", "excerpt_grade", "windows", "usable_windows", "hrv_analysis",
                                "hrv_start_s", "hrv_end_s", "hrv_status"};
  for (std::size_t i = 0; i < kTimeFields.size(); ++i) h.push_back(time_column(i));
  for (std::size_t i = 0; i < kFreqFields.size(); ++i) h.push_back(freq_column(i));
  h.emplace_back("ulf_meaningful");
  h.emplace_back("segments_5min");
  for (std::size_t i = 0; i < kFreqFields.size(); ++i) h.push_back("mean_5min_" + freq_column(i));
  for (auto f : {"reference_beats", "tp", "fn", "fp", "sensitivity", "positive_predictivity", "f1"}) h.emplace_back(f);
  // Added last, so that earlier columns keep their places.
  for (auto f : {"beats", "hrv_intervals", "hrv_excluded_intervals"}) h.emplace_back(f);
  for (auto c : kBeatClasses) h.push_back(std::string("sensitivity_") + c);
  return h;
}

std::vector<std::string> summary_row(const std::string& file, const Prepared* p, const QrsResult* qrs,
                                     const HrvResult* hrv, const Validation* v, const std::string& error) {
  std::vector<std::string> row = {file, p ? p->recording.name : "", error};
  if (p) {
    row.insert(row.end(), {p->recording.format, number(p->recording.fs, 10), csv_number(p->recording.duration_s())});
  } else {
    row.insert(row.end(), 3, "");
  }
  if (qrs) {
    std::size_t usable = 0;
    for (int g : qrs->window_grades) usable += g == 0;
    row.insert(row.end(), {csv_number(qrs->excerpt.start_s()), csv_number(qrs->excerpt.end_s()),
                           std::to_string(qrs->detection.segments), std::to_string(qrs->status),
                           csv_number(qrs->heart_rate), std::to_string(qrs->r_peaks.size()),
                           graded(*qrs) ? std::to_string(qrs->excerpt_grade) : "",
                           std::to_string(qrs->window_grades.size()), std::to_string(usable)});
  } else {
    row.insert(row.end(), 9, "");
  }
  if (hrv) {
    const HrvFigures& f = hrv->whole;
    row.insert(row.end(), {hrv->long_term ? "long-term" : "short", csv_number(f.span.start_s()),
                           csv_number(f.span.end_s()), std::to_string(f.status)});
    for (std::size_t i = 0; i < kTimeFields.size(); ++i) row.push_back(csv_number(f.time_value(i)));
    for (std::size_t i = 0; i < kFreqFields.size(); ++i) row.push_back(csv_number(f.freq_value(i)));
    row.emplace_back(f.ulf_meaningful() ? "true" : "false");
    row.push_back(hrv->long_term ? std::to_string(hrv->segments.size()) : "");
    for (std::size_t i = 0; i < kFreqFields.size(); ++i) row.push_back(csv_number(hrv->segment_mean[i]));
  } else {
    row.insert(row.end(), 4 + kTimeFields.size() + kFreqFields.size() + 2 + kFreqFields.size(), "");
  }
  if (v) {
    const auto& c = v->match.counts;
    row.insert(row.end(), {std::to_string(c.references()), std::to_string(c.true_positives),
                           std::to_string(c.false_negatives), std::to_string(c.false_positives),
                           csv_number(c.sensitivity()), csv_number(c.positive_predictivity()), csv_number(c.f1())});
  } else {
    row.insert(row.end(), 7, "");
  }
  row.emplace_back(qrs ? beats_mode_name(qrs->beats) : "");
  row.push_back(hrv && hrv->whole.intervals ? std::to_string(*hrv->whole.intervals) : "");
  row.push_back(hrv && hrv->whole.excluded_intervals ? std::to_string(*hrv->whole.excluded_intervals) : "");
  for (std::size_t i = 0; i < kBeatClasses.size(); ++i) row.push_back(v ? csv_number(v->classes.sensitivity(i)) : "");
  return row;
}

std::string validation_csv(const std::vector<Validation>& rows) {
  std::vector<std::string> header = {"record", "reference_beats", "detected_beats", "tp", "fn", "fp", "sensitivity",
                                     "positive_predictivity", "f1"};
  for (auto c : kBeatClasses) header.push_back(std::string("sensitivity_") + c);
  std::string out = csv_line(header);
  MatchCounts total;
  ClassCounts classes;
  auto line = [&](const std::string& name, const MatchCounts& c, const ClassCounts& k) {
    std::vector<std::string> row = {name, std::to_string(c.references()), std::to_string(c.detections()),
                                    std::to_string(c.true_positives), std::to_string(c.false_negatives),
                                    std::to_string(c.false_positives), csv_number(c.sensitivity()),
                                    csv_number(c.positive_predictivity()), csv_number(c.f1())};
    for (std::size_t i = 0; i < kBeatClasses.size(); ++i) row.push_back(csv_number(k.sensitivity(i)));
    out += csv_line(row);
  };
  for (const auto& v : rows) {
    line(v.record, v.match.counts, v.classes);
    total += v.match.counts;
    classes += v.classes;
  }
  if (rows.size() > 1) line("total", total, classes);
  return out;
}

}  // namespace keloecg
