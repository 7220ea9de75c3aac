// Beat classification of one minute at several sampling rates, a fifth of
// the beats inverted (abnormal at every shift, the costly case): the time per
// minute grows with the square of the rate.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "keloecgsolver/classify.h"
#include "keloecgsolver/lifecycle.h"
#include "support/emx_builders.hpp"
#include "support/synthetic_ecg.hpp"

namespace {

void BM_ClassifyQRSvarMinute(benchmark::State& state) {
  const auto fs = static_cast<int32_t>(state.range(0));
  std::vector<kelo::test::Beat> beats;
  std::vector<int32_t> positions;
  for (int64_t k = 0, p = fs / 2; p < 59 * fs; ++k, p += fs * 4 / 5) {
    beats.push_back({p, k % 5 == 2 ? kelo::test::BeatShape::Inverted : kelo::test::BeatShape::Normal});
    positions.push_back(static_cast<int32_t>(p) + 1);
  }
  const auto x = kelo::test::synthetic_ecg(beats, static_cast<std::size_t>(60 * fs),
                                           {.fs = static_cast<double>(fs), .noiseMv = 0.02});
  const auto signal = kelo::test::column(x);
  const auto peaks = kelo::test::int_column(positions);
  kelo::EmxInt32 classes(1);
  classifyQRSvar_initialize();
  for (auto _ : state) {
    classifyQRSvar(signal, peaks, static_cast<int32_t>(positions.size()), fs, classes);
    benchmark::DoNotOptimize(classes->data);
  }
  state.counters["beats"] = static_cast<double>(positions.size());
}
BENCHMARK(BM_ClassifyQRSvarMinute)->Arg(200)->Arg(500)->Arg(1000)->Arg(2000)->Unit(benchmark::kMillisecond);

}  // namespace
