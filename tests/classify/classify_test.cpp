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
#include <tuple>
#include <vector>

#include "classify/refine_kernels.hpp"
#include "classify/template_correlation.hpp"
#include "keloecgsolver/classify.h"
#include "keloecgsolver/lifecycle.h"
#include "support/emx_builders.hpp"
#include "support/spanned_beats.hpp"
#include "support/sum_order.hpp"
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
}

// A short signal of beats (1-based position, t) with 25-sample windows
// S + tD (support/spanned_beats.hpp).
std::vector<double> spanned_beats(const std::vector<std::pair<int32_t, double>>& beats) {
  const kelo::test::SpannedShapes shapes = kelo::test::spanned_shapes(25);
  std::vector<double> x(kShort, 0.0);
  for (const auto& [r, t] : beats) kelo::test::add_spanned_beat(x, shapes, r, t);
  return x;
}

TEST(Classify, CorrelationAndPassLimits) {
  // Seventeen beats S and one S + tD, 150 samples apart: t puts the last
  // beat's correlation with the first template at exactly 0.7 (kept), or at
  // 0.6995 (not kept).
  const double exact = 0x1.293f7b730a287p+0;
  for (const auto& [t, want] : {std::pair{exact, Idx{}}, {exact * 1.0015, Idx{17}}}) {
    std::vector<std::pair<int32_t, double>> beats;
    for (int32_t k = 0; k < 18; ++k) beats.push_back({101 + 150 * k, k == 17 ? t : 0.0});
    const auto x = spanned_beats(beats);
    Ints r;
    std::vector<double> tmpl(25, 0.0);
    for (const auto& [p, _] : beats) {
      r.push_back(p);
      for (int i = 0; i < 25; ++i) tmpl[i] += x[p - 13 + i];
    }
    for (double& v : tmpl) v /= 18.0;
    if (t == exact) {
      ASSERT_EQ(kelo::classify::m_calcCorr(tmpl, x, r.back() - 12, r.back() + 12), 0.7);
    }
    EXPECT_EQ(abnormal(x, r), want) << t;
  }
  // Twenty-one beats S and seven with t from 1.15 * 1.19^6 down to 1.15:
  // each pass takes out only the beat farthest from the template, which
  // then moves towards S and leaves the next one out of reach; five passes
  // take out five.
  std::vector<std::pair<int32_t, double>> beats;
  for (int32_t k = 0; k < 28; ++k) beats.push_back({61 + 100 * k, k < 21 ? 0.0 : 1.15 * std::pow(1.19, 27 - k)});
  Ints r;
  for (const auto& [p, _] : beats) r.push_back(p);
  EXPECT_EQ(abnormal(spanned_beats(beats), r), (Idx{21, 22, 23, 24, 25}));
}

