// The analysis runs of keloecg, on the library's public C interface: the
// recording is brought to 200 Hz, an excerpt is chosen, detectWaves finds
// the R peaks and grades, calcHRvar gives the heart rate and calcHrv the
// HRV statistics. Statuses and grades are those of the library's Java
// bridge, so that results read the same whichever way they were obtained.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "annotations.hpp"
#include "beat_match.hpp"
#include "keloecgsolver/grades.h"
#include "beats.hpp"
#include "recording.hpp"
#include "resample.hpp"
#include "runtime/run_rules.hpp"

namespace keloecg {

struct AnalysisSettings {
  double start_s = 0.0;
  std::optional<double> duration_s;  // default: to the end (HRV: at most 10 minutes)
  std::optional<double> full_scale;  // overrides what the recording's format tells
  int window_s = 10;                 // length of a quality window
  // Excerpts of two segments or more are detected in segments of this
  // length (see segments.hpp); 0 detects every excerpt in one pass.
  double segment_s = 600.0;
  unsigned threads = 1;  // segments detected at once
  // HRV: the Java bridge's analysis of 3 to 10 minutes (a longer excerpt
  // is cut to its first 10 minutes) instead of the long-term one.
  bool short_hrv = false;
  // Every beat with its label, or the normal-shaped beats of detectWaves
  // alone (see beats.hpp).
  BeatsMode beats = BeatsMode::All;
  // Validation: reference beats and detections before this time (s) are
  // not scored (the detector still sees the whole excerpt).
  double score_from_s = 0.0;
};

// A stretch of the 200 Hz recording.
struct Excerpt {
  std::int64_t start = 0;   // first sample (0-based, 200 Hz)
  std::int64_t length = 0;  // samples
  bool capped = false;      // shortened to the HRV limit of 10 minutes

  double start_s() const { return static_cast<double>(start) / kAnalysisRate; }
  double duration_s() const { return static_cast<double>(length) / kAnalysisRate; }
  double end_s() const { return static_cast<double>(end()) / kAnalysisRate; }
  std::int64_t end() const { return start + length; }
};

// The part of a recording that an analysis with these settings reads: the
// excerpt and a second on each side (far more than the resampler reaches).
LoadOptions read_window(LoadOptions options, const AnalysisSettings& settings);

// The recording at the analysis rate: the stretch of it that the settings
// select (all of it by default), resampled to 200 Hz.
struct Prepared {
  Recording recording;          // as read; its samples are released once resampled
  std::vector<double> samples;  // samples offset .. offset + samples.size() - 1 of the recording at 200 Hz
  std::int64_t offset = 0;
  std::int64_t total = 0;       // samples of the whole recording at 200 Hz
  RateMap map;

