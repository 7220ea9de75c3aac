// detectWaves and the detector on recordings of 10 minutes, 30 minutes and
// 24 hours at 200 Hz. Run from the default preset:
//   build/default/bench/bench_detect
//
// The recordings: bench/recordings.hpp.
//
// Counters: samples/s, peak_B/sample (the most heap in use during one
// call, beyond the caller's input, per sample) and the instruction-set path
// the kernels took.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "alloc_meter.hpp"
#include "recordings.hpp"
#include "detect/detector.hpp"
#include "keloecgsolver/beats.h"
#include "keloecgsolver/detect.h"
#include "keloecgsolver/lifecycle.h"
#include "reference/detector.hpp"
#include "runtime/emx.hpp"

namespace {

using kelo::bench::kFs;
using kelo::bench::recording;

kelo::EmxReal column(const std::vector<double>& values) {
  kelo::EmxReal r(2);
  kelo::resize(r.get(), {static_cast<int32_t>(values.size()), 1});
  std::copy(values.begin(), values.end(), r.span().begin());
  return r;
}

void report(benchmark::State& state, std::size_t samples, std::size_t peakBytes) {
  state.counters["samples/s"] = benchmark::Counter(static_cast<double>(samples),
                                                   benchmark::Counter::kIsIterationInvariantRate);
  state.counters["peak_B/sample"] = static_cast<double>(peakBytes) / static_cast<double>(samples);
  state.SetLabel(kelo::simd::isa_name(kelo::simd::best_isa()));
}

void BM_DetectWaves(benchmark::State& state) {
  const std::vector<double> ecg = recording(state.range(0));
  if (ecg.empty()) return state.SkipWithError("recording not found");
  const kelo::EmxReal x = column(ecg);
  detectWaves_initialize();
  std::size_t peak = 0;
  for (auto _ : state) {
    kelo::EmxInt32 rPeaks(2), windows(2);
    int32_t quality = 0;
    const std::size_t before = kelo::bench::heap_use().current;
    kelo::bench::reset_heap_peak();
    detectWaves(x, 10.0, kFs, 10, rPeaks, &quality, windows);
    peak = kelo::bench::heap_use().peak - before;
    benchmark::DoNotOptimize(quality);
  }
  report(state, ecg.size(), peak);
}

// The exported detector, which also returns its threshold curve (computed
// in full, one pow per sample).
void BM_Detector(benchmark::State& state) {
  const std::vector<double> ecg = recording(state.range(0));
  if (ecg.empty()) return state.SkipWithError("recording not found");
  detectWaves_initialize();
  std::size_t peak = 0;
  for (auto _ : state) {
    state.PauseTiming();
    kelo::EmxReal x = column(ecg);  // the detector centres its input
    kelo::EmxReal rpeaks(1), feature(1), threshold(1);
    state.ResumeTiming();
    const std::size_t before = kelo::bench::heap_use().current;
    kelo::bench::reset_heap_peak();
    m_analyze_ecg_offline_r(x, static_cast<double>(kFs), rpeaks, feature, threshold);
    peak = kelo::bench::heap_use().peak - before;
    benchmark::DoNotOptimize(rpeaks->data);
  }
  report(state, ecg.size(), peak);
}

// The plain forms that the library's routines replace, for comparison.
void BM_DetectWavesPlain(benchmark::State& state) {
  const std::vector<double> ecg = recording(state.range(0));
  if (ecg.empty()) return state.SkipWithError("recording not found");
  detectWaves_initialize();
  for (auto _ : state) benchmark::DoNotOptimize(kelo::ref::detect_waves(ecg, 10.0, kFs, 10));
  state.counters["samples/s"] = benchmark::Counter(static_cast<double>(ecg.size()),
                                                   benchmark::Counter::kIsIterationInvariantRate);
}

// Every beat with its label: the exported detector's work plus the second
// pass over its curves.
void BM_LabelledBeats(benchmark::State& state) {
  const std::vector<double> ecg = recording(state.range(0));
  if (ecg.empty()) return state.SkipWithError("recording not found");
  const kelo::EmxReal x = column(ecg);
  std::size_t peak = 0;
  for (auto _ : state) {
    kelo::EmxInt32 positions(2), labels(2);
    const std::size_t before = kelo::bench::heap_use().current;
    kelo::bench::reset_heap_peak();
    benchmark::DoNotOptimize(kelo_detectBeats(x, kFs, positions, labels));
    peak = kelo::bench::heap_use().peak - before;
  }
  report(state, ecg.size(), peak);
}

}  // namespace

BENCHMARK(BM_LabelledBeats)->Arg(30)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DetectWaves)->Arg(10)->Arg(30)->Arg(24 * 60)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Detector)->Arg(30)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DetectWavesPlain)->Arg(10)->Unit(benchmark::kMillisecond);
