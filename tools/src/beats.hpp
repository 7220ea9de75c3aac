// Every beat with its label (the library's kelo_detectBeats), the NN
// interval series that HRV uses when all beats are analysed, and the
// reference beat classes of the validation.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "beat_match.hpp"

namespace keloecg {

// Which beats the analyses use: every beat with its label, or only the
// normal-shaped beats of detectWaves (the Java bridge's beats).
enum class BeatsMode { All, Normal };
std::optional<BeatsMode> parse_beats_mode(std::string_view text);
const char* beats_mode_name(BeatsMode mode);

// Label values: those of kelo_detectBeats (1 normal, 2 wide, 3 premature,
// 4 unknown).
inline constexpr int kNormalBeat = 1;
std::string label_name(int label);  // "normal", "wide", "premature", "unknown"

struct LabelledBeats {
  std::vector<std::int64_t> samples;  // 0-based, 200 Hz, in the whole recording
  std::vector<int> labels;
};

// The beats of an excerpt at 200 Hz that starts at sample `start` of the
// whole recording. The normal ones are exactly the R peaks of detectWaves
// on the same excerpt.
LabelledBeats detect_labelled(std::span<const double> excerpt, std::int64_t start);

// The RR interval series of a run of beats, for HRV over NN intervals only.
// Interval i runs from beat i to beat i + 1; it is an NN interval when both
// of its beats are normal. As in the library's own HRV, the first interval
// does not enter the time-domain statistics (they need the interval before
// it too) and the first analysed interval not the periodogram.
struct NnSeries {
  std::vector<double> t;            // time of each interval (s), as calcRR gives it
  std::vector<double> rr;           // each interval (s)
  std::vector<char> annotations;    // 'N' when the beat that ends the interval is normal
  std::vector<double> nn_t, nn_rr;  // the NN intervals alone
  std::size_t intervals = 0;
  std::size_t excluded = 0;         // intervals that begin or end at a beat not labelled normal
};
NnSeries nn_series(std::span<const std::int64_t> samples, std::span<const int> labels);

// HRV over the NN intervals of a series: the 7 time-domain results (the
// library's calcHrvTime with the annotations) and the 6 frequency-domain
// ones (calcHrvFreq over the NN intervals). Status 0, or 4 when the
// frequency-domain results could not be formed. The library's HRV routines
// keep static state: the caller serialises calls.
struct NnHrv {
  std::array<double, 7> time{};
  std::array<double, 6> freq{};
  int status = 0;
};
NnHrv hrv_over_nn(const NnSeries& series);

// Reference beat classes, grouped as the AAMI classes of EC57: N (N L R e
// j), S (A a J S), V (V E), F (F), Q (/ f Q ?). Of the other beat symbols,
// B goes with N, n with S, r with V, anything else with Q.
inline constexpr std::array<const char*, 5> kBeatClasses = {"N", "S", "V", "F", "Q"};
std::size_t beat_class(std::string_view symbol);

struct ClassCounts {
  std::array<std::int64_t, 5> references{};
  std::array<std::int64_t, 5> matched{};

  double sensitivity(std::size_t c) const;  // NaN without references
  ClassCounts& operator+=(const ClassCounts& other);
};
ClassCounts class_counts(std::span<const std::string> symbols, const MatchResult& match);

}  // namespace keloecg
