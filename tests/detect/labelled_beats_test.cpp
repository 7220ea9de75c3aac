// kelo_detectBeats: the beats of detectWaves, bit for bit, plus what the
// second pass finds on generated rhythms (premature wide beats, runs of
// them, small beats the threshold misses, noise bursts), and bad input.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <thread>

#include "detect/detect_support.hpp"
#include "detect/labelled_beats.hpp"
#include "keloecgsolver/beats.h"
#include "support/synthetic_ecg.hpp"

namespace {

using namespace kelo::test;

struct Labelled {
  int32_t status = 0;
  I positions;  // 1-based
  I labels;
};

Labelled run_beats(const V& ecg, int32_t fs = 200) {
  kelo::EmxInt32 positions(2), labels(2);
  Labelled r;
  r.status = kelo_detectBeats(column(ecg), fs, positions, labels);
  r.positions = values(positions);
  r.labels = values(labels);
  return r;
}

I with_label(const Labelled& r, int32_t label) {
  I out;
  for (std::size_t i = 0; i < r.positions.size(); ++i)
    if (r.labels[i] == label) out.push_back(r.positions[i]);
  return out;
}

// The contract every result keeps: ascending positions, a label each, the
// normal-shaped beats exactly those of detectWaves, and no beat of the
// second pass within the refractory 200 ms of another beat.
void expect_contract(const V& ecg, const Labelled& r, int32_t fs = 200) {
  ASSERT_EQ(r.status, KELO_BEATS_OK);
  ASSERT_EQ(r.positions.size(), r.labels.size());
  EXPECT_TRUE(std::is_sorted(r.positions.begin(), r.positions.end(), std::less_equal<>()));
  EXPECT_EQ(with_label(r, KELO_BEAT_NORMAL), run_detect_waves(ecg, fs).rPeaks);
  const auto refractory = static_cast<int32_t>(std::floor(0.2 * fs));
  for (std::size_t i = 0; i < r.labels.size(); ++i) {
    EXPECT_NE(kelo_beatLabelName(r.labels[i]), nullptr);
    if (r.labels[i] == KELO_BEAT_NORMAL) continue;
    if (i > 0) {
      EXPECT_GE(r.positions[i] - r.positions[i - 1], refractory) << "beat " << i;
    }
    if (i + 1 < r.labels.size()) {
      EXPECT_GE(r.positions[i + 1] - r.positions[i], refractory) << "beat " << i;
    }
  }
}

// Sinus beats every `rr` samples; every `every`-th one is replaced by
// `run` ectopic beats of `shape`, the first `coupling` samples after its
// predecessor and the others at the same interval; the rhythm resumes
// after a compensatory pause. Sinus beats close the recording.
std::vector<Beat> rhythm(int64_t n, int64_t rr, int every, int64_t coupling, int run,
                         BeatShape shape = BeatShape::Ventricular) {
  std::vector<Beat> beats;
  int64_t p = rr;
  for (int i = 1; p < n - rr; ++i) {
    if (every > 0 && i % every == 0 && p < n - 5 * rr) {
      int64_t q = beats.back().position;
      for (int j = 0; j < run; ++j) beats.push_back({q += coupling, shape});
      p = q + rr + (rr - coupling);
      continue;
    }
    beats.push_back({p});
    p += rr;
  }
  return beats;
}

std::vector<int64_t> ectopic(const std::vector<Beat>& beats) {
  std::vector<int64_t> p;
  for (const Beat& b : beats)
    if (b.shape != BeatShape::Normal) p.push_back(b.position);
  return p;
}

TEST(LabelledBeats, PrematureWideBeatsAreFoundAndLabelledWide) {
  struct Case {
    const char* name;
    int every;
    int64_t coupling;
    int run;
    BeatShape shape;
  };
  const Case cases[] = {
      {"isolated, coupling 0.6 RR", 5, 96, 1, BeatShape::Ventricular},
      {"isolated, broad and small", 5, 96, 1, BeatShape::Wide},
      {"trigeminy", 3, 100, 1, BeatShape::Ventricular},
      {"couplets", 6, 90, 2, BeatShape::Ventricular},
      {"runs of eight at 0.45 s", 12, 90, 8, BeatShape::Ventricular},
      {"runs of six at 0.35 s, broad", 10, 70, 6, BeatShape::Wide},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const auto beats = rhythm(200 * 120, 160, c.every, c.coupling, c.run, c.shape);
    const V ecg = synthetic_ecg(beats, 200 * 120, {.noiseMv = 0.02, .wanderMv = 0.05});
    const Labelled r = run_beats(ecg);
    expect_contract(ecg, r);
    // Every beat is found once, within 150 ms, and nothing else; the
    // ectopic beats the second pass adds are labelled wide.
    const auto wide = ectopic(beats);
    EXPECT_EQ(matched(wide, r.positions, 30), wide.size());
    EXPECT_EQ(r.positions.size(), beats.size());
    EXPECT_EQ(with_label(r, KELO_BEAT_WIDE).size() + with_label(r, KELO_BEAT_NORMAL).size(), beats.size());
  }
}

TEST(LabelledBeats, SmallBeatsInLongGapsAreFound) {
  // A regular rhythm where every fifth beat is 40 % of the size: the
  // template pass cannot reach them, the gap search can.
  auto big = regular_beats(160, 160, 140);
  std::vector<Beat> small;
  for (std::size_t i = 4; i < big.size(); i += 5) small.push_back(big[i]);
  std::erase_if(big, [&](const Beat& b) { return (b.position / 160) % 5 == 0; });
  const int64_t n = 200 * 115;
  V ecg = synthetic_ecg(big, n, {.noiseMv = 0.01, .seed = 3});
  const V little = synthetic_ecg(small, n, {.amplitude = 0.4});
  for (std::size_t k = 0; k < ecg.size(); ++k) ecg[k] += little[k];
  const Labelled r = run_beats(ecg);
  expect_contract(ecg, r);
  std::vector<int64_t> smallAt;
  for (const Beat& b : small) smallAt.push_back(b.position);
  EXPECT_EQ(matched(smallAt, r.positions, 6), small.size());
  EXPECT_EQ(r.positions.size(), big.size() + small.size());
}

TEST(LabelledBeats, NoiseBurstsAddFewBeats) {
  // Two-second bursts of broadband noise as large as the R waves, every
  // 20 s, over a regular rhythm with premature wide beats.
  const auto beats = rhythm(200 * 120, 160, 7, 100, 1);
  V ecg = synthetic_ecg(beats, 200 * 120, {.noiseMv = 0.02});
  std::mt19937 rng(11);
  std::normal_distribution<double> noise(0.0, 0.4);
  for (int64_t burst = 200 * 10; burst + 400 < 200 * 120; burst += 200 * 20)
    for (int64_t k = burst; k < burst + 400; ++k) ecg[static_cast<std::size_t>(k)] += noise(rng);
  const Labelled r = run_beats(ecg);
  expect_contract(ecg, r);
  // More than a second away from the bursts every beat is found; inside,
  // at most one beat more per burst than there are beats.
  std::vector<int64_t> clean;
  for (const Beat& b : beats)
    if ((b.position - 200 * 9 + 200 * 20) % (200 * 20) > 800) clean.push_back(b.position);
  EXPECT_EQ(matched(clean, r.positions, 30), clean.size());
  EXPECT_LE(r.positions.size(), beats.size() + 6);
}

TEST(LabelledBeats, RangeProductsMatchThePlainFormBitForBit) {
  // Random signals, a constant, a ramp and a spike, from empty to longer
  // than any window, with windows from a single sample to wider than the
  // whole signal.
  std::mt19937 rng(7);
  std::normal_distribution<double> noise(0.0, 1.0);
  for (const int64_t half : {0, 1, 2, 5, 31}) {
    for (const std::size_t n : {0u, 1u, 2u, 3u, 4u, 7u, 40u, 500u}) {
      for (int shape = 0; shape < 4; ++shape) {
        V x(n);
        for (std::size_t i = 0; i < n; ++i) {
          x[i] = shape == 0 ? noise(rng) : shape == 1 ? 0.25 : shape == 2 ? 0.01 * static_cast<double>(i) : 0.0;
        }
        if (shape == 3 && n > 0) x[n / 2] = 3.0;
        SCOPED_TRACE(testing::Message() << "half " << half << " n " << n << " shape " << shape);
        const V fast = kelo::beats::range_products(x, half);
        const V plain = kelo::beats::range_products_plain(x, half);
        ASSERT_EQ(fast.size(), n);
        ASSERT_EQ(plain.size(), n);
        for (std::size_t i = 0; i < n; ++i)
          ASSERT_EQ(std::bit_cast<std::uint64_t>(fast[i]), std::bit_cast<std::uint64_t>(plain[i])) << i;
      }
    }
  }
}

TEST(LabelledBeats, RealRecordingsKeepDetectWavesBits) {
  // Three-minute excerpts of MIT-BIH records; the second pass adds beats
  // but never moves or drops one of detectWaves.
  for (const char* record : {"100", "119", "203", "208"}) {
    SCOPED_TRACE(record);
    const V ecg = load_samples(record);
    ASSERT_FALSE(ecg.empty());
    expect_contract(ecg, run_beats(ecg));
  }
}

TEST(LabelledBeats, TwoRunsAtOnceEqualOneAfterTheOther) {
  const V a = synthetic_ecg(rhythm(12000, 160, 4, 96, 1), 12000, {.noiseMv = 0.03, .seed = 1});
  const V b = synthetic_ecg(rhythm(12000, 150, 5, 90, 1), 12000, {.noiseMv = 0.03, .seed = 2});
  const Labelled seqA = run_beats(a), seqB = run_beats(b);
  Labelled parA, parB;
  std::thread ta([&] { parA = run_beats(a); });
  std::thread tb([&] { parB = run_beats(b); });
  ta.join();
  tb.join();
  EXPECT_EQ(parA.positions, seqA.positions);
  EXPECT_EQ(parA.labels, seqA.labels);
  EXPECT_EQ(parB.positions, seqB.positions);
  EXPECT_EQ(parB.labels, seqB.labels);
  EXPECT_GE(with_label(seqB, KELO_BEAT_WIDE).size(), 10u);
}

TEST(LabelledBeats, BadInputGivesAClearCodeAndEmptyOutputs) {
  const V ecg = synthetic_ecg(regular_beats(150, 160, 10), 1800);
  kelo::EmxInt32 positions(2), labels(2);
  const kelo::EmxReal x = column(ecg);
  EXPECT_EQ(kelo_detectBeats(nullptr, 200, positions, labels), KELO_BEATS_NULL_ARGUMENT);
  EXPECT_EQ(kelo_detectBeats(x, 200, nullptr, labels), KELO_BEATS_NULL_ARGUMENT);
  EXPECT_EQ(kelo_detectBeats(x, 200, positions, nullptr), KELO_BEATS_NULL_ARGUMENT);
  EXPECT_EQ(kelo_detectBeats(x, 0, positions, labels), KELO_BEATS_BAD_RATE);
  EXPECT_EQ(kelo_detectBeats(x, -200, positions, labels), KELO_BEATS_BAD_RATE);
  EXPECT_EQ(labels->size[0], 0);
  EXPECT_EQ(kelo_beatLabelName(0), nullptr);
  EXPECT_STREQ(kelo_beatLabelName(KELO_BEAT_WIDE), "wide");
  // Degenerate recordings: no crash, no read outside, the contract holds.
  const double inf = std::numeric_limits<double>::infinity();
  const V degenerate[] = {{}, {1.0}, V(150, 0.0), V(2000, 0.0), V(2000, kNaN), V(2000, inf), V(2000, 1e300)};
  for (const V& d : degenerate) expect_contract(d, run_beats(d));
  V spikes(4000, 0.0);
  for (std::size_t k = 0; k < spikes.size(); k += 37) spikes[k] = (k % 3 ? 1e6 : -1e6);
  expect_contract(spikes, run_beats(spikes));
  // Any positive rate, including ones far from 200 Hz.
  for (int32_t fs : {1, 7, 50, 1000}) expect_contract(ecg, run_beats(ecg, fs), fs);
}

}  // namespace
