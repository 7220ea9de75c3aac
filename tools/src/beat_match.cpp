#include "beat_match.hpp"

#include <cmath>
#include <limits>

namespace keloecg {

namespace {

double ratio(std::int64_t num, std::int64_t den) {
  return den == 0 ? std::numeric_limits<double>::quiet_NaN() : static_cast<double>(num) / static_cast<double>(den);
}

}  // namespace

double MatchCounts::sensitivity() const { return ratio(true_positives, true_positives + false_negatives); }
double MatchCounts::positive_predictivity() const { return ratio(true_positives, true_positives + false_positives); }
double MatchCounts::f1() const {
  return ratio(2 * true_positives, 2 * true_positives + false_positives + false_negatives);
}

MatchCounts& MatchCounts::operator+=(const MatchCounts& o) {
  true_positives += o.true_positives;
  false_negatives += o.false_negatives;
  false_positives += o.false_positives;
  return *this;
}

// References are taken in time order. The candidates of reference i are
// the unmatched detections within the window. A candidate earlier than
// the window of reference i + 1 can serve no later reference, so taking it
// never costs a match: the nearest such candidate is taken. When every
// candidate could also serve a later reference, the earliest is taken: the
// later ones stay available to later references, which maximises the
// number of matches (the classic greedy argument for equal windows).
MatchResult match_beats(std::span<const double> ref, std::span<const double> det, double window_s) {
  // Times come from sample numbers at different rates: a pair exactly at
  // the window's edge must not be lost to rounding.
  const double window = window_s + 1e-9;
  MatchResult r;
  r.reference_match.assign(ref.size(), -1);
  r.detection_match.assign(det.size(), -1);
  std::size_t first = 0;  // no detection before `first` is still a candidate
  double offset_sum = 0.0;
  for (std::size_t i = 0; i < ref.size(); ++i) {
    while (first < det.size() && (det[first] < ref[i] - window || r.detection_match[first] >= 0)) ++first;
    const double next_window_start =
        i + 1 < ref.size() ? ref[i + 1] - window : std::numeric_limits<double>::infinity();
    std::int64_t chosen = -1;
    std::int64_t earliest = -1;
    for (std::size_t j = first; j < det.size() && det[j] <= ref[i] + window; ++j) {
      if (r.detection_match[j] >= 0) continue;
      if (earliest < 0) earliest = static_cast<std::int64_t>(j);
      if (det[j] < next_window_start &&
          (chosen < 0 || std::abs(det[j] - ref[i]) < std::abs(det[static_cast<std::size_t>(chosen)] - ref[i]))) {
        chosen = static_cast<std::int64_t>(j);
      }
    }
    if (chosen < 0) chosen = earliest;
    if (chosen < 0) continue;
    r.reference_match[i] = chosen;
    r.detection_match[static_cast<std::size_t>(chosen)] = static_cast<std::int64_t>(i);
    offset_sum += std::abs(det[static_cast<std::size_t>(chosen)] - ref[i]);
    ++r.counts.true_positives;
  }
  r.counts.false_negatives = static_cast<std::int64_t>(ref.size()) - r.counts.true_positives;
  r.counts.false_positives = static_cast<std::int64_t>(det.size()) - r.counts.true_positives;
  if (r.counts.true_positives > 0) r.mean_abs_offset_s = offset_sum / static_cast<double>(r.counts.true_positives);
  return r;
}

}  // namespace keloecg
