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
  // DEBUG measures of a second-pass beat
  double width = 0, likeness = 0, amplitude = 0, slope = 0, rr = 0;
};

// The detector's curves, all of the same length.
struct Curves {
  std::span<const double> ecg;        // centred
  std::span<const double> feature;    // energy envelope
  std::span<const double> threshold;  // adaptive threshold
  double fs;
};

// Constants of the second pass (times in seconds, the rest as fractions of
// the median over the nearest detector beats). Defaults are the tuned values.
struct Tuning {
  double neighbours = 16;          // detector beats a local median is taken over
  double coverMargin = 0.05;       // a region holds a beat within this of its ends
  double refractory = 0.2;         // no two beats closer than this
  double minAmplitude = 0.3;       // peak-to-peak in +-50 ms
  double minSlope = 0.2;           // steepest central difference in +-50 ms
  double tWaveZone = 0.45;         // the T wave of a beat lies within this after it ...
  double tWaveZoneRR = 0.6;        // ... or this fraction of the running RR, whichever is smaller
  double tWaveSlope = 0.5;         // in that zone: steeper than this
  double tWaveAmplitude = 0.6;     // ... and larger than this
  double runSimilarity = 0.8;      // ... or correlate this well with the previous beat
  double strictAmplitude = 0.5;    // outside RR gaps: amplitude and ...
  double strictSlope = 0.3;        // ... steepness at least these, and standing out by
  double strictStandOut = 0.15;    // ... this
  double surround = 0.25;          // a complex stands out within this of it: ...
  double standOut = 0.3;           // ... nothing else there is steeper than this fraction
  double gapRatio = 1.6;           // an RR gap is longer than this times the running RR
  double gapThreshold = 0.25;      // fraction of the threshold searched in a gap
  double wideRatio = 1.25;         // wide: width above this times the median width ...
  double unlikeCorrelation = 0.4;  // ... or correlation with the average beat below this
  double prematureRatio = 0.85;    // premature: RR before below this times the running RR
};

// The detector's beats as detectWaves returns them: the positive entries
// of the detector's output, ascending, without duplicates (0-based here).
std::vector<int64_t> detector_beats(std::span<const double> rpeaks);

// Candidate regions of the envelope against the threshold, as the
// detector cuts them (0-based, inclusive).
struct Region {
  int64_t start;
  int64_t end;
};
std::vector<Region> candidate_regions(std::span<const double> feature,
                                      std::span<const double> threshold);

// The detector's beats labelled Normal, merged with the beats of the second
// pass, ascending.
std::vector<Beat> second_pass(const Curves& curves, std::span<const int64_t> normal,
                              const Tuning& tuning = {});

// Runs the detector on a copy of `samples` and the second pass on its
// curves. Empty for an unusable rate or a recording too short to analyse.
std::vector<Beat> labelled_beats(std::span<const double> samples, double fs,
                                 const Tuning& tuning = {});

}  // namespace kelo::beats
