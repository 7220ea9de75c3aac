// Every beat with its label: the NN intervals of HRV against a stretch of
// record 208 counted by hand, HRV over an all-normal series equal to the
// library's calcHrv, and the reference beat classes of the validation.
#include "beats.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <fstream>
#include <numeric>

#include "keloecgsolver/keloecgsolver.h"

namespace {

using namespace keloecg;

std::vector<double> record_208() {  // the first 3 minutes, 200 Hz, mV
  std::ifstream in(std::string(KELO_DETECT_DATA_DIR) + "/208.f32", std::ios::binary);
  std::vector<double> x;
  float v;
  while (in.read(reinterpret_cast<char*>(&v), sizeof v)) x.push_back(v);
  return x;
}

TEST(Beats, NnIntervalsOf208AgainstAHandCount) {
  const std::vector<double> ecg = record_208();
  ASSERT_EQ(ecg.size(), 36000u);
  const LabelledBeats all = detect_labelled(ecg, 0);
  // Samples 4000 to 6700 (20 to 33.5 s): 25 beats. By hand, from the ECG
  // and the reference annotations: the beats at 4617, 5059 and 5468 are
  // ventricular and labelled wide; everything else is labelled normal,
  // among them the fusion beat at 4193 and the ventricular beats at 5887
  // and 6291, which the template pass accepted.
  LabelledBeats stretch;
  for (std::size_t i = 0; i < all.samples.size(); ++i) {
    if (all.samples[i] < 4000 || all.samples[i] >= 6700) continue;
    stretch.samples.push_back(all.samples[i]);
    stretch.labels.push_back(all.labels[i]);
  }
  const std::vector<std::int64_t> expected = {4083, 4193, 4306, 4417, 4526, 4617, 4739, 4848, 4957,
                                              5059, 5164, 5262, 5361, 5468, 5575, 5684, 5790, 5887,
                                              5994, 6096, 6197, 6291, 6404, 6499, 6604};
  ASSERT_EQ(stretch.samples, expected);
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const bool wide = expected[i] == 4617 || expected[i] == 5059 || expected[i] == 5468;
    EXPECT_EQ(stretch.labels[i], wide ? 2 : kNormalBeat) << expected[i];
  }
  // 24 intervals; the 6 next to a wide beat are left out. The time domain
  // also leaves out the first one: 17 NN intervals, in samples:
  const std::vector<int> nn = {113, 111, 109, 109, 109, 98, 99, 109, 106, 97, 107, 102, 101, 94, 113, 95, 105};
  const NnSeries s = nn_series(stretch.samples, stretch.labels);
  EXPECT_EQ(s.intervals, 24u);
  EXPECT_EQ(s.excluded, 6u);
  ASSERT_EQ(s.nn_rr.size(), 18u);  // the periodogram's series keeps the first interval (110)
  EXPECT_EQ(s.nn_rr.front(), 110 / 200.0);
  const NnHrv h = hrv_over_nn(s);
  EXPECT_DOUBLE_EQ(h.time[KELO_HRV_NN_RR], 17.0 / 24.0);
  EXPECT_DOUBLE_EQ(h.time[KELO_HRV_AVNN], std::accumulate(nn.begin(), nn.end(), 0.0) / 17.0 / 200.0);
}

TEST(Beats, AllNormalSeriesGivesTheLibrarysHrv) {
  std::vector<std::int64_t> beats;
  for (std::int64_t p = 50, i = 0; p < 200 * 400; p += 150 + (i * 37) % 41, ++i) beats.push_back(p);
  const std::vector<int> labels(beats.size(), kNormalBeat);
  const NnHrv h = hrv_over_nn(nn_series(beats, labels));
  std::vector<std::int32_t> peaks(beats.begin(), beats.end());
  std::array<double, 7> time{};
  std::array<double, 6> freq{};
  std::int32_t status = -1;
  calcHrv(peaks.data(), static_cast<std::int32_t>(peaks.size() - 1), 200, time.data(), freq.data(), &status);
  EXPECT_EQ(h.status, status);
  for (std::size_t i = 0; i < time.size(); ++i) EXPECT_EQ(std::bit_cast<std::uint64_t>(h.time[i]), std::bit_cast<std::uint64_t>(time[i])) << i;
  for (std::size_t i = 0; i < freq.size(); ++i) EXPECT_EQ(std::bit_cast<std::uint64_t>(h.freq[i]), std::bit_cast<std::uint64_t>(freq[i])) << i;
  // Fewer than two beats: no interval, nothing formed.
  EXPECT_EQ(nn_series(std::vector<std::int64_t>{5}, std::vector<int>{kNormalBeat}).intervals, 0u);
  EXPECT_EQ(hrv_over_nn(NnSeries{}).status, 4);
}

TEST(Beats, ReferenceClassesAndTheirSensitivity) {
  const std::vector<std::pair<const char*, std::size_t>> table = {
      {"N", 0}, {"L", 0}, {"R", 0}, {"e", 0}, {"j", 0}, {"A", 1}, {"a", 1}, {"J", 1}, {"S", 1},
      {"V", 2}, {"E", 2}, {"F", 3}, {"/", 4}, {"f", 4}, {"Q", 4}, {"?", 4}};
  for (const auto& [symbol, c] : table) EXPECT_EQ(beat_class(symbol), c) << symbol;
  MatchResult m;
  m.reference_match = {0, -1, 2, -1, 3};
  const std::vector<std::string> symbols = {"N", "V", "V", "A", "/"};
  ClassCounts counts = class_counts(symbols, m);
  counts += counts;
  EXPECT_EQ(counts.references, (std::array<std::int64_t, 5>{2, 2, 4, 0, 2}));
  EXPECT_EQ(counts.sensitivity(2), 0.5);
  EXPECT_EQ(counts.sensitivity(1), 0.0);
  EXPECT_TRUE(std::isnan(counts.sensitivity(3)));
  EXPECT_EQ(parse_beats_mode("all"), BeatsMode::All);
  EXPECT_FALSE(parse_beats_mode("some"));
  EXPECT_EQ(label_name(4), "unknown");
}

}  // namespace
