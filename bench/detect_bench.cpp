// detectWaves and the detector alone on ten minutes of ECG at 200 Hz
// (120,000 samples), tiled from a bundled three-minute excerpt of a real
// recording (tests/data/detect). Run from the default preset:
//   build/default/bench/bench_detect
#include <benchmark/benchmark.h>

#include <bit>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "keloecgsolver/detect.h"
#include "keloecgsolver/lifecycle.h"
#include "runtime/emx.hpp"

namespace {

constexpr int32_t kFs = 200;
constexpr std::size_t kSamples = 120000;  // 10 minutes
const char* const kRecords[] = {"100", "119", "203"};

// The excerpt of `record`, repeated until kSamples samples; empty when the
// file cannot be read.
std::vector<double> ten_minutes(const std::string& record) {
  std::ifstream in(std::string(KELO_DETECT_DATA_DIR) + "/" + record + ".f32", std::ios::binary);
  std::vector<double> excerpt;
  unsigned char b[4];
  while (in.read(reinterpret_cast<char*>(b), 4)) {
    const uint32_t bits = uint32_t{b[0]} | uint32_t{b[1]} << 8 | uint32_t{b[2]} << 16 |
                          uint32_t{b[3]} << 24;
    excerpt.push_back(static_cast<double>(std::bit_cast<float>(bits)));
  }
  std::vector<double> x;
  if (excerpt.empty()) return x;
  while (x.size() < kSamples) x.push_back(excerpt[x.size() % excerpt.size()]);
  return x;
}

kelo::EmxReal column(const std::vector<double>& values) {
  kelo::EmxReal r(2);
  kelo::resize(r.get(), {static_cast<int32_t>(values.size()), 1});
  std::copy(values.begin(), values.end(), r.span().begin());
  return r;
}

void BM_DetectWaves(benchmark::State& state) {
  const std::string record = kRecords[state.range(0)];
  const std::vector<double> ecg = ten_minutes(record);
  if (ecg.empty()) {
    state.SkipWithError("recording not found");
    return;
  }
  const kelo::EmxReal x = column(ecg);
  detectWaves_initialize();
  int32_t beats = 0;
  for (auto _ : state) {
    kelo::EmxInt32 rPeaks(2), windows(2);
    int32_t quality = 0;
    detectWaves(x, 10.0, kFs, 10, rPeaks, &quality, windows);
    beats = rPeaks->size[0];
    benchmark::DoNotOptimize(quality);
  }
  state.SetLabel("record " + record);
  state.counters["beats"] = beats;
  state.counters["samples/s"] =
      benchmark::Counter(static_cast<double>(kSamples), benchmark::Counter::kIsIterationInvariantRate);
}

void BM_Detector(benchmark::State& state) {
  const std::string record = kRecords[state.range(0)];
  const std::vector<double> ecg = ten_minutes(record);
  if (ecg.empty()) {
    state.SkipWithError("recording not found");
    return;
  }
  detectWaves_initialize();
  for (auto _ : state) {
    // The detector centres its input in place: a fresh copy each time (the
    // copy costs well under 1 % of the run).
    kelo::EmxReal x = column(ecg);
    kelo::EmxReal rpeaks(1), feature(1), threshold(1);
    m_analyze_ecg_offline_r(x, static_cast<double>(kFs), rpeaks, feature, threshold);
    benchmark::DoNotOptimize(rpeaks->data);
  }
  state.SetLabel("record " + record);
  state.counters["samples/s"] =
      benchmark::Counter(static_cast<double>(kSamples), benchmark::Counter::kIsIterationInvariantRate);
}

}  // namespace

BENCHMARK(BM_DetectWaves)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Detector)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
