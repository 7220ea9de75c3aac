// Beat-by-beat comparison of detected beats with reference annotations.
//
// A detection matches a reference beat when they lie at most 150 ms apart;
// each reference beat is matched to at most one detection and each
// detection to at most one reference beat. Among the pairings allowed by
// that rule the comparison takes one with the largest number of matches,
// and prefers the nearer detection when that does not cost a match.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace keloecg {

inline constexpr double kMatchWindowSeconds = 0.150;

struct MatchCounts {
  std::int64_t true_positives = 0;   // reference beats with a matching detection
  std::int64_t false_negatives = 0;  // reference beats without one
  std::int64_t false_positives = 0;  // detections without a reference beat

  std::int64_t references() const { return true_positives + false_negatives; }
  std::int64_t detections() const { return true_positives + false_positives; }
  // Sensitivity TP / (TP + FN), positive predictivity TP / (TP + FP) and
  // F1 = 2 TP / (2 TP + FP + FN), as fractions; NaN when undefined.
  double sensitivity() const;
  double positive_predictivity() const;
  double f1() const;

  MatchCounts& operator+=(const MatchCounts& other);
};

struct MatchResult {
  MatchCounts counts;
  // For each reference beat, the index of its detection or -1.
  std::vector<std::int64_t> reference_match;
  // For each detection, the index of its reference beat or -1.
  std::vector<std::int64_t> detection_match;
  double mean_abs_offset_s = 0.0;  // over the matched pairs (0 if none)
};

// Both lists hold times in seconds in ascending order.
MatchResult match_beats(std::span<const double> reference_s, std::span<const double> detected_s,
                        double window_s = kMatchWindowSeconds);

}  // namespace keloecg
