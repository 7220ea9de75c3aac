// Beat classification and the missed-beat search on synthetic ECG.
// Classification: odd shapes found, the template rebuilt, the shift search
// and its reach, beats too near the ends, flat and NaN signals, the three
// variants agreeing. Search: a deleted beat found and merged, where it is
// placed, the half-gap test, the merge that is not a full sort, the pass
// limit, the reference slope. Both: bad input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <random>
#include <set>
#include <vector>

#include "classify/refine_kernels.hpp"
#include "classify/template_correlation.hpp"
#include "keloecgsolver/classify.h"
#include "keloecgsolver/lifecycle.h"
#include "support/emx_builders.hpp"
#include "support/synthetic_ecg.hpp"

namespace {

using kelo::test::Beat;
using kelo::test::BeatShape;
using kelo::test::regular_beats;
using kelo::test::synthetic_ecg;
using Ints = std::vector<int32_t>;
using Idx = std::vector<std::size_t>;

constexpr int32_t kLong = KELO_CLASSIFY_LENGTH;
constexpr int32_t kShort = KELO_CLASSIFY_SHORT_LENGTH;
constexpr int32_t kLen = KELO_REFINE_LENGTH;

// 1-based positions of the generator's 0-based beats.
Ints positions(const std::vector<Beat>& beats) {
  Ints r;
  for (const Beat& b : beats) r.push_back(static_cast<int32_t>(b.position) + 1);
  return r;
}

// The beats classifyQRSvar marks 0 at 200 Hz. The fixed variant of the
// signal's length must give the same signal-sized class array, and every
// entry that is not a beat marked 0 must be 1.
Idx abnormal(const std::vector<double>& x, const Ints& r) {
  const auto n = static_cast<int32_t>(r.size());
  kelo::EmxInt32 out(2);
  classifyQRSvar_initialize();
  classifyQRSvar(kelo::test::row(x), kelo::test::int_column(r), n, 200, out);
  EXPECT_EQ((std::pair{out->size[0], out->size[1]}), (std::pair{static_cast<int32_t>(x.size()), 1}));
  Ints fixed(x.size(), -1);
  (x.size() == kLong ? classifyQRS : classifyQRSshort)(x.data(), r.data(), n, fixed.data());
  EXPECT_EQ(fixed, kelo::test::values(out));
  Idx zeros;
  for (std::size_t k = 0; k < fixed.size(); ++k) {
    if (k < r.size() && fixed[k] == 0) zeros.push_back(k);
    else EXPECT_EQ(fixed[k], 1) << "entry " << k;
  }
  return zeros;
}

TEST(Classify, OddShapesBecomeAbnormal) {
  auto beats = regular_beats(100, 160, 220);
  beats[30].shape = beats[150].shape = BeatShape::Wide;
  beats[77].shape = BeatShape::Inverted;
  EXPECT_EQ(abnormal(synthetic_ecg(beats, kLong, {.noiseMv = 0.02}), positions(beats)), (Idx{30, 77, 150}));

  // Seven inverted beats cancel most of the normal ones in the first
  // template, so the wide beat still matches it; the second template, built
  // from the beats still normal, does not.
  beats = regular_beats(60, 170, 17);
  for (std::size_t k = 1; k <= 13; k += 2) beats[k].shape = BeatShape::Inverted;
  beats[16].shape = BeatShape::Wide;
  EXPECT_EQ(abnormal(synthetic_ecg(beats, kShort, {.noiseMv = 0.01}), positions(beats)),
            (Idx{1, 3, 5, 7, 9, 11, 13, 16}));
}

TEST(Classify, ShiftSearchSignalEndsAndNaN) {
  const auto beats = regular_beats(18, 160, 18);
  const auto x = synthetic_ecg(beats, kShort, {.noiseMv = 0.01});
  auto r = positions(beats);
  r[9] += 7;  // detected 7 samples late: found again by shifting
  r[0] -= 6;  // at 13 = h + 1: tested, but too near the start to shift
  EXPECT_EQ(abnormal(x, r), (Idx{0}));

  // A flat signal fails every tested beat: 12 and 35989 lack a full window,
  // 13 and 35988 just have one, the rest lie outside the signal.
  EXPECT_EQ(abnormal(std::vector<double>(kLong, 0.25), {-4, 0, 12, 13, 5000, 35988, 35989, 36000, 40000}),
            (Idx{3, 4, 5}));
  // No beat with a full window: nothing tested.
  EXPECT_EQ(abnormal(synthetic_ecg(regular_beats(3, 2990, 2), kShort), {4, 2994}), Idx{});
  // A NaN in one window spoils the template, and with it every correlation.
  auto y = x;
  y[static_cast<std::size_t>(beats[5].position)] = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(abnormal(y, positions(beats)).size(), beats.size()) << "every beat 0";
}

// The prepared template correlates every window, fitting or not, with the
// bits of the straightforward m_calcCorr.
TEST(Classify, PreparedTemplateGivesTheCorrelationsBitForBit) {
  std::mt19937 rng(5);
  std::normal_distribution<double> value(0.0, 1.0);
  std::vector<double> signal(400);
  for (double& v : signal) v = value(rng);
  signal[390] = std::numeric_limits<double>::quiet_NaN();
  for (const std::size_t length : {1u, 2u, 25u, 241u}) {
    std::vector<double> tmpl(length), centred(length);
    for (double& v : tmpl) v = value(rng);
    const kelo::classify::PreparedTemplate prepared(tmpl, centred);
    const auto half = static_cast<int32_t>(length);
    for (int32_t a = -3; a <= 410; a += 7) {
      for (const int32_t b : {a + half - 1, a + half, a + half - 2}) {
        const double want = kelo::classify::m_calcCorr(tmpl, signal, a, b);
        const double got = prepared.correlate(signal, a, b);
        EXPECT_TRUE(std::memcmp(&want, &got, sizeof want) == 0) << length << ": " << a << ".." << b;
      }
    }
    std::fill(tmpl.begin(), tmpl.end(), 0.5);  // flat: correlation 0
    EXPECT_EQ(kelo::classify::PreparedTemplate(tmpl, centred).correlate(signal, 1, half), 0.0);
  }
}

struct Refined {
  Ints in, out;   // the beat list handed in and beatsOut (kLen entries each)
  int32_t n = 0, count = -1;
  Ints dropped;  // 1-based R positions left out of the list
};

// Synthesises the beats, hands in all but the dropped ones and refines.
Refined refine(const std::vector<Beat>& beats, const std::set<std::size_t>& drop, double noise) {
  const auto x = synthetic_ecg(beats, kLen, {.noiseMv = noise});
  Refined r;
  const Ints all = positions(beats);
  for (std::size_t i = 0; i < all.size(); ++i) (drop.count(i) != 0 ? r.dropped : r.in).push_back(all[i]);
  r.n = static_cast<int32_t>(r.in.size());
  r.in.resize(kLen, 0);
  r.out.assign(kLen, -1);
  refineQrsDetection_initialize();
  refineQrsDetection(x.data(), r.in.data(), r.n, 200, r.out.data(), &r.count);
  return r;
}

// RR intervals alternating 150 and 170 samples.
std::vector<Beat> alternating_beats(int count) {
  std::vector<Beat> beats{{100}};
  for (int i = 1; i < count; ++i) beats.push_back({beats.back().position + (i % 2 == 0 ? 150 : 170)});
  return beats;
}

// Expects `count` beats found (beats among the first n that were not handed
// in), each within 30 samples before the beat left out of its gap, and
// merged in order into the first n entries.
void expect_found(const Refined& r, std::size_t count) {
  EXPECT_EQ(r.count, r.n);
  const auto first = r.out.begin(), last = r.out.begin() + r.n;
  Ints added;
  std::copy_if(first, last, std::back_inserter(added),
               [&](int32_t p) { return !std::binary_search(r.in.begin(), r.in.begin() + r.n, p); });
  ASSERT_EQ(added.size(), count);
  for (std::size_t k = 0; k < count; ++k) {
    EXPECT_TRUE(added[k] >= r.dropped[k] - 30 && added[k] < r.dropped[k])
        << added[k] << " found for " << r.dropped[k];
  }
  EXPECT_TRUE(std::is_sorted(first, last));
  EXPECT_TRUE(std::includes(first, last, r.in.begin(), r.in.begin() + r.n - static_cast<int32_t>(count)));
}

TEST(Refine, MissedBeatsFoundAndMergedOrRejected) {
  // Placed at the largest sample of the window that ends at the first
  // candidate of largest amplitude: on the P-wave side, before the R peak.
  expect_found(refine(alternating_beats(60), {30}, 0.0), 1);
  // Twenty gaps: each pass finds the beats of all open gaps but its merge
  // moves only the first into the list (the others are found again by the
  // next pass), so fifteen passes leave five gaps open.
  std::set<std::size_t> drop;
  for (std::size_t i = 0; i < 20; ++i) drop.insert(3 + 2 * i);
  expect_found(refine(regular_beats(100, 160, 120), drop, 0.01), 15);
  // Regular beats: the candidate is accepted, but the beat lands 30 samples
  // before the true peak, 130 after the previous beat, short of the 139.5
  // that both halves of the gap need (mean 160.7 - 1.96 * sd 10.8). Then
  // no long gap at all.
  for (const Refined& r :
       {refine(regular_beats(100, 160, 220), {100}, 0.0), refine(alternating_beats(200), {}, 0.02)}) {
    EXPECT_EQ(r.out, r.in);
    EXPECT_EQ(r.count, r.n);
  }
}

TEST(Refine, KernelsKeepTheirRules) {
  Ints out(6, 0);
  // Appended in ascending order: only the first is moved into the list.
  kelo::refine::m_sortData(Ints{100, 500, 900, 300, 700, 42}, 3, 2, out);
  EXPECT_EQ(out, (Ints{100, 300, 500, 900, 700, 42}));
  // Appended in descending order: both are.
  kelo::refine::m_sortData(Ints{100, 500, 900, 700, 300, 42}, 3, 2, out);
  EXPECT_EQ(out, (Ints{100, 300, 500, 700, 900, 42}));
  // The deviation divides by the index span (the checks multiply by the
  // reciprocal): the bits differ.
  const std::vector<double> a{0.1, 0.7, 1.3, 2.9};
  const double mean = kelo::refine::m_calcMean(a, 1, 4);
  double sum = 0.0;
  for (double v : a) sum += (v - mean) * (v - mean);
  ASSERT_NE(sum / 3.0, sum * (1.0 / 3.0));
  EXPECT_EQ(kelo::refine::m_calcSd(a, 1, 4, mean), std::sqrt(sum / 3.0));
}

TEST(Refine, ReferenceSlopeFollowsThePolarityVote) {
  // The first beat is too early for a slope window: its slope stays 0 and
  // it does not vote. The other beats are identical.
  for (const BeatShape shape : {BeatShape::Normal, BeatShape::Inverted}) {
    std::vector<Beat> beats{{4, shape}};
    for (int64_t p = 199; p < 10000; p += 160) beats.push_back({p, shape});
    const auto x = synthetic_ecg(beats, kLen);
    Ints r = positions(beats);
    r.resize(kLen, 0);
    const auto n = static_cast<int32_t>(beats.size());
    double slope = -10000.0;  // the largest first difference before the second R peak
    for (int32_t j = r[1] - 12; j <= r[1]; ++j) slope = std::max(slope, x[j] - x[j - 1]);
    const auto st = kelo::refine::beat_statistics(x, r, n, 12);
    const bool up = shape == BeatShape::Normal;
    EXPECT_EQ(st.vote, up ? n - 1 : 1 - n);
    // Upward: the maximum slopes of all beats, the first one's 0 included.
    // Downward: still the maximum slopes, from the second beat on.
    EXPECT_NEAR(st.mS, up ? slope * (n - 1) / n : slope, 1e-12);
    EXPECT_NEAR(st.sS, up ? slope / std::sqrt(n) : 0.0, 1e-12);
  }
}

TEST(ClassifyAndRefine, BadInputStaysInsideTheArrays) {
  const auto beats = regular_beats(100, 160, 18);
  const auto x = synthetic_ecg(beats, kShort);
  // More beats than the class array: only the first kShort are read and
  // classified (all at one position, so all normal).
  Ints many(kShort, 500), classes(kShort, -1);
  for (int32_t n : {kShort + 1000, -3}) {
    classes.assign(kShort, -1);
    classifyQRSshort(x.data(), many.data(), n, classes.data());
    EXPECT_EQ(classes, Ints(kShort, 1)) << n;
  }
  classifyQRS(x.data(), nullptr, 3, nullptr);
  // The record variant: nbeats lowered to the positions held; sampling
  // rates whose windows are empty or negative (every beat in reach fails),
  // or longer than the signal (nothing tested); rates above 2000 Hz refused.
  auto signal = kelo::test::column(x);
  auto peaks = kelo::test::int_column(positions(beats));
  kelo::EmxInt32 record(1);
  for (const auto& [fs, first] : {std::pair{0, 0}, {2000, 1}, {INT32_MIN, 0}, {-200, 0}, {2001, -1}, {INT32_MAX, -1}}) {
    classifyQRSvar(signal, peaks, 1000, fs, record);
    EXPECT_EQ(record->size[0], first < 0 ? 0 : kShort) << "fs " << fs;
    if (first >= 0) {
      EXPECT_EQ(kelo::test::values(record)[0], first) << "fs " << fs;
    }
  }
  classifyQRSvar(kelo::EmxReal(2), peaks, 18, 200, record);
  EXPECT_EQ(record->size[0], 0);

  // The search: positions outside the signal and at its last sample, with
  // long gaps, under sane and absurd sampling rates.
  const auto y = synthetic_ecg(alternating_beats(60), kLen, {.noiseMv = 0.01});
  Ints in{INT32_MIN, -50, 0, 1, 400, 2000, 35990, 36000, 36001, 70000, INT32_MAX}, out(kLen, 0);
  in.resize(kLen, 0);
  int32_t count = -1;
  for (int32_t fs : {200, 0, -200, 5000, INT32_MAX}) {
    refineQrsDetection(y.data(), in.data(), 11, fs, out.data(), &count);
    EXPECT_EQ(count, 11);
  }
  // Too many beats: the whole list is used and nothing can be appended.
  for (int32_t k = 0; k < kLen; ++k) in[k] = 1 + k;
  in[kLen / 2] = in[kLen / 2 - 1];
  refineQrsDetection(y.data(), in.data(), kLen + 7, 200, out.data(), &count);
  EXPECT_EQ(count, kLen);
  for (int32_t n : {-5, 0, 1}) {
    std::fill(out.begin(), out.end(), 3);
    refineQrsDetection(y.data(), in.data(), n, 200, out.data(), &count);
    EXPECT_EQ(count, n);
    EXPECT_EQ(out, in);
  }
  refineQrsDetection(nullptr, in.data(), 10, 200, out.data(), &count);
  refineQrsDetection(y.data(), in.data(), 10, 200, out.data(), nullptr);
  EXPECT_EQ(count, 1);
}

}  // namespace
