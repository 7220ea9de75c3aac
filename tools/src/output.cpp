#include "output.hpp"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <sstream>

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
  return v ? Json(*v) : Json(nullptr);
}

Json excerpt_json(const Excerpt& e) {
  Json j;
  j["start_sample_200hz"] = e.start;
  j["samples_200hz"] = e.length;
  j["start_s"] = e.start_s();
  j["duration_s"] = e.duration_s();
  if (e.capped) j["capped_to_10_minutes"] = true;
  return j;
}

constexpr const char* kTimeLabels[] = {
    "NN/RR ratio", "mean NN interval (AVNN)", "SD of NN intervals (SDNN)", "SD of 5-minute means (SDANN)",
    "mean of 5-minute SDs (SDNN index)", "RMS of successive differences", "successive differences > 50 ms"};
constexpr const char* kFreqLabels[] = {"total power, 0-0.4 Hz", "ULF power, 0-0.0033 Hz", "VLF power, 0.0033-0.04 Hz",
                                       "LF power, 0.04-0.15 Hz", "HF power, 0.15-0.4 Hz", "LF/HF ratio"};

// Extra reading of a value in the units people usually quote.
std::string friendly(const std::string& unit, double v) {
  if (!std::isfinite(v)) return "";
  if (unit == "s") return "(" + fixed(v * 1e3, 1) + " ms)";
  if (unit == "s^2") return "(" + number(v * 1e6, 4) + " ms^2)";
  if (unit == "fraction") return "(" + fixed(v * 100.0, 2) + " %)";
  return "";
}

}  // namespace

std::string number(double v, int significant) {
  if (std::isnan(v)) return "NaN";
  if (std::isinf(v)) return v > 0 ? "Inf" : "-Inf";
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.*g", significant, v);
  return buf;
}

Json recording_json(const Prepared& p) {
  const Recording& r = p.recording;
  Json j;
  j["path"] = r.path;
  j["name"] = r.name;
  j["format"] = r.format;
  j["lead"] = {{"index", r.lead_index}, {"name", r.lead_name()}};
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
  Json j;
  j["start_s"] = s.start_s;
  j["duration_s"] = nullable(s.duration_s);
  j["full_scale"] = nullable(s.full_scale);
  j["window_s"] = s.window_s;
  return j;
}