TEST(Classify, ShiftSearchBoundsAndWindowOfTheRecordVariant) {
  // Beats of one sample every 150 samples between two detections that miss
  // their beats (a sample off, a beat correlates no more). The shift search
  // needs r - 24 > 0 and r + 24 <= 3000 and reaches 12 samples either way:
  // detections at 25 and 2976 of beats at 13 and 2988 are found; at 24 and
  // 2977 (beats at 17 and 2984) they are not searched.
  for (const auto& [first, firstBeat, last, lastBeat, want] :
       {std::tuple{25, 13, 2976, 2988, Idx{}}, {24, 17, 2977, 2984, Idx{0, 20}}}) {
    std::vector<double> x(kShort, 0.0);
    Ints r{first};
    for (int32_t p = 151; p < 2900; p += 150) x[p - 1] = 1.0, r.push_back(p);
    r.push_back(last);
    x[firstBeat - 1] = x[lastBeat - 1] = 1.0;
    EXPECT_EQ(abnormal(x, r), want) << first;
  }
  // h = rnd(rnd(0.12 fs) / 2): 12 at 200 Hz, 14 at 225 Hz (13.5 rounded).
  // On a flat signal every beat tested fails, from r = h + 1 on.
  for (const auto& [fs, h] : {std::pair{200, 12}, {225, 14}}) {
    kelo::EmxInt32 classes(1);
    classifyQRSvar(kelo::test::column(std::vector<double>(100, 1.0)), kelo::test::int_column({h, h + 1}), 2, fs,
                   classes);
    EXPECT_EQ(kelo::test::values(classes)[0], 1) << fs;
    EXPECT_EQ(kelo::test::values(classes)[1], 0) << fs;
  }
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

TEST(Classify, FlatAndNaNSignals) {
  const auto beats = regular_beats(18, 160, 18);
  const auto x = synthetic_ecg(beats, kShort, {.noiseMv = 0.01});
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

// Beats as triangles (1-based peak, height, half-widths before and after).
struct Triangle {
  int32_t peak;
  double height;
  int32_t before = 4, after = 4;
};

std::vector<double> triangles(const std::vector<Triangle>& beats) {
  std::vector<double> x(kLen, 0.0);
  for (const Triangle& t : beats) {
    for (int32_t i = -t.before; i < 0; ++i) x[t.peak - 1 + i] += t.height * (t.before + i) / t.before;
    for (int32_t i = 0; i <= t.after; ++i) x[t.peak - 1 + i] += t.height * (t.after - i) / t.after;
  }
  return x;
}

// The beats refineQrsDetection adds to the first n (those not handed in).
Ints refined(const std::vector<double>& x, const Ints& beats) {
  Ints in(beats), out(kLen, -1);
  in.resize(kLen, 0);
  const auto n = static_cast<int32_t>(beats.size());
  int32_t count = -1;
  refineQrsDetection_initialize();
  refineQrsDetection(x.data(), in.data(), n, 200, out.data(), &count);
  EXPECT_EQ(count, n);
  EXPECT_TRUE(std::is_sorted(out.begin(), out.begin() + n));
  Ints added;
  std::copy_if(out.begin(), out.begin() + n, std::back_inserter(added),
               [&](int32_t p) { return !std::binary_search(beats.begin(), beats.end(), p); });
  return added;
}

// Forty-two beats from 200 on, 96 and 104 high by turns, 120 and 280 apart
// by turns, but for one gap of G samples after beat 21 (at 4200), and one
// beat missing in it. Amplitudes: mean 100, sd 4.05, band 85.83 .. 114.17;
// slopes (height / half-width): band 21.96 .. 28.04. G = 350 is searched
// (above 341.2) and both halves of the gap must exceed 40.27. The beat is
// placed where the window that ends at the first candidate of largest
// amplitude peaks: 36 samples before a narrow missing beat.
TEST(Refine, AcceptanceAtItsBoundaries) {
  constexpr double kUpper = 114.16970316572927, kSlopeEdge = 28.036364964084843;
  struct Case {
    int32_t gap, offset;
    double height;
    int32_t half, found;
    const char* why;
  };
  for (const Case& c : std::vector<Case>{
           {340, 79, 100, 4, 0, "340 is not above 340.26"},
           {341, 79, 100, 4, 4243, "341 is above 340.35"},
           {350, 79, kUpper - 0.03, 4, 4243, "amplitude just inside the band"},
           {350, 79, kUpper, 4, 0, "at its edge: outside, and slope 28.5 is outside too"},
           {350, 79, kUpper + 0.03, 4, 0, "amplitude just outside the band"},
           {350, 79, 8 * kSlopeEdge - 0.08, 8, 4243, "too high, but slope just inside its band"},
           {350, 79, 8 * kSlopeEdge + 0.08, 8, 0, "slope just outside"},
           {350, 79, 50, 2, 0, "slope 25, but height not above half the mean amplitude"},
           {350, 79, 50.4, 2, 4243, "slope 25 and height above half the mean"},
           {350, 77, 100, 4, 4241, "41 samples after the beat before"},
           {350, 76, 100, 4, 0, "40 samples after the beat before"},
           {350, 338, 100, 4, 4502, "the last candidate of amplitude"},
           {350, 336, 200, 8, 4500, "a slope seen by the candidates past the last of amplitude"}}) {
    std::vector<Triangle> beats;
    Ints r{200};
    for (int32_t k = 0; k < 41; ++k) r.push_back(r.back() + (k == 20 ? c.gap : k % 2 == 0 ? 120 : 280));
    for (std::size_t k = 0; k < r.size(); ++k) beats.push_back({r[k], k % 2 == 0 ? 96.0 : 104.0});
    const std::vector<double> clean = triangles(beats);
    Ints list(r);
    list.resize(kLen, 0);
    const auto st = kelo::refine::beat_statistics(clean, list, 42, 12);
    ASSERT_EQ(st.mA + 3.5 * st.sA, c.gap == 350 ? kUpper : st.mA + 3.5 * st.sA);
    ASSERT_EQ(st.mS + 3.0 * st.sS, kSlopeEdge);
    beats.push_back({4200 + c.offset, c.height, c.half, c.half});
    EXPECT_EQ(refined(triangles(beats), r), c.found ? Ints{c.found} : Ints{}) << c.why;
  }
}

TEST(Refine, FifteenPassesAtMost) {
  // Twenty gaps: each pass finds the beats of all open gaps but its merge
  // moves only the first into the list (the others are found again by the
  // next pass), so fifteen passes leave five gaps open.
  std::vector<Triangle> beats;
  Ints r;
  for (int32_t k = 0; k < 120; ++k) {
    beats.push_back({100 + 160 * k, k % 2 == 0 ? 96.0 : 104.0});
    if (k < 3 || k > 41 || k % 2 == 0) r.push_back(100 + 160 * k);
  }
  EXPECT_EQ(refined(triangles(beats), r).size(), 15u);
}

TEST(ClassifyAndRefine, KernelsKeepTheirRules) {
  // The template correlation sums in index order, bit for bit.
  const std::vector<double> t = kelo::test::scattered(25, 3), x = kelo::test::scattered(40, 4);
  const auto written_out = [&](bool reversed) {
    double st = 0.0, sx = 0.0, cross = 0.0, tt = 0.0, ss = 0.0;
    for (int i = 0; i < 25; ++i) st += t[reversed ? 24 - i : i], sx += x[7 + (reversed ? 24 - i : i)];
    for (int i = 0; i < 25; ++i) {
      const double dt = t[i] - st / 25.0, ds = x[7 + i] - sx / 25.0;
      cross += dt * ds, tt += dt * dt, ss += ds * ds;
    }
    return cross / (std::sqrt(tt * ss) + 1e-20);
  };
  ASSERT_NE(kelo::test::bits(written_out(false)), kelo::test::bits(written_out(true)));
  EXPECT_EQ(kelo::test::bits(kelo::classify::m_calcCorr(t, x, 8, 32)), kelo::test::bits(written_out(false)));

  Ints out(6, 0);
  // Appended in ascending order: only the first is moved into the list.
  kelo::refine::m_sortData(Ints{100, 500, 900, 300, 700, 42}, 3, 2, out);
  EXPECT_EQ(out, (Ints{100, 300, 500, 900, 700, 42}));
  // Appended in descending order: both are.
  kelo::refine::m_sortData(Ints{100, 500, 900, 700, 300, 42}, 3, 2, out);
  EXPECT_EQ(out, (Ints{100, 300, 500, 700, 900, 42}));
  // The search's mean and deviation sum from first to last; the deviation
  // divides by the index span (the checks multiply by its reciprocal).
  const std::vector<double> a = kelo::test::scattered(40, 3);
  double total = 0.0, sum = 0.0;
  for (double v : a) total += v;
  const double mean = total / 40.0;
  for (double v : a) sum += (v - mean) * (v - mean);
  ASSERT_NE(sum / 39.0, sum * (1.0 / 39.0));
  EXPECT_EQ(kelo::refine::m_calcMean(a, 1, 40), mean);
  EXPECT_EQ(kelo::refine::m_calcSd(a, 1, 40, mean), std::sqrt(sum / 39.0));
}

TEST(Refine, BeatStatisticsAtTheSignalEndsAndThePolarityVote) {
  // Amplitudes need r - 12 > 0 and r + 12 <= 36000, slopes r - 12 > 0. A
  // beat votes up when its largest rise before the peak is at least its
  // largest fall (the first difference after the peak counts too): the
  // symmetric triangles tie and vote up; a steep fall into a trough (half-
  // width 2 before, 4 after) votes down. From a negative vote on, the
  // reference slope is the mean of the largest rises of beats 2 .. n.
  for (const auto& [beats, vote, mA, mS] : std::vector<std::tuple<std::vector<Triangle>, int32_t, double, double>>{
           {{{12, 8}, {500, 16}, {1000, 64}, {35988, 32}}, 3, 28, 7},
           {{{100, 80}, {300, -40, 2, 4}, {500, 40}, {700, -40, 2, 4}}, 0, 50, 12.5},
           {{{100, 80}, {300, -40, 2, 4}, {500, -40, 2, 4}, {700, -40, 2, 4}}, -2, 50, 10}}) {
    Ints r;
    for (const Triangle& t : beats) r.push_back(t.peak);
    r.resize(kLen, 0);
    const auto st = kelo::refine::beat_statistics(triangles(beats), r, 4, 12);
    EXPECT_EQ(st.vote, vote) << beats[0].peak;
    EXPECT_EQ(st.mA, mA) << beats[0].peak;
    EXPECT_EQ(st.mS, mS) << beats[0].peak;
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
  // or longer than the signal (nothing tested); rates above 2000 Hz refused
  // (the record left empty).
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
  const auto y = synthetic_ecg(regular_beats(100, 160, 200), kLen, {.noiseMv = 0.01});
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
