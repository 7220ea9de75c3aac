// The parts of the analysis that do not call the library: resampling,
// excerpt selection, status texts and the comparison with references.
#include <cmath>
#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "analysis.hpp"
#include "errors.hpp"
#include "text_util.hpp"

namespace keloecg {

Prepared prepare(Recording recording) {
  // The converter resamples by factors from 1/256 to 256.
  constexpr double kLowest = kAnalysisRate / 256.0, kHighest = kAnalysisRate * 256.0;
  if (!(recording.fs >= kLowest && recording.fs <= kHighest)) {
    throw InputError(recording.path, "a sampling rate of " + short_number(recording.fs) +
                                         " Hz cannot be brought to 200 Hz (rates from 0.79 to 51200 Hz can)");
  }
  Prepared p;
  p.samples = resample(recording.samples, recording.fs, kAnalysisRate);
  p.map.original_fs = recording.fs;
  p.recording = std::move(recording);
  return p;
}

Excerpt choose_excerpt(const Prepared& p, const AnalysisSettings& s, RunKind kind) {
  const std::string& where = p.recording.path;
  const auto total = static_cast<std::int64_t>(p.samples.size());
  if (!(s.start_s >= 0.0) || !std::isfinite(s.start_s)) throw InputError("", "--start must be 0 or more seconds");
  if (s.duration_s && !(*s.duration_s > 0.0 && std::isfinite(*s.duration_s))) {
    throw InputError("", "--duration must be more than 0 seconds");
  }
  Excerpt e;
  // Compared as doubles first: a huge --start must not overflow.
  if (s.start_s * kAnalysisRate >= static_cast<double>(total) - 0.5) e.start = total;
  else e.start = std::llround(s.start_s * kAnalysisRate);
  if (e.start >= total) {
    throw InputError(where, "--start " + clock_text(s.start_s) + " lies beyond the end of the recording (" +
                                clock_text(p.recording.duration_s()) + ")");
  }
  e.length = total - e.start;
  if (s.duration_s && *s.duration_s * kAnalysisRate < static_cast<double>(e.length)) {
    e.length = std::llround(*s.duration_s * kAnalysisRate);
  }

  const std::int64_t minimum = kind == RunKind::Hrv ? kHrvMinSamples : kQrsMinSamples;
  if (e.length < minimum) {
    const std::string what = kind == RunKind::Hrv ? "HRV needs at least 3 minutes" : "R-peak detection needs at least 15 s";
    throw InputError(where, "recording too short: " + clock_text(e.duration_s()) +
                                (e.start > 0 || s.duration_s ? " in the chosen excerpt" : "") + ", " + what);
  }
  if (kind == RunKind::Hrv && e.length > kHrvMaxSamples) {
    e.length = kHrvMaxSamples;
    e.capped = true;
  }
  if (e.length > INT32_MAX) throw InputError(where, "recording too long for one analysis; choose an excerpt with --duration");
  return e;
}

std::string status_text(int status) {
  switch (status) {
    case KELO_STATUS_SUCCESS: return "success";
    case KELO_STATUS_NO_USABLE_BEATS: return "no usable beats (fewer than two R peaks, or heart rate outside 30-220 bpm)";
    case KELO_STATUS_NO_SPECTRUM: return "no spectral line below 0.4 Hz";
    case KELO_STATUS_CLIPPED: return "clipped signal";
    case KELO_STATUS_IRREGULAR: return "irregular rhythm";
    default: return "status " + std::to_string(status);
  }
}

std::string excerpt_grade_text(int grade) {
  switch (grade) {
    case KELO_EXCERPT_USABLE: return "usable";
    case KELO_EXCERPT_CLIPPED: return "clipped";
    case KELO_EXCERPT_IRREGULAR: return "irregular";
    default: return "grade " + std::to_string(grade);
  }
}

std::string window_grade_text(int grade) {
  switch (grade) {
    case KELO_WINDOW_USABLE: return "usable";
    case KELO_WINDOW_TOO_FEW_BEATS: return "too few beats";
    case KELO_WINDOW_CLIPPED: return "clipped";
    case KELO_WINDOW_IRREGULAR: return "irregular";
    default: return "grade " + std::to_string(grade);
  }
}

Validation validate(const Prepared& p, const QrsResult& qrs, const ReferenceBeats& reference, double score_from_s) {
  Validation v;
  v.record = p.recording.name;
  v.annotations = reference.path;
  v.excerpt = qrs.excerpt;
  v.score_from_s = score_from_s;
  // The excerpt covers [start, end) at 200 Hz; a reference beat belongs to
  // it when its time falls inside (and is not before score_from_s).
  const double from = std::max(qrs.excerpt.start_s(), score_from_s);
  const double to = static_cast<double>(qrs.excerpt.end()) / kAnalysisRate;
  for (std::size_t i = 0; i < reference.samples.size(); ++i) {
    const double t = reference.time_s(i);
    if (t >= from && t < to) {
      v.reference_s.push_back(t);
      v.reference_symbols.push_back(reference.symbols[i]);
    }
  }
  v.detected_s.reserve(qrs.r_peaks.size());
  for (auto peak : qrs.r_peaks) {
    const double t = static_cast<double>(peak) / kAnalysisRate;
    if (t >= score_from_s) v.detected_s.push_back(t);
  }
  v.match = match_beats(v.reference_s, v.detected_s);
  v.classes = class_counts(v.reference_symbols, v.match);
  return v;
}

}  // namespace keloecg
