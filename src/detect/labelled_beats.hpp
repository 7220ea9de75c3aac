// Every beat of a recording with a label: the beats of detectWaves
// (normal-shaped) and the beats that a second pass over the detector's own
// curves finds among what the template pass left out.
//
// The second pass works on the centred ECG, the energy envelope and the
// adaptive threshold that the detector returns, and on the detector's
// beats. It never moves or removes a detector beat; it only adds beats:
//   1. candidate regions (envelope above threshold) that hold no detector
//      beat, i.e. the regions whose correlation with the average beat was
//      too low: typically ventricular beats;
//   2. long RR gaps, searched again at a lower threshold: beats whose energy
//      stayed below the threshold (small beats after a large one, a run of
//      low-amplitude beats).
// Every candidate must keep a refractory distance from the beats around it
// and have the amplitude and the steepness of a QRS complex compared with
// the detector's beats; near the preceding beat, where its T wave lies, the
// candidate must in addition be steep and large (a T wave is neither).
//
// Positions are 0-based sample indices inside this unit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace kelo::beats {

// Values are those of the public KELO_BEAT_* constants.
enum class Label : int32_t {
  Normal = 1,     // a detectWaves beat: shaped like the average beat
  Wide = 2,       // unlike the average beat and wider than it
  Premature = 3,  // early, and not wide
  Unknown = 4,    // found by the second pass, nothing more known
};

struct Beat {
  int64_t index;  // 0-based sample
  Label label;
};

// The detector's curves, all of the same length.
struct Curves {
  std::span<const double> ecg;        // centred
  std::span<const double> feature;    // energy envelope
  std::span<const double> threshold;  // adaptive threshold
  double fs;
};

// Constants of the second pass: times in seconds, shape measures as
// fractions of their median over the nearest detector beats. The defaults
// are the values tuned on records 100 to 124 of the MIT-BIH Arrhythmia
// Database (docs/validation.md).
struct Tuning {
  double neighbours = 16;       // detector beats a local median is taken over
  double refractory = 0.2;      // no beat closer than this to another
  double searchThreshold = 0.25;  // candidates: envelope above this fraction of the threshold
  double minAmplitude = 0.3;    // peak-to-peak within +-50 ms at least this
  double minSlope = 0.2;        // steepest central difference within +-50 ms at least this
  double surround = 0.25;       // nothing within this of a candidate ...
  double standOut = 0.3;        // ... reaches this fraction of its range product
  double gapRatio = 1.6;        // a gap: detector beats this many running RRs apart
  double strictProduct = 0.8;   // outside a gap: range product at least this, and nothing
  double strictStandOut = 0.15; // ... in the whole interval reaching this fraction of it
  double tWaveZone = 0.45;      // the T wave of a beat lies within this after it ...
  double tWaveZoneRR = 0.6;     // ... or this fraction of the running RR if smaller; there
  double tWaveSlope = 0.5;      // ... a candidate is at least this steep
  double tWaveAmplitude = 0.6;  // ... and this large,
  double runSimilarity = 0.8;   // ... or correlates this well with a neighbouring beat
  double wideRatio = 1.25;      // wide: width above this ...
  double unlikeCorrelation = 0.4;  // ... or correlation with the average beat below this
  double prematureRatio = 0.85;    // premature: RR before below this times the running RR
};

// The detector's range product at every sample: the range of the central
// difference x(k+1) - x(k-1) times the square of the range of x, over
// k - half .. k + half. The first form slides the extremes (linear in the
// recording whatever the window); the plain form scans every window and
// is the reference the tests compare it with, bit for bit.
std::vector<double> range_products(std::span<const double> x, int64_t half);
std::vector<double> range_products_plain(std::span<const double> x, int64_t half);

// The detector's beats as detectWaves returns them: the positive entries
// of the detector's output, ascending, without duplicates (0-based here).
std::vector<int64_t> detector_beats(std::span<const double> rpeaks);

// The detector's beats labelled Normal, merged with the beats of the second
// pass, ascending.
std::vector<Beat> second_pass(const Curves& curves, std::span<const int64_t> normal,
                              const Tuning& tuning = {});

// Runs the detector on a copy of `samples` and the second pass on its
// curves. Empty for an unusable rate or a recording too short to analyse.
std::vector<Beat> labelled_beats(std::span<const double> samples, double fs,
                                 const Tuning& tuning = {});

}  // namespace kelo::beats