  bool resampled() const { return recording.fs != kAnalysisRate; }
  // The samples of an excerpt (which must lie in the prepared stretch).
  std::span<const double> excerpt(const Excerpt& e) const;
};

// Resamples the stretch that `settings` selects. `recording` must hold it
// with the margin of read_window. Throws InputError when the stretch starts
// beyond the end of the recording.
Prepared prepare(Recording recording, const AnalysisSettings& settings);

enum class RunKind { Qrs, Hrv };

// Limits of the two runs, in samples at 200 Hz: 15 s for R-peak detection,
// 3 to 10 minutes for HRV (the bridge's limits).
inline constexpr std::int64_t kQrsMinSamples = kelo::rules::kQrsMinSamples;
inline constexpr std::int64_t kHrvMinSamples = kelo::rules::kHrvMinSamples;
inline constexpr std::int64_t kHrvMaxSamples = kelo::rules::kMaxSamples;

// The excerpt selected by --start and --duration. Throws InputError naming
// the recording when it starts beyond the end or is too short for the run;
// for the short HRV analysis an excerpt longer than 10 minutes is cut to
// its first 10 minutes.
Excerpt choose_excerpt(const Prepared& prepared, const AnalysisSettings& settings, RunKind kind);

// Result statuses are the bridge's KELO_STATUS_* codes (keloecgsolver/grades.h).
std::string status_text(int status);
std::string excerpt_grade_text(int grade);  // 1 usable, 2 clipped, 3 irregular
std::string window_grade_text(int grade);   // 0 usable, 3 too few beats, 5 clipped, 6 irregular

// How the R peaks of an excerpt were detected.
struct DetectionInfo {
  std::size_t segments = 1;  // 1: the whole excerpt in one pass
  double segment_s = 0.0;
  double overlap_s = 0.0;
  std::size_t seams_agreed = 0;  // joined between two beats both segments found
  std::size_t seams_other = 0;   // joined without such beats
};

struct QrsResult {
  Excerpt excerpt;
  DetectionInfo detection;
  int status = KELO_STATUS_SUCCESS;
  std::optional<double> heart_rate;     // bpm, when accepted (30..220)
  std::optional<double> rejected_rate;  // bpm, when computed but outside the band
  int excerpt_grade = 1;
  int window_s = 10;
  std::vector<int> window_grades;
  std::vector<std::int64_t> r_peaks;  // 0-based sample numbers at 200 Hz in the whole recording
  std::optional<double> full_scale;   // as used; none: clipping not tested
  // With all beats (beats == All), one label per R peak (kelo_detectBeats
  // values); with the normal-shaped beats of detectWaves alone, empty.
  BeatsMode beats = BeatsMode::Normal;
  std::vector<int> labels;
};

// One detected beat as the outputs list it. The label is empty while
// nothing is known about the beat (an annotation file then says N).
struct BeatRecord {
  std::int64_t sample = 0;           // 0-based, 200 Hz, in the whole recording
  std::int64_t sample_original = 0;  // at the recording's own rate
  double time_s = 0.0;
  std::string label;
};
std::vector<BeatRecord> beat_records(const Prepared& prepared, const QrsResult& qrs);

// Detection, grades and heart rate over the excerpt.
QrsResult run_qrs(const Prepared& prepared, const Excerpt& excerpt, const AnalysisSettings& settings);
// The same over samples at 200 Hz that the caller holds (only read), which
// start at sample `start` of the whole recording; full_scale: as used
// (none: clipping not tested).
QrsResult qrs_over(std::span<const double> samples, std::int64_t start, std::optional<double> full_scale,
                   const AnalysisSettings& settings);

inline constexpr std::array<const char*, 7> kTimeFields = {"nn_rr", "avnn", "sdnn", "sdann", "sdnnidx", "rmssd", "pnn50"};
inline constexpr std::array<const char*, 7> kTimeUnits = {"fraction", "s", "s", "s", "s", "s", "fraction"};
inline constexpr std::array<const char*, 6> kFreqFields = {"tot_pwr", "ulf_pwr", "vlf_pwr", "lf_pwr", "hf_pwr", "lf_hf"};
inline constexpr std::array<const char*, 6> kFreqUnits = {"s^2", "s^2", "s^2", "s^2", "s^2", "ratio"};

struct Periodogram {
  std::vector<double> frequency_hz;  // the lines kept (up to 0.4 Hz)
  std::vector<double> amplitude;     // band power = sum of amplitude^2 over its lines
};

// The HRV figures of one stretch of the excerpt: calcHrv over the R peaks
// that lie in it.
struct HrvFigures {
  Excerpt span;
  std::size_t beats = 0;             // R peaks in the span
  std::optional<double> heart_rate;  // bpm (calcHRvar), when in 30..220
  int status = KELO_STATUS_NO_USABLE_BEATS;       // 0, 3 (not computed), 4 (no spectrum); the whole excerpt also 5, 6
  bool computed = false;             // the time-domain results were formed
  bool spectrum = false;             // the frequency-domain results were formed
  std::string not_computed;          // why not
  std::array<double, 7> time{};      // kTimeFields as calcHrv gives them
  std::array<double, 6> freq{};      // kFreqFields
  // SDANN needs two 5-minute segments and the SDNN index one with two NN
  // intervals; calcHrv reports an SDANN it cannot form as 0.
  bool sdann_formed = false;
  bool sdnn_index_formed = false;
  // With all beats (HRV over NN intervals only): the RR intervals of the
  // span, and those left out because a beat at either end is not normal.
  std::optional<std::size_t> intervals, excluded_intervals;

