// The detector and detectWaves end to end on synthetic recordings with
// known beats: grades, the output contract, short recordings, low and
// non-integral rates, and bad input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "detect/detect_support.hpp"
#include "support/synthetic_ecg.hpp"

namespace {

using namespace kelo::test;
using I = std::vector<int32_t>;
using V = std::vector<double>;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

std::vector<int64_t> positions(const std::vector<Beat>& beats) {
  std::vector<int64_t> p;
  for (const Beat& b : beats) p.push_back(b.position);
  return p;
}

std::vector<Beat> alternating_beats() {  // RR 230, 110, 230, ... over 30 s
  std::vector<Beat> beats;
  for (int64_t p = 150, i = 0; p < 5850; p += (i++ % 2 ? 110 : 230)) beats.push_back({p});
  return beats;
}

I positive(const V& rpeaks) {
  I p;
  for (double v : rpeaks)
    if (v > 0) p.push_back(static_cast<int32_t>(v));
  return p;
}

TEST(DetectWaves, RegularRhythmEveryBeatFound) {
  const auto beats = regular_beats(150, 160, 37);
  const auto ecg = synthetic_ecg(beats, 6000, {.noiseMv = 0.03, .wanderMv = 0.1, .seed = 7});
  const WavesResult r = run_detect_waves(ecg, 200);
  EXPECT_EQ(r.rPeaks.size(), beats.size());
  EXPECT_EQ(matched(positions(beats), r.rPeaks, 2), beats.size());
  EXPECT_EQ(r.quality, 1);
  EXPECT_EQ(r.windowQualities, (I{0, 0, 0}));
}

TEST(DetectWaves, IrregularThenClipped) {
  const auto beats = alternating_beats();
  const WavesResult r = run_detect_waves(synthetic_ecg(beats, 6000, {.noiseMv = 0.02}), 200);
  EXPECT_EQ(matched(positions(beats), r.rPeaks, 2), beats.size());
  EXPECT_EQ(r.quality, 3);
  EXPECT_EQ(r.windowQualities, (I{6, 6, 6}));
  auto ecg = synthetic_ecg(beats, 6000, {.noiseMv = 0.02, .amplitude = 2.0});
  for (double& v : ecg) v = std::clamp(v, -1.5, 1.5);  // the amplifier saturates
  const WavesResult c = run_detect_waves(ecg, 200, 1.5);
  EXPECT_EQ(c.quality, 2);  // whatever the rhythm
  EXPECT_EQ(c.windowQualities, (I{5, 5, 5}));
  EXPECT_EQ(run_detect_waves(ecg, 200, 2.0).quality, 3);  // 1.5 <= 0.97 * 2
}

TEST(Detector, WeakBeatRecoveredBySearchBackAndAppended) {
  // A beat of 0.4 times the height stays below the threshold (envelope
  // about 0.11 against 0.16) but exceeds half of it.
  const auto beats = regular_beats(150, 160, 37);
  auto ecg = synthetic_ecg(beats, 6000, {.noiseMv = 0.01, .seed = 3});
  const auto weak = synthetic_ecg({{3350}}, 6000, {.amplitude = -0.6});
  for (std::size_t k = 0; k < ecg.size(); ++k) ecg[k] += weak[k];
  const I found = positive(run_detector(ecg, 200).rpeaks);
  ASSERT_EQ(found.size(), beats.size());
  EXPECT_EQ(found.back(), 3351);  // after every beat of the correlation pass
  EXPECT_TRUE(std::is_sorted(found.begin(), found.end() - 1));
  const I sorted = run_detect_waves(ecg, 200).rPeaks;
  EXPECT_TRUE(std::is_sorted(sorted.begin(), sorted.end()));
}

TEST(Detector, CentresItsInputButDetectWavesDoesNot) {
  const auto ecg = synthetic_ecg(regular_beats(150, 160, 10), 1800, {.noiseMv = 0.02});
  V sorted = ecg;
  std::sort(sorted.begin(), sorted.end());
  const double median = (sorted[899] + sorted[900]) / 2;
  const DetectorResult d = run_detector(ecg, 200);
  for (std::size_t k = 0; k < ecg.size(); ++k) ASSERT_EQ(d.centred[k], ecg[k] - median);
  kelo::EmxReal x = column(ecg);
  kelo::EmxInt32 peaks(2), windows(2);
  int32_t quality = 0;
  detectWaves(x, 10.0, 200, 10, peaks, &quality, windows);
  EXPECT_EQ(values(x), ecg);
  EXPECT_EQ(peaks->size[1], 1);  // an [n, 1] column

  // 2 * nR slots: accepted beats first, then zeros. The envelope is held
  // over 20 samples at both ends, the spread (part of the threshold) over 40.
  EXPECT_EQ(d.rpeaks.size() % 2, 0u);
  EXPECT_EQ(positive(d.rpeaks).size(), 10u);
  EXPECT_TRUE(std::all_of(d.rpeaks.begin() + 10, d.rpeaks.end(), [](double v) { return v == 0; }));
  EXPECT_TRUE(d.feature[0] == d.feature[20] && d.feature[1799] == d.feature[1779]);
  EXPECT_EQ(d.threshold[0], d.threshold[39]);
}

TEST(ShortRecordings, TooShortForTheEdgeHoldsGiveNoBeats) {
  for (std::size_t n : {0u, 1u, 2u, 200u}) {
    const DetectorResult d = run_detector(V(n, 1.0), 200);
    EXPECT_TRUE(d.rpeaks.empty());
    EXPECT_TRUE(d.feature == V(n, 0.0) && d.threshold == V(n, 0.0) && d.centred == V(n, 0.0));
    const WavesResult r = run_detect_waves(V(n, 1.0), 200);
    EXPECT_TRUE(r.rPeaks.empty());
    EXPECT_EQ(r.quality, 1);
    EXPECT_EQ(r.windowQualities, I{3});
  }
  EXPECT_EQ(run_detector(synthetic_ecg({{30}, {120}, {170}}, 201), 200).feature.size(), 201u);
}

TEST(LowRates, HundredOneAndNonIntegralHertz) {
  // At 100 Hz the template half-width (8) is below the refinement's 10, so
  // the scans' range checks no longer keep the refinement inside the
  // recording; beats near the ends may be lost, nothing is read outside.
  const auto beats = regular_beats(12, 80, 37);
  const auto ecg = synthetic_ecg(beats, 2990, {.fs = 100.0, .noiseMv = 0.01});
  const WavesResult r = run_detect_waves(ecg, 100);
  EXPECT_GE(matched(positions(beats), r.rPeaks, 2), beats.size() - 2);
  EXPECT_EQ(matched(positions(beats), r.rPeaks, 2), r.rPeaks.size());
  // At 1 Hz (and below) every window is one sample: no correlation.
  for (double fs : {1.0, 0.5}) EXPECT_TRUE(positive(run_detector(ecg, fs).rpeaks).empty());
  for (std::size_t n : {0u, 1u, 2u}) EXPECT_TRUE(run_detector(V(n, 1.0), 1).rpeaks.empty());

  // 199.5 Hz: hold of 199 samples from element 200 at the head, and from
  // element floor(6000 - 199.5) into positions floor(5801.5 + j),
  // j = 0 .. 198, at the tail: position 6000 keeps its own value.
  const auto regular = regular_beats(150, 160, 37);
  const DetectorResult d = run_detector(synthetic_ecg(regular, 6000, {.noiseMv = 0.02}), 199.5);
  EXPECT_EQ(matched(positions(regular), positive(d.rpeaks), 2), regular.size());
  EXPECT_NE(d.threshold[5999], d.threshold[5998]);
}

TEST(BadInput, DegenerateAndNonFiniteRecordings) {
  for (const V& ecg : {V(4000, 0.0), V(4000, 3.5), V{1.0}}) {
    const DetectorResult d = run_detector(ecg, 200);
    EXPECT_TRUE(positive(d.rpeaks).empty());
    EXPECT_EQ(d.feature, V(ecg.size(), 0.0));
    EXPECT_EQ(run_detect_waves(ecg, 200).quality, 1);
  }
  const auto beats = regular_beats(150, 160, 37);
  auto ecg = synthetic_ecg(beats, 6000, {.noiseMv = 0.02, .seed = 9});
  ecg[3000] = kNaN;  // NaN median: every centred sample is NaN
  const WavesResult n = run_detect_waves(ecg, 200);
  EXPECT_TRUE(n.rPeaks.empty());
  EXPECT_EQ(n.quality, 1);  // NaN never counts as clipped
  ecg[3000] = -kInf;  // spoils the curves around it only; counts as clipped
  const WavesResult i = run_detect_waves(ecg, 200);
  EXPECT_EQ(i.quality, 2);
  EXPECT_EQ(i.windowQualities[1], 5);
  EXPECT_GE(matched(positions(beats), i.rPeaks, 2), beats.size() - 6);
}

TEST(BadInput, UnusableRatesAndNullPointers) {
  const auto ecg = synthetic_ecg(regular_beats(150, 160, 10), 1800);
  for (double fs : {0.0, -200.0, kNaN, kInf}) EXPECT_TRUE(run_detector(ecg, fs).rpeaks.empty());
  for (int32_t fs : {0, -200}) EXPECT_EQ(run_detect_waves(ecg, fs).windowQualities, I{3});
  kelo::EmxReal x = column(ecg), out(1);
  m_analyze_ecg_offline_r(nullptr, 200, out, out, out);
  m_analyze_ecg_offline_r(x, 200, nullptr, out, out);
  EXPECT_EQ(values(x), ecg);
  kelo::EmxInt32 peaks(2), windows(2);
  int32_t quality = -1;
  detectWaves(nullptr, 10, 200, 10, peaks, &quality, windows);
  detectWaves(x, 10, 200, 10, peaks, nullptr, windows);
  EXPECT_EQ(quality, -1);
}

}  // namespace
