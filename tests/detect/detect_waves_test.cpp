// The detector and detectWaves end to end on synthetic recordings with
// known beats: grades, the output contract, short recordings, low and
// non-integral rates, and bad input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "detect/detect_support.hpp"
#include "support/synthetic_ecg.hpp"

namespace {

using namespace kelo::test;

std::vector<int64_t> positions(const std::vector<Beat>& beats) {
  std::vector<int64_t> p;
  for (const Beat& b : beats) p.push_back(b.position);
  return p;
}

I positive(const V& rpeaks) {
  I p;
  for (double v : rpeaks)
    if (v > 0) p.push_back(static_cast<int32_t>(v));
  return p;
}

TEST(DetectWaves, EveryBeatFoundAndGraded) {
  const auto expect = [](const std::vector<Beat>& beats, const V& ecg, double fullScale, int32_t quality,
                         const I& windows) {
    SCOPED_TRACE(testing::Message() << "grade " << quality << " at full scale " << fullScale);
    const WavesResult r = run_detect_waves(ecg, 200, fullScale);
    EXPECT_EQ(r.rPeaks.size(), beats.size());
    EXPECT_EQ(matched(positions(beats), r.rPeaks, 2), beats.size());
    EXPECT_EQ(r.quality, quality);
    EXPECT_EQ(r.windowQualities, windows);
  };
  const auto regular = regular_beats(150, 160, 37);
  expect(regular, synthetic_ecg(regular, 6000, {.noiseMv = 0.03, .wanderMv = 0.1, .seed = 7}), 10, 1, {0, 0, 0});
  std::vector<Beat> beats;  // RR 230, 110, 230, ... over 30 s
  for (int64_t p = 150, i = 0; p < 5850; p += (i++ % 2 ? 110 : 230)) beats.push_back({p});
  expect(beats, synthetic_ecg(beats, 6000, {.noiseMv = 0.02}), 10, 3, {6, 6, 6});
  auto ecg = synthetic_ecg(beats, 6000, {.noiseMv = 0.02, .amplitude = 2.0});
  for (double& v : ecg) v = std::clamp(v, -1.5, 1.5);  // the amplifier saturates
  expect(beats, ecg, 1.5, 2, {5, 5, 5});  // clipped, whatever the rhythm
  expect(beats, ecg, 2.0, 3, {6, 6, 6});  // 1.5 <= 0.97 * 2
}

TEST(Detector, CentresItsInputButDetectWavesAndNullCallsDoNot) {
  const auto ecg = synthetic_ecg(regular_beats(150, 160, 10), 1800, {.noiseMv = 0.02});
  V sorted = ecg;
  std::sort(sorted.begin(), sorted.end());
  const DetectorResult d = run_detector(ecg, 200);
  for (std::size_t k = 0; k < ecg.size(); ++k)
    ASSERT_EQ(d.centred[k], ecg[k] - (sorted[899] + sorted[900]) / 2);
  // 2 * nR slots: the accepted beats first, then zeros.
  EXPECT_EQ(d.rpeaks.size() % 2, 0u);
  EXPECT_EQ(positive(d.rpeaks).size(), 10u);
  EXPECT_EQ(V(d.rpeaks.begin() + 10, d.rpeaks.end()), V(d.rpeaks.size() - 10, 0.0));
  kelo::EmxReal x = column(ecg), out(1);
  kelo::EmxInt32 peaks(2), windows(2);
  int32_t quality = -1;
  m_analyze_ecg_offline_r(nullptr, 200, out, out, out);
  m_analyze_ecg_offline_r(x, 200, nullptr, out, out);
  detectWaves(nullptr, 10, 200, 10, peaks, &quality, windows);
  detectWaves(x, 10, 200, 10, peaks, nullptr, windows);
  EXPECT_EQ(quality, -1);
  detectWaves(x, 10.0, 200, 10, peaks, &quality, windows);
  EXPECT_EQ(values(x), ecg);
  EXPECT_EQ(peaks->size[1], 1);  // an [n, 1] column
}

TEST(LowRates, HundredOneAndNonIntegralHertz) {
  // At 100 Hz the template half-width (8) is below the refinement's 10:
  // beats near the ends may be lost, nothing is read outside.
  const auto beats = regular_beats(12, 80, 37);
  const auto ecg = synthetic_ecg(beats, 2990, {.fs = 100.0, .noiseMv = 0.01});
  const WavesResult r = run_detect_waves(ecg, 100);
  EXPECT_GE(matched(positions(beats), r.rPeaks, 2), beats.size() - 2);
  EXPECT_EQ(matched(positions(beats), r.rPeaks, 2), r.rPeaks.size());
  // At 1 Hz (and below) every window is one sample: no correlation.
  for (double fs : {1.0, 0.5}) EXPECT_TRUE(positive(run_detector(ecg, fs).rpeaks).empty());
  for (std::size_t n : {0u, 1u, 2u}) EXPECT_TRUE(run_detector(V(n, 1.0), 1).rpeaks.empty());
  // 199.5 Hz: the tail hold writes positions floor(5801.5 + j), j = 0 .. 198,
  // from element floor(6000 - 199.5): position 6000 keeps its own value.
  const auto regular = regular_beats(150, 160, 37);
  const DetectorResult d = run_detector(synthetic_ecg(regular, 6000, {.noiseMv = 0.02}), 199.5);
  EXPECT_EQ(matched(positions(regular), positive(d.rpeaks), 2), regular.size());
  EXPECT_NE(d.threshold[5999], d.threshold[5998]);
}

TEST(BadInput, ShortFlatRecordingsAndUnusableRatesGiveNoBeats) {
  // Up to 200 samples the edge holds do not fit at 200 Hz: no slots at all.
  for (const V& ecg : {V{}, V{1.0}, V(2, 1.0), V(200, 1.0), V(4000, 0.0), V(4000, 3.5)}) {
    const DetectorResult d = run_detector(ecg, 200);
    const V zeros(ecg.size(), 0.0);
    EXPECT_TRUE(positive(d.rpeaks).empty() && (ecg.size() > 200 || d.rpeaks.empty())) << ecg.size();
    EXPECT_TRUE(d.feature == zeros && d.threshold == zeros && d.centred == zeros) << ecg.size();
    const WavesResult r = run_detect_waves(ecg, 200);
    EXPECT_TRUE(r.rPeaks.empty() && r.quality == 1) << ecg.size();
    EXPECT_EQ(r.windowQualities, I(std::max<std::size_t>(1, ecg.size() / 2000), 3)) << ecg.size();
  }
  // The shortest usable recording runs without reading outside; unusable rates.
  EXPECT_EQ(run_detector(synthetic_ecg({{30}, {120}, {170}}, 201), 200).feature.size(), 201u);
  const auto ecg = synthetic_ecg(regular_beats(150, 160, 10), 1800);
  for (double fs : {0.0, -200.0, kNaN, kInf}) EXPECT_TRUE(run_detector(ecg, fs).rpeaks.empty()) << fs;
  for (int32_t fs : {0, -200}) EXPECT_EQ(run_detect_waves(ecg, fs).windowQualities, I{3}) << fs;
}

TEST(BadInput, NonFiniteSamples) {
  const auto beats = regular_beats(150, 160, 37);
  auto ecg = synthetic_ecg(beats, 6000, {.noiseMv = 0.02, .seed = 9});
  ecg[3000] = kNaN;  // NaN median: every centred sample is NaN
  const WavesResult n = run_detect_waves(ecg, 200);
  EXPECT_TRUE(n.rPeaks.empty() && n.quality == 1);  // NaN never counts as clipped
  ecg[3000] = -kInf;  // spoils the curves around it only; counts as clipped
  const WavesResult i = run_detect_waves(ecg, 200);
  EXPECT_EQ(i.quality, 2);
  EXPECT_EQ(i.windowQualities[1], 5);
  EXPECT_GE(matched(positions(beats), i.rPeaks, 2), beats.size() - 6);
}

}  // namespace