Json detection_json(const DetectionInfo& d) {
  Json j;
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

Json qrs_json(const Prepared& p, const QrsResult& q) {
  Json j;
  j["excerpt"] = excerpt_json(q.excerpt);
  j["detection"] = detection_json(q.detection);
  j["status"] = q.status;
  j["status_text"] = status_text(q.status);
  j["heart_rate_bpm"] = nullable(q.heart_rate);
  if (q.rejected_rate) j["rejected_heart_rate_bpm"] = nullable(*q.rejected_rate);
  j["excerpt_grade"] = q.excerpt_grade;
  j["excerpt_grade_text"] = excerpt_grade_text(q.excerpt_grade);
  j["full_scale"] = nullable(q.full_scale);
  j["clipping_tested"] = q.full_scale.has_value();
  j["window_s"] = q.window_s;
  j["window_grades"] = q.window_grades;
  Json peaks;
  peaks["count"] = q.r_peaks.size();
  peaks["sample_200hz"] = q.r_peaks;
  Json original = Json::array(), times = Json::array();
  for (auto s : q.r_peaks) {
    original.push_back(p.map.to_original(s));
    times.push_back(static_cast<double>(s) / kAnalysisRate);
  }
  peaks["sample_original"] = std::move(original);
  peaks["time_s"] = std::move(times);
  j["r_peaks"] = std::move(peaks);
  return j;
}

Json hrv_json(const HrvResult& h) {
  Json j;
  j["excerpt"] = excerpt_json(h.qrs.excerpt);
  j["status"] = h.status;
  j["status_text"] = status_text(h.status);
  j["computed"] = h.computed;
  if (!h.computed) j["not_computed"] = h.not_computed;
  j["heart_rate_bpm"] = nullable(h.qrs.heart_rate);
  j["r_peaks"] = h.qrs.r_peaks.size();
  Json time, freq, units;
  for (std::size_t i = 0; i < kTimeFields.size(); ++i) {
    time[kTimeFields[i]] = h.computed ? nullable(h.time[i]) : Json(nullptr);
    units[kTimeFields[i]] = kTimeUnits[i];
  }
  for (std::size_t i = 0; i < kFreqFields.size(); ++i) {
    freq[kFreqFields[i]] = h.spectrum ? nullable(h.freq[i]) : Json(nullptr);
    units[kFreqFields[i]] = kFreqUnits[i];
  }
  j["time_domain"] = std::move(time);
  j["frequency_domain"] = std::move(freq);
  j["units"] = std::move(units);
  return j;
}

Json counts_json(const MatchCounts& c) {
  Json j;
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
  Json j;
  j["record"] = v.record;
  j["annotations"] = v.annotations;
  j["excerpt"] = excerpt_json(v.excerpt);
  j["match_window_ms"] = kMatchWindowSeconds * 1e3;
  const Json counts = counts_json(v.match.counts);
  for (const auto& [key, value] : counts.items()) j[key] = value;
  j["mean_abs_offset_ms"] = v.match.mean_abs_offset_s * 1e3;
  return j;
}

Json document(const Prepared& p, const AnalysisSettings& s, const QrsResult* qrs, const HrvResult* hrv,
              const Validation* validation) {
  Json j;
  j["program"] = "keloecg";
  j["version"] = KELO_VERSION;
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
  for (const auto& w : r.warnings) out << "Note        " << w << "\n";
  return out.str();
}

std::string qrs_text(const Prepared& p, const QrsResult& q, bool beats_listed) {
  (void)p;
  std::ostringstream out;
  out << "Excerpt     " << clock_text(q.excerpt.start_s()) << " to " << clock_text(q.excerpt.start_s() + q.excerpt.duration_s())
      << " (" << q.excerpt.length << " samples at 200 Hz)";
  if (q.excerpt.capped) out << ", the first 10 minutes: HRV is computed over 3 to 10 minutes";
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
    out << number(*q.heart_rate) << " bpm\n";
  } else if (q.rejected_rate) {
    out << "none (" << number(*q.rejected_rate) << " bpm lies outside 30-220)\n";
  } else {
    out << "none (fewer than two R peaks)\n";
  }
  out << "R peaks     " << q.r_peaks.size() << (beats_listed ? "" : " (listed by keloecg qrs, or with --json or --csv)") << "\n";
  out << "Grade       " << q.excerpt_grade << " " << excerpt_grade_text(q.excerpt_grade);
  if (!q.full_scale) out << " (clipping not tested: full scale unknown, give --full-scale)";
  else out << " (full scale " << number(*q.full_scale, 4) << " mV)";
  out << "\n";

  std::map<int, int> counts;
  for (int g : q.window_grades) ++counts[g];
  out << "Windows     " << q.window_grades.size() << " x ";
  if (q.window_grades.size() == 1 && (q.window_s < 5 || q.excerpt.duration_s() < q.window_s * 2)) {
    out << "the whole excerpt";
  } else {
    out << q.window_s << " s";
  }
  out << ":";
  for (auto [grade, n] : counts) out << " " << n << " " << window_grade_text(grade) << ",";
  out.seekp(-1, std::ios::cur);
  out << "\n";
  // One mark per window, 50 to a line: . usable, o too few beats,
  // C clipped, I irregular.
  std::string marks;
  for (std::size_t i = 0; i < q.window_grades.size(); ++i) {
    if (i % 50 == 0) marks += i == 0 ? "            " : "\n            ";
    const int g = q.window_grades[i];
    marks += g == 0 ? '.' : g == 3 ? 'o' : g == 5 ? 'C' : g == 6 ? 'I' : '?';
  }
  if (!q.window_grades.empty()) out << marks << "   (. usable  o too few beats  C clipped  I irregular)\n";
  return out.str();
}

std::string beats_text(const Prepared& p, const QrsResult& q) {
  std::ostringstream out;
  out << "\nR peaks (0-based sample numbers of the whole recording)\n";
  out << pad("#", 7, true) << pad("time s", 11, true) << pad("@200 Hz", 10, true);
  if (p.resampled()) out << pad("@" + number(p.recording.fs) + " Hz", 10, true);
  out << "\n";
  for (std::size_t i = 0; i < q.r_peaks.size(); ++i) {
    const auto s = q.r_peaks[i];
    out << pad(std::to_string(i + 1), 7, true) << pad(fixed(static_cast<double>(s) / kAnalysisRate, 3), 11, true)
        << pad(std::to_string(s), 10, true);
    if (p.resampled()) out << pad(std::to_string(p.map.to_original(s)), 10, true);
    out << "\n";
  }
  return out.str();
}

std::string hrv_text(const HrvResult& h) {
  std::ostringstream out;
  out << "\nHRV         status " << h.status << " " << status_text(h.status) << "\n";
  if (!h.computed) {
    out << "            not computed: " << h.not_computed << "\n";
    return out.str();
  }
  out << "Time domain\n";
  auto line = [&](const char* key, const char* label, const std::string& value, const std::string& extra) {
    std::string l = "  " + pad(key, 9) + pad(label, 36) + pad(value, 14, true) + "  " + extra;
    l.erase(l.find_last_not_of(' ') + 1);
    out << l << "\n";
  };
  for (std::size_t i = 0; i < kTimeFields.size(); ++i) {
    const std::string unit = kTimeUnits[i];
    std::string extra = friendly(unit, h.time[i]);
    // The library reports an SDANN it cannot form (fewer than two 5-minute
    // segments) as 0.
    if (i == 3 && h.time[i] == 0.0) extra = "(not formed: needs two 5-minute segments)";
    line(kTimeFields[i], kTimeLabels[i], number(h.time[i], 6) + (unit == "s" ? " s" : ""), extra);
  }
  out << "Frequency domain (Lomb periodogram)\n";
  if (!h.spectrum) {
    out << "  not formed: no spectral line below 0.4 Hz\n";
    return out.str();
  }
  for (std::size_t i = 0; i < kFreqFields.size(); ++i) {
    const std::string unit = kFreqUnits[i];
    line(kFreqFields[i], kFreqLabels[i], number(h.freq[i], 6) + (unit == "s^2" ? " s^2" : ""), friendly(unit, h.freq[i]));
  }
  return out.str();
}

