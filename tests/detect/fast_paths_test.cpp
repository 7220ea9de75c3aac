// The library's fast detection against the plain forms it replaces
// (src/reference), bit for bit, on every instruction-set path this
// processor runs: the kernels on random and adversarial data, the bounds
// behind the threshold's bracketing, and the whole detector and
// detectWaves on the bundled recordings and on generated signals (random
// lengths from 0 up, constant and clipped stretches, NaN and infinity,
// non-integral and tiny rates).
//
// A NaN compares equal to any NaN here: which operand's payload an
// operation on two NaNs passes on is the processor's choice, and the
// compiler may swap operands.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "detect/detect_support.hpp"
#include "detect/detect_waves.hpp"
#include "detect/detector.hpp"
#include "detect/peak_finders.hpp"
#include "keloecgsolver/rt_nonfinite.h"
#include "reference/detector.hpp"
#include "runtime/kernels.hpp"
#include "support/synthetic_ecg.hpp"

namespace {

using namespace kelo::test;
using kelo::simd::Isa;

// Index of the first element whose bits differ (NaN against NaN agrees),
// or -1; a length mismatch counts at the shorter length.
long first_difference(const V& a, const V& b) {
  for (std::size_t k = 0; k < std::min(a.size(), b.size()); ++k)
    if (std::bit_cast<uint64_t>(a[k]) != std::bit_cast<uint64_t>(b[k]) &&
        !(std::isnan(a[k]) && std::isnan(b[k])))
      return static_cast<long>(k);
  return a.size() == b.size() ? -1 : static_cast<long>(std::min(a.size(), b.size()));
}

#define EXPECT_SAME_BITS(a, b) EXPECT_EQ(first_difference(a, b), -1) << #a " vs " #b

std::string data_path(const std::string& name) {
  const char* env = std::getenv("KELO_TEST_DATA");
  return (env ? std::string(env) : std::string(KELO_TEST_DATA_DIR)) + "/" + name;
}

V load_f32(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  V x;
  float f;
  while (in.read(reinterpret_cast<char*>(&f), 4)) x.push_back(f);
  return x;
}

struct Signal {
  std::string name;
  V x;
  double fs;
};

// Generated recordings: beats at random intervals, noise and wander, then
// one of the disturbances the detector must survive unchanged.
std::vector<Signal> generated_signals() {
  std::vector<Signal> out;
  std::mt19937 rng(2024);
  const double rates[] = {200, 200, 200, 360, 128, 250.5, 37.3, 12.5, 2.5, 1.0, 0.7};
  const std::size_t lengths[] = {0, 1, 2, 3, 199, 200, 201, 401, 1500, 4000, 9000, 15000};
  for (int i = 0; i < 36; ++i) {
    const double fs = rates[i % std::size(rates)];
    std::size_t n = lengths[(i * 7) % std::size(lengths)];
    if (fs > 100 && n < 1500) n = i % 3 == 0 ? n : n + 3000;
    std::vector<Beat> beats;
    std::uniform_real_distribution<double> rr(0.35, 1.4);
    for (double t = 0.2; t * fs < static_cast<double>(n); t += rr(rng))
      beats.push_back({static_cast<int64_t>(t * fs), i % 5 == 0 ? BeatShape::Wide : BeatShape::Normal});
    V x = synthetic_ecg(beats, n, {.fs = fs, .noiseMv = 0.01 * (i % 4), .wanderMv = 0.2 * (i % 2),
                                   .seed = static_cast<uint32_t>(i)});
    std::string name = "generated " + std::to_string(i);
    std::uniform_int_distribution<std::size_t> at(0, n > 0 ? n - 1 : 0);
    switch (n == 0 ? -1 : i % 6) {
      case 1:  // a flat stretch, as when an electrode comes off
        for (std::size_t k = at(rng) / 2, e = std::min(n, k + n / 4); k < e; ++k) x[k] = 0.25;
        name += " flat";
        break;
      case 2:  // the amplifier saturates
        for (double& v : x) v = std::clamp(v, -0.4, 0.6);
        name += " clipped";
        break;
      case 3:  // NaN samples
        for (int j = 0; j < 3; ++j) x[at(rng)] = kNaN;
        name += " NaN";
        break;
      case 4:  // infinite samples
        x[at(rng)] = kInf;
        x[at(rng)] = -kInf;
        name += " Inf";
        break;
      case 5:  // signed zeros and a large offset
        for (std::size_t k = 0; k < n; k += 3) x[k] = k % 2 ? 0.0 : -0.0;
        for (double& v : x) v += 1e6;
        name += " offset";
        break;
      default:
        break;
    }
    out.push_back({name, std::move(x), fs});
  }
  return out;
}

std::vector<Signal> recordings() {
  std::vector<Signal> out;
  for (const char* r : {"100", "119", "203"}) out.push_back({r, load_f32(data_path("detect/" + std::string(r) + ".f32")), 200});
  return out;
}

TEST(FastPaths, DetectorMatchesItsPlainForm) {
  std::vector<Signal> signals = recordings();
  for (Signal& s : generated_signals()) signals.push_back(std::move(s));
  ASSERT_EQ(signals[0].x.size(), 36000u) << "cannot read the bundled recordings";
  for (const Signal& s : signals) {
    SCOPED_TRACE(s.name + " at " + std::to_string(s.fs) + " Hz, n " + std::to_string(s.x.size()));
    V refEcg = s.x;
    const kelo::ref::Detection want = kelo::ref::analyze(refEcg, s.fs);
    for (Isa isa : kelo::simd::runnable_isas()) {
      SCOPED_TRACE(kelo::simd::isa_name(isa));
      V ecg = s.x;
      const kelo::detect::Detection got = kelo::detect::analyze(ecg, s.fs, isa);
      EXPECT_SAME_BITS(ecg, refEcg);
      EXPECT_SAME_BITS(got.feature, want.feature);
      EXPECT_SAME_BITS(got.threshold, want.threshold);
      EXPECT_SAME_BITS(got.rpeaks, want.rpeaks);
      // detectWaves' way, without the threshold curve: the same output.
      EXPECT_SAME_BITS(kelo::detect::detect_rpeaks(s.x, s.fs, isa), want.rpeaks);
    }
  }
}

// Whole 30-minute recordings of the MIT-BIH Arrhythmia Database at 200 Hz,
// where the shared data folder sits beside the source tree (as in CI); a
// user's clone has none and skips this. Sanitizer builds take one record.
// KELO_FAST_PATH_RECORDINGS=FOLDER compares every FOLDER/*.f32 instead (a
// float32 recording at 200 Hz each), as docs/performance.md describes.
TEST(FastPaths, WholeRecordingsMatchThePlainForm) {
  std::string folder = std::string(KELO_SOURCE_DIR) + "/../shared/data/mitdb-200hz";
  std::vector<std::string> records{"100", "119", "203", "208"};
#ifndef NDEBUG
  records.resize(1);
#endif
  if (const char* all = std::getenv("KELO_FAST_PATH_RECORDINGS")) {
    folder = all;
    records.clear();
    for (const auto& entry : std::filesystem::directory_iterator(folder))
      if (entry.path().extension() == ".f32") records.push_back(entry.path().stem().string());
    std::sort(records.begin(), records.end());
  }
  if (records.empty() || load_f32(folder + "/" + records[0] + ".f32").empty())
    GTEST_SKIP() << "no recordings at " << folder;
  for (const std::string& r : records) {
    SCOPED_TRACE("record " + r);
    const V x = load_f32(folder + "/" + r + ".f32");
    ASSERT_GT(x.size(), 200u);
    const kelo::ref::Waves want = kelo::ref::detect_waves(x, 10.0, 200, 10);
    V refEcg = x;
    const kelo::ref::Detection wantCurves = kelo::ref::analyze(refEcg, 200.0);
    for (Isa isa : kelo::simd::runnable_isas()) {
      SCOPED_TRACE(kelo::simd::isa_name(isa));
      EXPECT_EQ(kelo::detect::rpeak_positions(x, 200, isa), want.rPeaks);
      V ecg = x;
      const kelo::detect::Detection got = kelo::detect::analyze(ecg, 200.0, isa);
      EXPECT_SAME_BITS(got.feature, wantCurves.feature);
      EXPECT_SAME_BITS(got.threshold, wantCurves.threshold);
      EXPECT_SAME_BITS(got.rpeaks, wantCurves.rpeaks);
    }
  }
}

TEST(FastPaths, DetectWavesMatchesItsPlainForm) {
  std::vector<Signal> signals = recordings();
  for (Signal& s : generated_signals())
    if (s.fs == std::floor(s.fs)) signals.push_back(std::move(s));
  for (const Signal& s : signals) {
    for (int32_t windowSeconds : {10, 4}) {
      SCOPED_TRACE(s.name + ", windows of " + std::to_string(windowSeconds) + " s");
      const auto fs = static_cast<int32_t>(s.fs);
      const kelo::ref::Waves want = kelo::ref::detect_waves(s.x, 1.0, fs, windowSeconds);
      kelo::EmxInt32 peaks(2), windows(2);
      int32_t quality = 0;
      detectWaves_initialize();
      detectWaves(column(s.x), 1.0, fs, windowSeconds, peaks, &quality, windows);
      EXPECT_EQ(values(peaks), want.rPeaks);
      EXPECT_EQ(quality, want.quality);
      EXPECT_EQ(values(windows), want.windowQualities);
      for (Isa isa : kelo::simd::runnable_isas())
        EXPECT_EQ(kelo::detect::rpeak_positions(s.x, fs, isa), want.rPeaks) << kelo::simd::isa_name(isa);
    }
  }
}

// Random values with the hard cases mixed in: ties, both zeros, NaN,
// infinities, huge and tiny magnitudes.
V awkward_values(std::mt19937& rng, std::size_t n, bool nonFinite) {
  std::uniform_int_distribution<int> pick(0, 19);
  std::normal_distribution<double> g(0.0, 1.0);
  V x(n);
  for (double& v : x) {
    switch (pick(rng)) {
      case 0: v = 0.0; break;
      case 1: v = -0.0; break;
      case 2: v = nonFinite ? kNaN : 1.0; break;
      case 3: v = nonFinite ? (g(rng) > 0 ? kInf : -kInf) : -1.0; break;
      case 4: v = g(rng) * 1e150; break;
      case 5: v = g(rng) * 1e-300; break;
      case 6: case 7: v = std::round(g(rng) * 3.0); break;
      default: v = g(rng); break;
    }
  }
  return x;
}

TEST(FastPaths, KernelsMatchTheirPlainForms) {
  std::mt19937 rng(11);
  for (Isa isa : kelo::simd::runnable_isas()) {
    SCOPED_TRACE(kelo::simd::isa_name(isa));
    const kelo::simd::Kernels& k = kelo::simd::kernels(isa);
    for (std::size_t len : {1u, 2u, 3u, 11u, 33u, 41u, 81u}) {
      for (bool nonFinite : {false, true}) {
        const std::size_t count = 37 + len;
        const V x = awkward_values(rng, count + len, nonFinite);
        V std(count), hi(count), lo(count), range(count), corr(count), scratch(3 * (count + len));
        k.window_std(x.data(), len, count, std.data());
        k.window_max(x.data(), len, count, hi.data(), scratch.data(), rtNaN);
        k.window_min(x.data(), len, count, lo.data(), scratch.data(), rtNaN);
        k.window_range(x.data(), len, count, range.data(), scratch.data(), rtNaN);
        const V tmpl(x.begin() + 3, x.begin() + 3 + static_cast<std::ptrdiff_t>(len));
        V centred(len);
        double sum = 0.0;
        for (double v : tmpl) sum += v;
        for (std::size_t j = 0; j < len; ++j) centred[j] = tmpl[j] - sum / static_cast<double>(len);
        if (len >= 2) k.window_corr(x.data(), len, count, centred.data(), kelo::kern::std_dev(tmpl), corr.data());
        V wantStd(count), wantHi(count), wantLo(count), wantRange(count), wantCorr(count);
        for (std::size_t j = 0; j < count; ++j) {
          const auto w = std::span<const double>(x).subspan(j, len);
          wantStd[j] = kelo::kern::std_dev(w);
          wantHi[j] = kelo::kern::max_value(w);
          wantLo[j] = kelo::kern::min_value(w);
          wantRange[j] = wantHi[j] - wantLo[j];
          wantCorr[j] = len >= 2 ? kelo::kern::corr(tmpl, w) : 0.0;
        }
        SCOPED_TRACE("window of " + std::to_string(len));
        EXPECT_SAME_BITS(std, wantStd);
        EXPECT_SAME_BITS(hi, wantHi);
        EXPECT_SAME_BITS(lo, wantLo);
        EXPECT_SAME_BITS(range, wantRange);
        EXPECT_SAME_BITS(corr, wantCorr);
      }
    }
    // The smoother: every span and length, the truncated ends included.
    for (std::size_t n : {0u, 1u, 5u, 64u, 1300u}) {
      const V x = awkward_values(rng, n, n == 64);
      for (double span : {0.5, 1.0, 3.0, 4.0, 17.0, 600.0, 5000.0}) {
        V got(n), want(n);
        kelo::kern::smooth(x, span, got, k);
        kelo::ref::smooth(x, span, want);
        EXPECT_SAME_BITS(got, want) << "n " << n << " span " << span;
      }
    }
  }
}

TEST(FastPaths, MedianBySelectionMatchesTheSortedMedian) {
  std::mt19937 rng(5);
  std::vector<V> cases;
  for (std::size_t n : {0u, 1u, 2u, 3u, 10u, 4097u, 70000u, 70001u, 200000u})
    cases.push_back(awkward_values(rng, n, false));
  // Ties everywhere, both zeros around the middle, sorted and reversed
  // input, a quantised signal, and NaN or infinities.
  cases.push_back(V(100000, 0.5));
  V zeros(90000);
  for (std::size_t k = 0; k < zeros.size(); ++k) zeros[k] = k % 3 == 0 ? -0.0 : (k % 3 == 1 ? 0.0 : (k < 45000 ? -1.0 : 1.0));
  cases.push_back(zeros);
  V ramp(80000);
  for (std::size_t k = 0; k < ramp.size(); ++k) ramp[k] = static_cast<double>(k) - 40000.0;
  cases.push_back(ramp);
  cases.push_back(V(ramp.rbegin(), ramp.rend()));
  V quantised(100001);
  std::normal_distribution<double> g(0.0, 1.0);
  for (double& v : quantised) v = std::round(g(rng) * 20.0) / 200.0;
  cases.push_back(quantised);
  V withNaN = quantised;
  withNaN[77777] = kNaN;
  cases.push_back(withNaN);
  V infinities = ramp;
  infinities[5] = kInf;
  infinities[9] = -kInf;
  cases.push_back(infinities);
  for (const V& x : cases) {
    const double got = kelo::kern::median(x), want = kelo::ref::median(x);
    EXPECT_TRUE(std::bit_cast<uint64_t>(got) == std::bit_cast<uint64_t>(want) ||
                (std::isnan(got) && std::isnan(want)))
        << "n " << x.size() << ": " << got << " vs " << want;
  }
}

TEST(FastPaths, PeakPlacementMatchesItsPlainForm) {
  std::mt19937 rng(3);
  std::uniform_int_distribution<int> level(0, 4);  // small integers: plateaus and ties
  for (int i = 0; i < 3000; ++i) {
    V x(static_cast<std::size_t>(i % 40));
    for (double& v : x) v = level(rng);
    const kelo::detect::Peak got = kelo::detect::m_findbigpeak(x);
    const kelo::detect::Peak want = kelo::ref::m_findbigpeak(x);
    ASSERT_EQ(got.position, want.position) << testing::PrintToString(x);
    ASSERT_EQ(got.amplitude, want.amplitude) << testing::PrintToString(x);
  }
}

// The bracketing's bounds must hold for whatever the plain arithmetic
// gives: windows with a large offset and a tiny spread, constant windows,
// mixed magnitudes and subnormal values.
TEST(FastPaths, BoundsContainThePlainArithmetic) {
  std::mt19937 rng(17);
  std::normal_distribution<double> g(0.0, 1.0);
  std::uniform_real_distribution<double> scale(-310.0, 300.0);
  for (Isa isa : kelo::simd::runnable_isas()) {
    SCOPED_TRACE(kelo::simd::isa_name(isa));
    const kelo::simd::Kernels& k = kelo::simd::kernels(isa);
    for (int trial = 0; trial < 300; ++trial) {
      const std::size_t len = trial % 2 ? 81 : 599, count = 50;
      V x(count + len);
      const double s = std::pow(10.0, scale(rng) / 2.0);
      const double offset = trial % 3 == 0 ? 1e5 * s : 0.0;
      const double spread = trial % 7 == 0 ? 0.0 : s * std::pow(10.0, -8.0 * (trial % 4));
      for (double& v : x) v = offset + spread * g(rng);
      V prefix(x.size() + 1), squares(x.size() + 1), lo(count), hi(count);
      std::vector<uint32_t> nonFinite(x.size() + 1);
      // The smoother's windows hold non-negative values.
      V magnitudes(x.size());
      for (std::size_t j = 0; j < x.size(); ++j) magnitudes[j] = std::fabs(x[j]);
      double error = kelo::detect::prefix_sums(magnitudes.data(), x.size(), false, prefix.data(), nonFinite.data()).error;
      k.mean_bounds(prefix.data(), len, count, error, lo.data(), hi.data());
      for (std::size_t j = 0; j < count; ++j) {
        if (lo[j] == -2.0) continue;  // no safe bound: the exact value is computed instead
        const double t = kelo::kern::smooth_at(magnitudes, len / 2, j + len / 2) / 2.0;
        ASSERT_TRUE(lo[j] <= t && t <= hi[j]) << lo[j] << " " << t << " " << hi[j];
      }
      error = kelo::detect::prefix_sums(x.data(), x.size(), false, prefix.data(), nonFinite.data()).error;
      const double squareError = kelo::detect::prefix_sums(x.data(), x.size(), true, squares.data(), nonFinite.data()).error;
      k.spread_bounds(prefix.data(), squares.data(), len, count, error, squareError, lo.data(), hi.data());
      for (std::size_t j = 0; j < count; ++j) {
        if (lo[j] == -2.0) continue;
        const double sd = kelo::kern::std_dev(std::span<const double>(x).subspan(j, len));
        ASSERT_TRUE(lo[j] <= sd && sd <= hi[j]) << lo[j] << " " << sd << " " << hi[j] << " trial " << trial;
      }
    }
  }
}

// Where the envelope sits on the threshold or one step beside it, the
// bracketing cannot decide and the exact threshold must: the regions still
// equal those of the full curve. (A changed envelope value moves the
// threshold around it, so each value is set to the threshold it then has.)
TEST(FastPaths, NearTiesFallBackToTheExactThreshold) {
  V ecg = load_f32(data_path("detect/119.f32"));
  ASSERT_FALSE(ecg.empty());
  V scratch(ecg.size());
  kelo::detect::centre(ecg, ecg, scratch);
  const kelo::detect::Widths w = kelo::detect::widths_for(200.0);
  const kelo::simd::Kernels& k = kelo::simd::best_kernels();
  V feature(ecg.size()), spread(ecg.size()), threshold(ecg.size());
  kelo::detect::qrs_feature(ecg, w, feature, k);
  kelo::detect::local_spread(ecg, w.spreadHalfWidth, spread, k);
  kelo::detect::threshold_curve(feature, spread, 200.0, threshold, k);
  std::size_t ties = 0;
  for (std::size_t j = 100; j < feature.size(); j += 701, ++ties) {
    double t = threshold[j];
    for (int round = 0; round < 40 && feature[j] != t; ++round) {
      feature[j] = t;
      t = kelo::detect::threshold_at(feature, ecg, w, 200.0, j);
    }
    if (ties % 3 != 0) feature[j] = std::nextafter(feature[j], ties % 3 == 1 ? kInf : -kInf);
  }
  kelo::detect::threshold_curve(feature, spread, 200.0, threshold, k);
  kelo::detect::BracketStats stats;
  const kelo::detect::Regions got = kelo::detect::regions_without_threshold(ecg, feature, w, 200.0, k, &stats);
  const kelo::detect::Regions want = kelo::detect::candidate_regions(feature, threshold);
  EXPECT_GE(stats.exact, ties / 2);
  EXPECT_EQ(got.start, want.start);
  EXPECT_EQ(got.end, want.end);
}

}  // namespace
