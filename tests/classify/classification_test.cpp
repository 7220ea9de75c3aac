// Beat classification on synthetic ECG: odd shapes found, the shift search
// and its reach, beats too near the ends, flat and NaN signals, the three
// variants agreeing, and bad input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "keloecgsolver/classify.h"
#include "keloecgsolver/lifecycle.h"
#include "support/emx_builders.hpp"
#include "support/synthetic_ecg.hpp"

namespace {

using kelo::test::Beat;
using kelo::test::BeatShape;

constexpr int32_t kLong = KELO_CLASSIFY_LENGTH;
constexpr int32_t kShort = KELO_CLASSIFY_SHORT_LENGTH;

// 1-based positions of the generator's 0-based beats.
std::vector<int32_t> positions(const std::vector<Beat>& beats) {
  std::vector<int32_t> r;
  for (const Beat& b : beats) r.push_back(static_cast<int32_t>(b.position) + 1);
  return r;
}

// Classes of the first `beats` entries; checks that every later entry of
// the signal-sized class array is 1.
std::vector<int32_t> beat_classes(const std::vector<int32_t>& all, std::size_t beats) {
  EXPECT_TRUE(std::all_of(all.begin() + static_cast<std::ptrdiff_t>(beats), all.end(),
                          [](int32_t c) { return c == 1; }));
  return {all.begin(), all.begin() + static_cast<std::ptrdiff_t>(beats)};
}

using FixedClassify = void (*)(const double*, const int32_t*, int32_t, int32_t*);

std::vector<int32_t> classify_fixed(FixedClassify classify, const std::vector<double>& x,
                                    const std::vector<int32_t>& r) {
  std::vector<int32_t> classes(x.size(), -1);
  classifyQRS_initialize();
  classify(x.data(), r.data(), static_cast<int32_t>(r.size()), classes.data());
  return beat_classes(classes, r.size());
}

std::vector<int32_t> classify_var(const std::vector<double>& x, const std::vector<int32_t>& r,
                                  int32_t fs = 200) {
  auto signal = kelo::test::row(x);
  auto peaks = kelo::test::int_column(r);
  kelo::EmxInt32 classes(2);
  classifyQRSvar_initialize();
  classifyQRSvar(signal, peaks, static_cast<int32_t>(r.size()), fs, classes);
  EXPECT_EQ(classes->size[0], static_cast<int32_t>(x.size()));
  EXPECT_EQ(classes->size[1], 1);
  return beat_classes(kelo::test::values(classes), r.size());
}

// Classifies with all variants that fit the signal and expects one answer.
std::vector<int32_t> classify_all(const std::vector<double>& x, const std::vector<int32_t>& r) {
  const auto v = classify_var(x, r);
  EXPECT_EQ(classify_fixed(x.size() == kLong ? classifyQRS : classifyQRSshort, x, r), v);
  return v;
}

std::vector<int32_t> ones_except(std::size_t n, std::initializer_list<std::size_t> zeros) {
  std::vector<int32_t> c(n, 1);
  for (std::size_t k : zeros) c[k] = 0;
  return c;
}

TEST(Classify, OddShapesBecomeAbnormal) {
  auto beats = kelo::test::regular_beats(100, 160, 220);
  beats[30].shape = BeatShape::Wide;
  beats[77].shape = BeatShape::Inverted;
  beats[150].shape = BeatShape::Wide;
  const auto x = kelo::test::synthetic_ecg(beats, kLong, {.noiseMv = 0.02});
  EXPECT_EQ(classify_all(x, positions(beats)), ones_except(beats.size(), {30, 77, 150}));
}

TEST(Classify, TemplateIsRebuiltFromTheBeatsStillNormal) {
  // Seven inverted beats cancel most of the normal ones in the first
  // template, so the wide beat still matches it. Once the inverted beats
  // are out, the second template is normal and the wide beat fails.
  auto beats = kelo::test::regular_beats(60, 170, 17);
  for (std::size_t k = 1; k <= 13; k += 2) beats[k].shape = BeatShape::Inverted;
  beats[16].shape = BeatShape::Wide;
  const auto x = kelo::test::synthetic_ecg(beats, kShort, {.noiseMv = 0.01});
  EXPECT_EQ(classify_all(x, positions(beats)), ones_except(17, {1, 3, 5, 7, 9, 11, 13, 16}));
}

TEST(Classify, ShortSignalAgreesWithTheLongOne) {
  auto beats = kelo::test::regular_beats(60, 170, 17);
  beats[4].shape = BeatShape::Inverted;
  beats[11].shape = BeatShape::Wide;
  const auto x = kelo::test::synthetic_ecg(beats, kShort, {.noiseMv = 0.03, .wanderMv = 0.1});
  const auto expected = ones_except(beats.size(), {4, 11});
  EXPECT_EQ(classify_all(x, positions(beats)), expected);
  // The same beats at the start of a three-minute signal.
  std::vector<double> longer(kLong, 0.0);
  std::copy(x.begin(), x.end(), longer.begin());
  EXPECT_EQ(classify_fixed(classifyQRS, longer, positions(beats)), expected);
}

TEST(Classify, ShiftSearchRescuesAMisplacedPeak) {
  const auto beats = kelo::test::regular_beats(18, 160, 18);
  const auto x = kelo::test::synthetic_ecg(beats, kShort, {.noiseMv = 0.01});
  auto r = positions(beats);
  r[9] += 7;  // detected 7 samples late: found again by shifting
  r[0] -= 6;  // at 13 = h + 1: tested, but too near the start to shift
  EXPECT_EQ(classify_all(x, r), ones_except(r.size(), {0}));
  // Without the offset the first beat is normal.
  r[0] += 6;
  EXPECT_EQ(classify_all(x, r), ones_except(r.size(), {}));
}

TEST(Classify, FlatSignalFailsEveryTestedBeat) {
  const std::vector<double> flat(kLong, 0.25);
  // 12 and 35989 lack a full window; 13 and 35988 just have one; the rest
  // lie outside the signal.
  const std::vector<int32_t> r{-4, 0, 12, 13, 5000, 35988, 35989, 36000, 40000};
  EXPECT_EQ(classify_all(flat, r), (std::vector<int32_t>{1, 1, 1, 0, 0, 0, 1, 1, 1}));
}

TEST(Classify, NoFullWindowTestsNothing) {
  const auto beats = kelo::test::regular_beats(3, 2990, 2);  // at 4 and 2994
  const auto x = kelo::test::synthetic_ecg(beats, kShort);
  EXPECT_EQ(classify_all(x, positions(beats)), ones_except(2, {}));
}

TEST(Classify, NotANumberCorrelationIsAbnormal) {
  const auto beats = kelo::test::regular_beats(100, 160, 15);
  auto x = kelo::test::synthetic_ecg(beats, kShort, {.noiseMv = 0.01});
  // A NaN in one window spoils the template, and with it every correlation.
  x[static_cast<std::size_t>(beats[5].position)] = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(classify_all(x, positions(beats)), std::vector<int32_t>(beats.size(), 0));
}

TEST(Classify, BadInputStaysInsideTheArrays) {
  const auto beats = kelo::test::regular_beats(100, 160, 18);
  const auto x = kelo::test::synthetic_ecg(beats, kShort);
  // More beats than the class array: only the first kShort are read and
  // classified (all at one position, so all normal).
  std::vector<int32_t> many(kShort, 500), classes(kShort, -1);
  classifyQRSshort(x.data(), many.data(), kShort + 1000, classes.data());
  EXPECT_EQ(classes, std::vector<int32_t>(kShort, 1));
  classes.assign(kShort, -1);
  classifyQRSshort(x.data(), many.data(), -3, classes.data());
  EXPECT_EQ(classes, std::vector<int32_t>(kShort, 1));
  classifyQRS(x.data(), nullptr, 3, nullptr);

  // The record variant: nbeats lowered to the positions held; sampling
  // rates whose windows are empty (every beat in reach fails), longer than
  // the signal (nothing tested) or absurd.
  auto signal = kelo::test::column(x);
  auto peaks = kelo::test::int_column(positions(beats));
  kelo::EmxInt32 out(1);
  for (int32_t fs : {0, 100000, INT32_MAX, INT32_MIN, -200}) {
    classifyQRSvar(signal, peaks, 1000, fs, out);
    EXPECT_EQ(out->size[0], kShort);
    if (fs == 100000) {
      EXPECT_EQ(kelo::test::values(out)[0], 1);
    }
  }
  EXPECT_EQ(kelo::test::values(out)[0], 0) << "fs -200";
  kelo::EmxReal empty(2);
  classifyQRSvar(empty, peaks, 18, 200, out);
  EXPECT_EQ(out->size[0], 0);
}

}  // namespace