  // The value of a figure when it was formed and is a number.
  std::optional<double> time_value(std::size_t i) const;
  std::optional<double> freq_value(std::size_t i) const;
  // ULF power (periods of 5 minutes and longer) means something only over
  // an hour or more.
  bool ulf_meaningful() const { return span.duration_s() >= 3600.0; }
};

struct HrvResult {
  QrsResult qrs;
  // Long-term: the whole excerpt, its 5-minute segments and its hours.
  // Short: the Java bridge's analysis of 3 to 10 minutes.
  bool long_term = false;
  HrvFigures whole;          // its status takes the excerpt grade into account, as the bridge does
  Periodogram periodogram;   // of the whole excerpt, on request
  std::vector<HrvFigures> segments;  // consecutive 5 minutes (a shorter tail is no segment)
  std::vector<Periodogram> segment_periodograms;  // on request
  // Mean of each frequency-domain figure over the segments that formed it.
  std::array<std::optional<double>, 6> segment_mean{};
  std::array<std::size_t, 6> segments_in_mean{};
  std::vector<HrvFigures> hours;  // consecutive hours; a tail of 5 minutes or more is a last, shorter one
};

// Minimum length of the long-term HRV analysis: longer excerpts get it, an
// excerpt of 3 to 10 minutes (or --short) gets the bridge's analysis.
inline constexpr std::int64_t kLongTermMinSamples = kHrvMaxSamples + 1;
inline constexpr std::int64_t kSegmentSamples = std::int64_t{300} * 200;  // 5 minutes
inline constexpr std::int64_t kHourSamples = std::int64_t{3600} * 200;

struct HrvOptions {
  bool long_term = false;
  bool periodograms = false;  // for the report
};

// The analysis an HRV excerpt gets: long-term beyond 10 minutes.
inline HrvOptions hrv_options(const Excerpt& hrv_excerpt, bool periodograms) {
  return {hrv_excerpt.length > kHrvMaxSamples, periodograms};
}

// The HRV run on the R peaks of `qrs`, over its whole excerpt.
// Runs on several threads at once do not interfere.
HrvResult run_hrv(QrsResult qrs, const HrvOptions& options);

// The HRV result of a run whose HRV was not computed at all (an excerpt
// too short for it), with the reason.
HrvResult hrv_not_computed(QrsResult qrs, const std::string& why);

// A second look at the detected beats, for the report: the library's beat
// classification (shape against the average beat) and its RR check (beats
// that an implausibly short interval marks as extra detections).
struct BeatReview {
  std::vector<int> classes;               // per R peak: 1 like the average beat, 0 not
  std::vector<std::size_t> rr_removed;    // indices of the R peaks the RR check removes
};

BeatReview review_beats(const Prepared& prepared, const QrsResult& qrs);

struct Validation {
  std::string record;
  std::string annotations;
  Excerpt excerpt;
  std::vector<double> reference_s;  // reference beats inside the excerpt
  std::vector<std::string> reference_symbols;
  std::vector<double> detected_s;
  MatchResult match;
  double score_from_s = 0.0;  // beats before this time were not scored
  ClassCounts classes;        // the reference beats by class, and how many were matched
};

// Compares the R peaks of `qrs` with the reference beats that lie inside
// its excerpt, from settings.score_from_s on.
Validation validate(const Prepared& prepared, const QrsResult& qrs, const ReferenceBeats& reference,
                    double score_from_s = 0.0);

}  // namespace keloecg
