// Golden tests on real recordings (three-minute excerpts of the MIT-BIH
// Arrhythmia Database, see tests/data/detect/README.md): detected R peaks
// are matched against the reference beats within 150 ms, and the exact
// output is frozen (R-peak list, grades, and checksums over the bits of the
// detector's raw output and of its feature and threshold curves), so that a
// change that moves a single bit fails.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <string>

#include "detect/detect_support.hpp"

namespace {

using namespace kelo::test;

// FNV-1a over the 8 bytes (least significant first) of each value's bits.
uint64_t checksum(const V& xs) {
  uint64_t h = 14695981039346656037ull;
  for (double v : xs)
    for (int i = 0; i < 8; ++i) h = (h ^ ((std::bit_cast<uint64_t>(v) >> (8 * i)) & 0xFF)) * 1099511628211ull;
  return h;
}

struct Golden {
  const char* record;
  double minSensitivity, minPositivePredictivity;
  int32_t quality;
  I windowQualities;
  uint64_t rpeaksChecksum, featureChecksum, thresholdChecksum;
};

TEST(GoldenRecording, MatchesReferenceBeatsAndFrozenOutput) {
  const Golden records[] = {
      {"100", 0.99, 0.99, 1, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
       15790544614451833428ull, 2363412688791681725ull, 6246910452464323995ull},
      {"119", 0.99, 0.99, 3, {6, 0, 6, 6, 6, 6, 0, 6, 6, 0, 0, 0, 0, 6, 6, 0, 6, 6},
       11291141347814462755ull, 9596038431931040418ull, 4991840777181727309ull},
      {"203", 0.88, 0.97, 3, {6, 0, 6, 0, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 0, 6},
       2630762476047697032ull, 5428109713971017528ull, 6369706892688094327ull}};
  for (const Golden& g : records) {
    SCOPED_TRACE(std::string("record ") + g.record);
    const std::string rec = g.record;
    const V ecg = load_samples(rec);
    ASSERT_EQ(ecg.size(), 36000u) << "cannot read " << data_file(rec + ".f32");
    const auto reference = first_column<int64_t>(rec + ".beats.txt");
    const WavesResult r = run_detect_waves(ecg, 200);
    const std::size_t tp = matched(reference, r.rPeaks, 30);  // 150 ms at 200 Hz
    const double se = double(tp) / double(reference.size());
    const double ppv = double(tp) / double(r.rPeaks.size());
    std::cout << "[ record " << rec << " ] " << reference.size() << " reference beats, "
              << r.rPeaks.size() << " detected, " << tp << " matched: sensitivity " << se
              << ", positive predictivity " << ppv << '\n';
    EXPECT_GE(se, g.minSensitivity);
    EXPECT_GE(ppv, g.minPositivePredictivity);

    EXPECT_EQ(r.rPeaks, first_column<int32_t>(rec + ".rpeaks.txt"));
    EXPECT_EQ(r.quality, g.quality);
    EXPECT_EQ(r.windowQualities, g.windowQualities);
    const DetectorResult d = run_detector(ecg, 200);
    EXPECT_EQ(checksum(d.rpeaks), g.rpeaksChecksum);
    EXPECT_EQ(checksum(d.feature), g.featureChecksum);
    EXPECT_EQ(checksum(d.threshold), g.thresholdChecksum);
  }
  // The checksum sees every bit, the sign of zero and the order.
  EXPECT_NE(checksum({1.0}), checksum({std::nextafter(1.0, 2.0)}));
  EXPECT_NE(checksum({0.0}), checksum({-0.0}));
  EXPECT_NE(checksum({1.0, 2.0}), checksum({2.0, 1.0}));
}

}  // namespace
