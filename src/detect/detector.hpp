// The offline QRS detector, stage by stage:
//   1 centring            5 energy envelope           9 provisional peaks
//   2 local spread        6 threshold                10 keeping placed regions
//   3 slope               7 candidate regions        11 beat template
//   4 range product       8 pairing of the regions   12 correlation pass
//                                                    13 search-back
// Stages 1 to 6 live in conditioning.cpp, 7 and 8 in regions.cpp, 9 to 13
// (with the refinement of every accepted beat) in beat_decision.cpp.
//
// Every stage gives the bits of the straightforward routine (kept apart in
// src/reference/, which the tests compare with), but works in O(1) per
// sample and window where the plain routine works window by window:
// extremes by doubling parts, window sums and deviations one output per
// vector lane, correlations of consecutive positions side by side.
//
// Two ways lead to the candidate regions. The exported detector returns the
// threshold curve, so it computes the curve in full. detectWaves needs only
// the crossings: it brackets every threshold value between two cheap
// bounds and computes the exact value only where the feature falls between
// them (see regions.cpp).
//
// Conventions: positions are 1-based sample indices held as doubles, as in
// the detector's output; spans and vectors are indexed from 0, so position
// p is element p - 1.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "runtime/simd/isa.hpp"

namespace kelo::detect {

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

// Stage 1: out[i] = x[i] - median(x); out may be x itself. scratch (at
// least x.size() elements, not overlapping x) takes the median's copy.
void centre(std::span<const double> x, std::span<double> out, std::span<double> scratch);

// Edge hold: elements 1 .. h take element 1 + h, then elements n - h + 1 .. n
// take element n - h. Nothing happens for h < 1 or fewer than h + 1
// elements.
void edge_hold(std::span<double> x, int64_t h);

// Where the edge hold of half-width h over n elements takes element k from
// (k itself outside the held ends).
std::size_t edge_hold_source(std::size_t k, std::size_t n, int64_t h);

// Stage 2: sliding standard deviation of half-width h, edge-held, into out
// (n elements).
void local_spread(std::span<const double> ecg, int64_t h, std::span<double> out,
                  const simd::Kernels& kernels);

// Stage 2 at one position: the held standard deviation of element k.
double local_spread_at(std::span<const double> ecg, int64_t h, std::size_t k);

// Stages 3 to 5: the energy envelope qrsFeature (n elements), computed
// block by block so that the slope, the ranges and their product never
// exist in full.
void qrs_feature(std::span<const double> ecg, const Widths& w, std::span<double> feature,
                 const simd::Kernels& kernels);

// The threshold's hold of fs samples at both ends. The index arithmetic
// takes the integer part, which matters only for a non-integral rate:
// elements 1 .. floor(fs) take element floor(1 + fs); then the elements at
// positions floor(1 + (n - fs) + j), j = 0 .. floor(fs) - 1, take element
// floor(n - fs) as it stands after the first hold.
struct ThresholdHold {
  std::size_t headCount = 0;   // elements [0, headCount) ...
  std::size_t headSource = 0;  // ... take this one
  std::size_t tailBegin = 0;   // elements [tailBegin, tailEnd) ...
  std::size_t tailEnd = 0;
  std::size_t tailSource = 0;  // ... take this one (already resolved)
  std::size_t source(std::size_t k) const {
    if (k >= tailBegin && k < tailEnd) return tailSource;
    if (k < headCount) return headSource;
    return k;
  }
};
ThresholdHold threshold_hold(std::size_t n, double fs);

// Stage 6 in full: the smoothed, halved envelope, held over fs samples,
// plus 4 * localSpread^3, into out (n elements).
void threshold_curve(std::span<const double> qrsFeature, std::span<const double> localSpread,
                     double fs, std::span<double> out, const simd::Kernels& kernels);

// Stage 6 at one position, from the envelope and the ECG.
double threshold_at(std::span<const double> qrsFeature, std::span<const double> ecg,
                    const Widths& w, double fs, std::size_t k);

// Candidate QRS regions, paired by position.
struct Regions {
  std::vector<double> start;  // last sample at or below threshold before a crossing
  std::vector<double> end;    // last sample above threshold
  std::size_t size() const { return start.size(); }
};

// Stages 7 and 8 from the two curves: crossings of the threshold, the four
// fixes at the ends of the recording, and the pairing (surplus entries of
// the longer list are dropped).
Regions candidate_regions(std::span<const double> qrsFeature, std::span<const double> qrsThreshold);

// How often the bracketing of regions_without_threshold had to compute a
// threshold value exactly (for tests and benchmarks).
struct BracketStats {
  std::size_t exact = 0;
};

// Prefix sums of the finite values among x[0 .. count) (or of their
// rounded squares): prefix[j] the sum of those before j (count + 1
// entries), with a bound on the rounding error of the difference of any two
// prefixes (each of the count additions errs by at most u times the largest
// partial sum). When some value is NaN or infinite, nonFinite[j] counts
// those before j (else nonFinite is left alone). Feeds the kernels'
// mean_bounds and spread_bounds.
struct PrefixSums {
  double error;
  bool allFinite;
};
PrefixSums prefix_sums(const double* x, std::size_t count, bool squares, double* prefix,
                       uint32_t* nonFinite);

// Stages 7 and 8 without the threshold curve: the same regions as
// candidate_regions(qrsFeature, threshold_curve(...)), from the centred ECG
// and the envelope.
Regions regions_without_threshold(std::span<const double> ecg, std::span<const double> qrsFeature,
                                  const Widths& w, double fs, const simd::Kernels& kernels,
                                  BracketStats* stats = nullptr);

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

// The template with what every correlation against it shares: its values
// minus their mean and its standard deviation.
class TemplateCorrelator {
 public:
  TemplateCorrelator(std::span<const double> beatTemplate, const simd::Kernels& kernels);
  // out[j] = correlation of the template with ECG(first + j - hw ..
  // first + j + hw), first a 1-based position; every window must fit.
  void scan(std::span<const double> ecg, double first, std::span<double> out) const;
  std::size_t width() const { return template_.size(); }

