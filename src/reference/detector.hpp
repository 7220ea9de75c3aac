// The straightforward form of the QRS detector and of detectWaves: every
// sliding window is taken window by window, the median by a full index
// sort, the smoother output by output. It is not part of the library: the
// tests and the benchmarks compile it to compare the library's fast
// routines with, bit for bit.
//
// The offline QRS detector, stage by stage:
//   1 centring            5 energy envelope           9 provisional peaks
//   2 local spread        6 threshold                10 keeping placed regions
//   3 slope               7 candidate regions        11 beat template
//   4 range product       8 pairing of the regions   12 correlation pass
//                                                    13 search-back
// Stages 1 to 8 (signal conditioning) live in conditioning.cpp, 9 to 13
// (beat decision, with the refinement of every accepted beat) in
// beat_decision.cpp.
//
// Conventions: positions are 1-based sample indices held as doubles, as in
// the detector's output; spans and vectors are indexed from 0, so position
// p is element p - 1. Sliding windows are taken window by window with the
// shared kernels on sub-spans, which is the same arithmetic as copying each
// window into a record first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "detect/peak_finders.hpp"

namespace kelo::ref {

// ---- kernels in their plain form ----------------------------------------------

// The local maximum with the largest weighted rise and fall (see the
// library's m_findbigpeak), with its extremes recorded in arrays first.
detect::Peak m_findbigpeak(std::span<const double> x);

// Median by a stable index sort of the whole vector: NaN when the vector is
// empty or holds a NaN; for even n the mean of the two middle values
// (a + (b - a) / 2 when both are finite and of one sign).
double median(std::span<const double> x);

// Moving average with truncated ends (odd span, the divisor the number of
// samples inside the window), each output summed on its own.
void smooth(std::span<const double> x, double span, std::span<double> y);

// ---- window sizes ------------------------------------------------------------

struct Widths {
  int64_t spreadHalfWidth;    // floor(0.2 fs): local spread
  int64_t featureHalfWidth;   // floor(0.028 fs): amplitude and slope ranges
  int64_t envelopeHalfWidth;  // floor(0.1 fs): energy envelope
  int64_t templateHalfWidth;  // floor(0.08 fs): beat template
  double smoothingSpan;       // 3 fs: threshold base
  double minRegionLength;     // 0.2 fs, compared as a double
};

// Precondition: fs finite and positive, with every floored width below the
// recording length (fits_edge_holds).
Widths widths_for(double fs);

// True when the detector can run: fs is a finite positive number and the
// recording holds at least fs + 1 samples whenever the threshold's edge hold
// (of fs samples, for fs >= 1) applies. Every other edge hold is shorter.
bool fits_edge_holds(std::size_t n, double fs);

// ---- signal conditioning -------------------------------------------------------

// Stage 1: subtracts the median of the recording from every sample.
void centre(std::span<double> ecg);

// Edge hold: elements 1 .. h take element 1 + h, then elements n - h + 1 .. n
// take element n - h. Nothing happens for h < 1 or fewer than h + 1
// elements.
void edge_hold(std::span<double> x, int64_t h);

// Stage 2: sliding standard deviation of half-width h, edge-held.
std::vector<double> local_spread(std::span<const double> ecg, int64_t h);

// Stage 3: central difference ecg(k + 1) - ecg(k - 1); the ends stay 0.
std::vector<double> slope(std::span<const double> ecg);

// Stage 4: (slopeRange(k) * ampRange(k)) * ampRange(k), the ranges being the
// sliding max - min of half-width h of the slope and of the ECG (0 within h
// of either end).
std::vector<double> range_product(std::span<const double> ecg, std::span<const double> slope,
                                  int64_t h);

// Stage 5: sliding maximum of half-width h of the product, the first and
// last h elements then edge-held.
std::vector<double> envelope(std::span<const double> product, int64_t h);

// Stage 6: the smoothed, halved envelope, edge-held over fs samples, plus
// 4 * localSpread^3.
std::vector<double> threshold_curve(std::span<const double> qrsFeature,
                                    std::span<const double> localSpread, double fs);

// Candidate QRS regions, paired by position.
struct Regions {
  std::vector<double> start;  // last sample at or below threshold before a crossing
  std::vector<double> end;    // last sample above threshold
  std::size_t size() const { return start.size(); }
};

// Stages 7 and 8: crossings of the threshold, the four fixes at the ends of
// the recording, and the pairing (surplus entries of the longer list are
// dropped, so both lists have nRegions entries).
Regions candidate_regions(std::span<const double> qrsFeature, std::span<const double> qrsThreshold);

// ---- beat decision ---------------------------------------------------------------

// Stage 9: lengthens each region shorter than minRegionLength (the new end
// is kept in regions) and places a provisional peak in it with
// m_findbigpeak; -Inf when the region has no qualifying local maximum.
std::vector<double> provisional_peaks(std::span<const double> ecg, Regions& regions,
                                      double minRegionLength);

// Stage 10: keeps the regions whose provisional peak is positive.
void keep_placed(Regions& regions, std::vector<double>& provisionalPeak);

// Stage 11: column-wise median of the mean-removed beats of half-width hw
// around the provisional peaks (a beat too near an end is a row of zeros).
std::vector<double> beat_template(std::span<const double> ecg,
                                  std::span<const double> provisionalPeak, int64_t hw);

// Correlation coefficients of the template against the ECG at successive
// positions. `row` holds every coefficient computed; the peak search uses
// only its first logicalLength entries.
struct CorrelationScan {
  std::vector<double> row;
  std::size_t logicalLength = 0;
  bool outOfRange = false;
};

// Stage 12 scan of one region: positions start .. end, each needing
// q - hw > 0 and q + hw < n; logical length end - start.
CorrelationScan scan_region(std::span<const double> ecg, std::span<const double> beatTemplate,
                            double start, double end, int64_t hw);

// Stage 13 scan around the middle of a long interval: positions
// mid - hw .. mid + hw, each needing q - hw > 0 and q + hw <= n.
CorrelationScan scan_middle(std::span<const double> ecg, std::span<const double> beatTemplate,
                            double mid, int64_t hw);

// Correlation a candidate at c must exceed in the correlation pass: 0.8
// when lastRR is not 0 and 0.65 * lastRR > c - lastSlot, else 0.6. lastSlot
// is the value of the last slot of the whole output.
double correlation_limit(double lastRR, double c, double lastSlot);

// Refined position r + c - 11 of a candidate c (an integral position), r
// being the highest interior local maximum of ECG(c - 10 .. c + 10); -Inf
// when that window has none. Empty when the window does not fit inside the
// recording.
std::optional<double> refine(std::span<const double> ecg, double c);

// The output being filled: 2 * nR slots, beatCount the 1-based next free
// slot, lastRR the last interval accepted by the correlation pass.
struct BeatList {
  std::vector<double> rpeaks;
  std::size_t beatCount = 1;
  double lastRR = 0.0;
  explicit BeatList(std::size_t slots) : rpeaks(slots, 0.0) {}
  bool full() const { return beatCount > rpeaks.size(); }
};

// Stage 12: one beat at most per region, in region order.
void correlation_pass(std::span<const double> ecg, std::span<const double> beatTemplate,
                      const Regions& regions, int64_t hw, BeatList& beats);

// Stage 13 pieces: the positive entries of the output in slot order; the
// 1-based indices j with RR(j + 1) > 1.8 * RR(j); the middle of gap j.
std::vector<double> accepted_peaks(std::span<const double> rpeaks);
std::vector<double> gap_indices(std::span<const double> acceptedPeaks);
double gap_middle(std::span<const double> acceptedPeaks, double j);

// Stage 13: searches the middle of each long interval for a missed beat.
void search_back(std::span<const double> ecg, std::span<const double> beatTemplate,
                 std::span<const double> qrsFeature, std::span<const double> qrsThreshold,
                 int64_t hw, BeatList& beats);

// ---- the whole detector ---------------------------------------------------------

struct Detection {
  std::vector<double> rpeaks;     // 2 * nR slots (empty when nothing ran)
  std::vector<double> feature;    // qrsFeature, n elements
  std::vector<double> threshold;  // qrsThreshold, n elements
};

// Centres ecg in place and runs every stage. When fits_edge_holds fails,
// returns no slots and n zeros for the two curves.
Detection analyze(std::span<double> ecg, double fs);

// ---- detectWaves -------------------------------------------------------------------

struct Waves {
  std::vector<int32_t> rPeaks;  // 1-based, ascending
  int32_t quality = 0;
  std::vector<int32_t> windowQualities;
};

// detectWaves on a plain vector: the detector on a copy, the positive
// entries made unique, the excerpt grade and the window grades.
Waves detect_waves(std::span<const double> ecg, double fullScale, int32_t fs, int32_t windowSeconds);

}  // namespace kelo::ref