std::string validation_text(const std::vector<Validation>& rows) {
  std::ostringstream out;
  auto line = [&](const std::string& name, const MatchCounts& c) {
    out << pad(name, 12) << pad(std::to_string(c.references()), 9, true) << pad(std::to_string(c.detections()), 9, true)
        << pad(std::to_string(c.true_positives), 9, true) << pad(std::to_string(c.false_negatives), 7, true)
        << pad(std::to_string(c.false_positives), 7, true) << pad(percent(c.sensitivity()), 9, true)
        << pad(percent(c.positive_predictivity()), 9, true) << pad(percent(c.f1()), 9, true) << "\n";
  };
  out << pad("record", 12) << pad("ref", 9, true) << pad("detected", 9, true) << pad("TP", 9, true)
      << pad("FN", 7, true) << pad("FP", 7, true) << pad("Se %", 9, true) << pad("+P %", 9, true)
      << pad("F1 %", 9, true) << "\n";
  MatchCounts total;
  for (const auto& v : rows) {
    line(v.record, v.match.counts);
    total += v.match.counts;
  }
  if (rows.size() > 1) {
    out << std::string(80, '-') << "\n";
    line("total", total);
  }
  out << "(beats matched within 150 ms; Se sensitivity, +P positive predictivity)\n";
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

namespace {

std::string csv_number(double v) { return std::isfinite(v) ? number(v, 10) : ""; }

}  // namespace

std::string beats_csv(const Prepared& p, const QrsResult& q) {
  std::string out = csv_line({"beat", "time_s", "sample_200hz", "sample_original"});
  for (std::size_t i = 0; i < q.r_peaks.size(); ++i) {
    const auto s = q.r_peaks[i];
    out += csv_line({std::to_string(i + 1), csv_number(static_cast<double>(s) / kAnalysisRate), std::to_string(s),
                     std::to_string(p.map.to_original(s))});
  }
  return out;
}

std::vector<std::string> summary_header() {
  std::vector<std::string> h = {"file", "record", "error", "format", "sampling_rate_hz", "duration_s",
                                "status", "heart_rate_bpm", "r_peaks", "excerpt_grade", "windows", "usable_windows",
                                "hrv_status"};
  for (auto f : kTimeFields) h.emplace_back(f);
  for (auto f : kFreqFields) h.emplace_back(f);
  for (auto f : {"reference_beats", "tp", "fn", "fp", "sensitivity", "positive_predictivity", "f1"}) h.emplace_back(f);
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
    row.insert(row.end(), {std::to_string(qrs->status), qrs->heart_rate ? csv_number(*qrs->heart_rate) : "",
                           std::to_string(qrs->r_peaks.size()), std::to_string(qrs->excerpt_grade),
                           std::to_string(qrs->window_grades.size()), std::to_string(usable)});
  } else {
    row.insert(row.end(), 6, "");
  }
  row.push_back(hrv ? std::to_string(hrv->status) : "");
  for (std::size_t i = 0; i < kTimeFields.size(); ++i) row.push_back(hrv && hrv->computed ? csv_number(hrv->time[i]) : "");
  for (std::size_t i = 0; i < kFreqFields.size(); ++i) row.push_back(hrv && hrv->spectrum ? csv_number(hrv->freq[i]) : "");
  if (v) {
    const auto& c = v->match.counts;
    row.insert(row.end(), {std::to_string(c.references()), std::to_string(c.true_positives),
                           std::to_string(c.false_negatives), std::to_string(c.false_positives),
                           csv_number(c.sensitivity()), csv_number(c.positive_predictivity()), csv_number(c.f1())});
  } else {
    row.insert(row.end(), 7, "");
  }
  return row;
}

std::string validation_csv(const std::vector<Validation>& rows) {
  std::string out = csv_line({"record", "reference_beats", "detected_beats", "tp", "fn", "fp", "sensitivity",
                              "positive_predictivity", "f1"});
  MatchCounts total;
  auto line = [&](const std::string& name, const MatchCounts& c) {
    out += csv_line({name, std::to_string(c.references()), std::to_string(c.detections()),
                     std::to_string(c.true_positives), std::to_string(c.false_negatives),
                     std::to_string(c.false_positives), csv_number(c.sensitivity()),
                     csv_number(c.positive_predictivity()), csv_number(c.f1())});
  };
  for (const auto& v : rows) {
    line(v.record, v.match.counts);
    total += v.match.counts;
  }
  if (rows.size() > 1) line("total", total);
  return out;
}

}  // namespace keloecg
