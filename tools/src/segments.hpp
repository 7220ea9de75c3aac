// Detection of long excerpts in overlapping segments.
//
// detectWaves forms its beat template, its centring and its thresholds over
// the whole excerpt it is given, and it was designed for excerpts of 3 to 10
// minutes. Over hours of ECG whose beats differ from one stretch to the
// next, beats unlike the excerpt-wide template are lost: over the two hours
// of MIT-BIH records 100, 103, 113 and 119 played one after the other, one
// pass finds 7698 of the 8139 reference beats and misses 441 of the 444
// ventricular beats of record 119, which segments of 10 minutes find
// (8137). Over the 24 hours of all 48 records one after the other, one pass
// finds 102455 of 109494 beats, segments of 30 minutes 106275, of 10
// minutes 106722 (the 48 records detected one by one: 106758), with as few
// false detections (478). So an excerpt of two segments or more is
// detected in segments of 10 minutes, each seen with 30 s of its
// neighbours on both sides, and the beats of neighbouring segments are
// joined at each seam between two consecutive beats that both segments
// found, so that no beat is lost or counted twice there.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "analysis.hpp"

namespace keloecg {

struct DetectionSegment {
  Excerpt span;             // the samples the detector is given
  std::int64_t core_start;  // the part of the excerpt this segment answers for
  std::int64_t core_end;
};

struct SegmentPlan {
  std::int64_t segment = 0;  // core length in samples at 200 Hz (0: one pass)
  std::int64_t overlap = 0;  // samples seen beyond the core on each side
  std::vector<DetectionSegment> segments;
};

// Segments of `segment_s` seconds (0: the whole excerpt in one pass)
// overlapping by 30 s on each side. Core lengths and overlaps are whole
// numbers of quality windows, so that every window lies in one core; the
// last core takes the remainder (between one and two segment lengths). An
// excerpt shorter than two segments is detected in one pass.
SegmentPlan plan_segments(const Excerpt& excerpt, double segment_s, int window_s);

// How one seam was joined.
struct Seam {
  std::int64_t at = 0;  // the first sample of the later segment's core
  bool agreed = true;   // joined between two beats both segments found
};

// The beats (0-based sample numbers, ascending) of every segment of the
// plan, joined into one ascending list. At each seam both segments' beats
// within the overlap are compared: the list changes from the earlier to the
// later segment between the pair of consecutive beats, found by both, that
// lies nearest the seam. Without such a pair (the segments disagree on
// every beat there) each keeps its beats on its side of the seam, and a
// beat that only the other segment found across the seam is added unless
// a kept beat lies within 150 ms of it.
std::vector<std::int64_t> join_segments(const SegmentPlan& plan, const std::vector<std::vector<std::int64_t>>& beats,
                                        std::vector<Seam>& seams);

// The label of each beat of `joined` (a list join_segments made from
// `beats`): the one the segment whose core holds the beat gave it, or
// else a neighbouring segment that found it.
std::vector<int> joined_labels(const SegmentPlan& plan, const std::vector<std::vector<std::int64_t>>& beats,
                               const std::vector<std::vector<int>>& labels, std::span<const std::int64_t> joined);

// The grades detectWaves gives, formed over given beats: the excerpt grade
// (1 usable, 2 clipped: a sample beyond 0.97 * full_scale, 3 irregular: the
// standard deviation of the RR intervals above a quarter of their mean)
// and the grade of a single quality window (0, 3 fewer than two beats, 5,
// 6), with the library's arithmetic. `peaks` are positions within `x`
// (0-based). Used where beats found in segments are graded as a whole.
int excerpt_grade(std::span<const double> x, std::span<const std::int64_t> peaks, double full_scale);
int window_grade(std::span<const double> x, std::span<const std::int64_t> peaks, double full_scale);

}  // namespace keloecg
