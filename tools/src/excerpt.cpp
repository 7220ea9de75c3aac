// The parts of the analysis that do not call the library: resampling,
// excerpt selection, status texts and the comparison with references.
#include <cmath>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <stdexcept>

#include "analysis.hpp"
#include "errors.hpp"
#include "text_util.hpp"

namespace keloecg {

LoadOptions read_window(LoadOptions options, const AnalysisSettings& settings) {
  constexpr double kMargin = 1.0;
  options.from_s = std::max(0.0, settings.start_s - kMargin);
  options.to_s.reset();
  if (settings.duration_s) options.to_s = settings.start_s + *settings.duration_s + kMargin;
  return options;
}

namespace {

// The stretch --start and --duration select in a recording of `total`
// samples at 200 Hz, without the limits of the runs.
Excerpt select(const std::string& where, double recording_s, std::int64_t total, const AnalysisSettings& s) {
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
                                clock_text(recording_s) + ")");
  }
  e.length = total - e.start;
  if (s.duration_s && *s.duration_s * kAnalysisRate < static_cast<double>(e.length)) {
    e.length = std::llround(*s.duration_s * kAnalysisRate);
  }
  return e;
}

}  // namespace

std::span<const double> Prepared::excerpt(const Excerpt& e) const {
  if (e.start < offset || e.end() > offset + static_cast<std::int64_t>(samples.size()) || e.length < 0) {
    throw std::logic_error("excerpt outside the prepared samples");
  }
  return std::span<const double>(samples).subspan(static_cast<std::size_t>(e.start - offset),
                                                  static_cast<std::size_t>(e.length));
}

Prepared prepare(Recording recording, const AnalysisSettings& settings) {
  const Resampler resampler(recording.fs, kAnalysisRate);
  Prepared p;
  p.map.original_fs = recording.fs;
  p.total = resampler.output_length(recording.total_samples);
  const Excerpt range = select(recording.path, recording.duration_s(), p.total, settings);
  p.offset = range.start;
  if (resampler.identity()) {
    // Already at 200 Hz: the samples asked for are kept in place.
    auto& x = recording.samples;
    const auto from = range.start - recording.first_sample, to = range.end() - recording.first_sample;
    if (from < 0 || to > static_cast<std::int64_t>(x.size())) throw std::logic_error("excerpt outside the samples read");
    x.erase(x.begin() + to, x.end());
    x.erase(x.begin(), x.begin() + from);
    p.samples = std::move(x);
  } else {
    p.samples.resize(static_cast<std::size_t>(range.length));
    resampler.run(recording.samples, recording.first_sample, recording.total_samples, range.start, p.samples);
  }
  recording.samples = {};  // the original-rate samples are not needed any more
  p.recording = std::move(recording);
  return p;
}

Excerpt choose_excerpt(const Prepared& p, const AnalysisSettings& s, RunKind kind) {
  const std::string& where = p.recording.path;
  Excerpt e = select(where, p.recording.duration_s(), p.total, s);
  const std::int64_t minimum = kind == RunKind::Hrv ? kHrvMinSamples : kQrsMinSamples;
  if (e.length < minimum) {
    const std::string what = kind == RunKind::Hrv ? "HRV needs at least 3 minutes" : "R-peak detection needs at least 15 s";
    throw InputError(where, "recording too short: " + clock_text(e.duration_s()) +
                                (e.start > 0 || s.duration_s ? " in the chosen excerpt" : "") + ", " + what);
  }
  if (kind == RunKind::Hrv && s.short_hrv && e.length > kHrvMaxSamples) {
    e.length = kHrvMaxSamples;
    e.capped = true;
  }
  if (e.length > INT32_MAX) throw InputError(where, "recording too long for one analysis; choose an excerpt with --duration");
  return e;
}

std::vector<BeatRecord> beat_records(const Prepared& p, const QrsResult& q) {
  std::vector<BeatRecord> out;
  out.reserve(q.r_peaks.size());
  for (std::size_t i = 0; i < q.r_peaks.size(); ++i) {
    const auto s = q.r_peaks[i];
    out.push_back({s, p.map.to_original(s), static_cast<double>(s) / kAnalysisRate,
                   i < q.labels.size() ? label_name(q.labels[i]) : ""});
  }
  return out;
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
