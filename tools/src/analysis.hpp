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
  // Every beat with its label, or the normal-shaped beats of detectWaves
  // alone (see beats.hpp).
  BeatsMode beats = BeatsMode::All;
  // Validation: reference beats and detections before this time (s) are
  // not scored (the detector still sees the whole excerpt).
  double score_from_s = 0.0;
};

// The recording at the analysis rate.
struct Prepared {
  Recording recording;           // original rate; its samples are kept for the report
  std::vector<double> samples;   // 200 Hz, the whole recording
  RateMap map;

  bool resampled() const { return recording.fs != kAnalysisRate; }
};

Prepared prepare(Recording recording);

// A stretch of the 200 Hz recording.
struct Excerpt {
  std::int64_t start = 0;   // first sample (0-based, 200 Hz)
  std::int64_t length = 0;  // samples
  bool capped = false;      // shortened to the HRV limit of 10 minutes

  double start_s() const { return static_cast<double>(start) / kAnalysisRate; }
  double duration_s() const { return static_cast<double>(length) / kAnalysisRate; }
  std::int64_t end() const { return start + length; }
};

enum class RunKind { Qrs, Hrv };

// Limits of the two runs, in samples at 200 Hz: 15 s for R-peak detection,
// 3 to 10 minutes for HRV (the bridge's limits).
inline constexpr std::int64_t kQrsMinSamples = kelo::rules::kQrsMinSamples;
inline constexpr std::int64_t kHrvMinSamples = kelo::rules::kHrvMinSamples;
inline constexpr std::int64_t kHrvMaxSamples = kelo::rules::kMaxSamples;

// The excerpt selected by --start and --duration. Throws InputError naming
// the recording when it starts beyond the end or is too short for the run;
// an HRV excerpt longer than 10 minutes is cut to its first 10 minutes.
Excerpt choose_excerpt(const Prepared& prepared, const AnalysisSettings& settings, RunKind kind);

// Result statuses are the bridge's KELO_STATUS_* codes (keloecgsolver/grades.h).
std::string status_text(int status);
std::string excerpt_grade_text(int grade);  // 1 usable, 2 clipped, 3 irregular
std::string window_grade_text(int grade);   // 0 usable, 3 too few beats, 5 clipped, 6 irregular

struct QrsResult {
  Excerpt excerpt;
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

struct HrvResult {
  QrsResult qrs;
  int status = KELO_STATUS_SUCCESS;
  bool computed = false;
  bool spectrum = false;     // the frequency-domain results were formed
  std::string not_computed;  // why the statistics were not computed
  std::array<double, 7> time{};  // kTimeFields, 0 when not computed
  std::array<double, 6> freq{};  // kFreqFields, 0 when not computed
  Periodogram periodogram;       // filled on request
  // With all beats: the RR intervals, and those left out because a beat at
  // either end is not labelled normal.
  std::optional<std::size_t> intervals, excluded_intervals;
};

// The HRV run on the R peaks of `qrs` (detected over the HRV excerpt).
// Runs on several threads at once do not interfere.
HrvResult run_hrv(QrsResult qrs, bool with_periodogram);

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