 private:
  std::vector<double> template_;
  std::vector<double> centred_;
  double templateStd_ = 0.0;
  const simd::Kernels* kernels_;
};

// Correlation coefficients of the template against the ECG at successive
// positions: the coefficients the peak search looks at, or none when a
// position of the scan did not fit (outOfRange).
struct CorrelationScan {
  std::vector<double> row;
  bool outOfRange = false;
};

// Stage 12 scan of one region: positions start .. end, each needing
// q - hw > 0 and q + hw < n; the peak search looks at the first end - start
// coefficients only.
CorrelationScan scan_region(std::span<const double> ecg, const TemplateCorrelator& t, double start,
                            double end);

// Stage 13 scan around the middle of a long interval: positions
// mid - hw .. mid + hw, each needing q - hw > 0 and q + hw <= n.
CorrelationScan scan_middle(std::span<const double> ecg, const TemplateCorrelator& t, double mid);

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
void correlation_pass(std::span<const double> ecg, const TemplateCorrelator& t,
                      const Regions& regions, BeatList& beats);

// Stage 13 pieces: the positive entries of the output in slot order; the
// 1-based indices j with RR(j + 1) > 1.8 * RR(j); the middle of gap j.
std::vector<double> accepted_peaks(std::span<const double> rpeaks);
std::vector<double> gap_indices(std::span<const double> acceptedPeaks);
double gap_middle(std::span<const double> acceptedPeaks, double j);

// Threshold value at a 0-based index, for the search-back.
using ThresholdAt = std::function<double(std::size_t)>;

// Stage 13: searches the middle of each long interval for a missed beat.
void search_back(std::span<const double> ecg, const TemplateCorrelator& t,
                 std::span<const double> qrsFeature, const ThresholdAt& qrsThreshold,
                 BeatList& beats);

// Stages 9 to 13.
std::vector<double> decide_beats(std::span<const double> ecg, Regions regions,
                                 std::span<const double> qrsFeature,
                                 const ThresholdAt& qrsThreshold, const Widths& w,
                                 const simd::Kernels& kernels);

// ---- the whole detector ---------------------------------------------------------

struct Detection {
  std::vector<double> rpeaks;     // 2 * nR slots (empty when nothing ran)
  std::vector<double> feature;    // qrsFeature, n elements
  std::vector<double> threshold;  // qrsThreshold, n elements
};

// Centres ecg in place and runs every stage, the threshold curve in full.
// When fits_edge_holds fails, returns no slots and n zeros for the curves.
Detection analyze(std::span<double> ecg, double fs, simd::Isa isa = simd::best_isa());

// The same output slots, without the threshold curve and without touching
// ecg: what detectWaves needs. Peak memory: two doubles per sample.
std::vector<double> detect_rpeaks(std::span<const double> ecg, double fs,
                                  simd::Isa isa = simd::best_isa());

}  // namespace kelo::detect
