// The missed-beat search against its plain form (src/reference), the whole
// output list and the count compared: on the bundled recordings with beats
// left out, and on generated signals and lists (NaN and infinite samples,
// flat and clipped stretches, gaps of every length, beats outside the
// signal, counts from 0 to the whole list, odd sampling rates).
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "keloecgsolver/classify.h"
#include "keloecgsolver/lifecycle.h"
#include "reference/routines.hpp"
#include "support/synthetic_ecg.hpp"

namespace {

using Ints = std::vector<int32_t>;
constexpr int32_t kLen = KELO_REFINE_LENGTH;

struct Case {
  std::string name;
  std::vector<double> x;  // kLen samples
  Ints beats;             // the first n of a kLen list (zeros after)
  int32_t n;
  int32_t fs = 200;
};

std::vector<double> read_f32(const std::string& name) {
  const char* dir = std::getenv("KELO_TEST_DATA");
  std::ifstream in(std::string(dir != nullptr ? dir : KELO_TEST_DATA_DIR) + "/" + name, std::ios::binary);
  std::vector<double> x;
  float f;
  while (in.read(reinterpret_cast<char*>(&f), sizeof f)) x.push_back(f);
  x.resize(kLen, 0.0);
  return x;
}

Ints read_rpeaks(const std::string& name) {
  const char* dir = std::getenv("KELO_TEST_DATA");
  std::ifstream in(std::string(dir != nullptr ? dir : KELO_TEST_DATA_DIR) + "/" + name);
  Ints r;
  for (int32_t p; in >> p;) r.push_back(p);
  return r;
}

// Every `every`-th beat from `phase` left out.
Ints thinned(const Ints& beats, std::size_t every, std::size_t phase) {
  Ints out;
  for (std::size_t k = 0; k < beats.size(); ++k)
    if (k % every != phase) out.push_back(beats[k]);
  return out;
}

std::vector<Case> cases() {
  std::vector<Case> out;
  for (const char* r : {"100", "119", "203"}) {
    const auto x = read_f32(std::string("detect/") + r + ".f32");
    const Ints peaks = read_rpeaks(std::string("detect/") + r + ".rpeaks.txt");
    out.push_back({std::string("record ") + r, x, peaks, static_cast<int32_t>(peaks.size())});
    for (std::size_t every : {3, 7, 20}) {
      const Ints kept = thinned(peaks, every, 1);
      out.push_back({std::string("record ") + r + " thinned " + std::to_string(every), x, kept,
                     static_cast<int32_t>(kept.size())});
    }
  }
  std::mt19937 rng(5);
  for (int trial = 0; trial < 24; ++trial) {
    std::vector<kelo::test::Beat> beats;
    Ints listed;
    std::uniform_int_distribution<int32_t> rr(120, 260), gap(1, 5);
    for (int64_t p = 40; p < kLen - 40; p += rr(rng)) {
      beats.push_back({p, trial % 4 == 1 ? kelo::test::BeatShape::Inverted : kelo::test::BeatShape::Normal});
      if (gap(rng) > 1 || trial % 6 == 0) listed.push_back(static_cast<int32_t>(p) + 1);
    }
    auto x = kelo::test::synthetic_ecg(beats, kLen, {.noiseMv = 0.03, .wanderMv = 0.1, .seed = 100u + trial});
    if (trial % 5 == 2) x[9000 + trial] = std::numeric_limits<double>::quiet_NaN();
    if (trial % 5 == 3) x[20000] = std::numeric_limits<double>::infinity();
    if (trial % 5 == 4) std::fill(x.begin() + 5000, x.begin() + 9000, 1.5);  // clipped
    if (trial % 7 == 5) std::fill(x.begin() + 12000, x.begin() + 20000, 0.0);  // flat
    const auto n = static_cast<int32_t>(trial < 6 ? std::min<std::size_t>(trial, listed.size()) : listed.size());
    out.push_back({"generated " + std::to_string(trial), x, listed, n, trial % 8 == 7 ? 360 : 200});
  }
  const auto x = kelo::test::synthetic_ecg(kelo::test::regular_beats(100, 160, 220), kLen);
  Ints odd{INT32_MIN, -50, 0, 1, 400, 2000, 35990, 36000, 36001, 70000, INT32_MAX};
  for (int32_t fs : {0, -200, 37, 5000, INT32_MAX}) out.push_back({"odd positions", x, odd, 11, fs});
  Ints full(kLen);
  for (int32_t k = 0; k < kLen; ++k) full[k] = 1 + k * (k % 50 == 0 ? 1 : 1);
  full[kLen / 2] = full[kLen / 2 - 1];
  out.push_back({"whole list", x, full, kLen + 7});
  return out;
}

TEST(ClassifyFastPaths, RefinementMatchesThePlainSearch) {
  refineQrsDetection_initialize();
  for (const Case& c : cases()) {
    Ints in(kLen, 0);
    std::copy_n(c.beats.begin(), std::min<std::size_t>(c.beats.size(), kLen), in.begin());
    Ints fast(kLen, -1), plain(kLen, -1);
    int32_t fastCount = -9, plainCount = -9;
    refineQrsDetection(c.x.data(), in.data(), c.n, c.fs, fast.data(), &fastCount);
    kelo::ref::refine_qrs_detection(c.x.data(), in.data(), c.n, c.fs, plain.data(), &plainCount);
    EXPECT_EQ(fastCount, plainCount) << c.name;
    EXPECT_EQ(fast, plain) << c.name;
  }
}

}  // namespace
