// The detector and the heart rate keep no state: runs on two threads at once
// (each with its own initialiser call, as the Java bridge makes them) give
// the results of one run after the other. The thread-sanitizer build checks
// that they share nothing.
#include <gtest/gtest.h>

#include <thread>

#include "detect/detect_support.hpp"
#include "keloecgsolver/heart_rate.h"
#include "support/synthetic_ecg.hpp"

namespace {

using namespace kelo::test;

struct Outcome {
  WavesResult waves;
  double hr = 0.0;
};

Outcome analyse(const V& ecg) {
  Outcome r{run_detect_waves(ecg, 200), 0.0};
  calcHRvar_initialize();
  r.hr = calcHRvar(int_column(r.waves.rPeaks), static_cast<int32_t>(r.waves.rPeaks.size()), 200);
  return r;
}

TEST(Concurrency, TwoRunsAtOnceEqualOneAfterTheOther) {
  const V a = synthetic_ecg(regular_beats(100, 160, 70), 12000, {.noiseMv = 0.03, .seed = 1});
  std::vector<Beat> irregular;
  for (int64_t p = 90, i = 0; p < 11900; p += (i++ % 2 == 0 ? 120 : 190)) irregular.push_back({p});
  const V b = synthetic_ecg(irregular, 12000, {.noiseMv = 0.03, .seed = 2});
  const Outcome seqA = analyse(a), seqB = analyse(b);
  ASSERT_GT(seqA.waves.rPeaks.size(), 60u);
  for (int round = 0; round < 2; ++round) {
    Outcome parA, parB;
    std::thread ta([&] { parA = analyse(a); });
    std::thread tb([&] { parB = analyse(b); });
    ta.join();
    tb.join();
    EXPECT_EQ(parA.waves.rPeaks, seqA.waves.rPeaks);
    EXPECT_EQ(parA.waves.windowQualities, seqA.waves.windowQualities);
    EXPECT_EQ(parA.hr, seqA.hr);
    EXPECT_EQ(parB.waves.rPeaks, seqB.waves.rPeaks);
    EXPECT_EQ(parB.waves.quality, seqB.waves.quality);
  }
}

}  // namespace
