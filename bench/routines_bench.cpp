// The analysis routines besides detection, on 10 minutes of ECG at 200 Hz
// (the fixed-length routines on their 3-minute or 15-second arrays) and the
// beat-list routines also on a 24-hour series of 100,000 beats. Run from the
// default preset:
//   build/default/bench/bench_routines
//
// The recordings: bench/recordings.hpp. Beat lists come from detectWaves on
// them; the 24-hour series repeats the intervals of the 10-minute list.
//
// Counters: items/s (samples for the routines that read a signal, beats for
// those that read a beat list), peak_B/item (the most heap in use during
// one call beyond the caller's input, per item) and, where a vectorised
// kernel runs, the instruction-set path as the label.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <vector>

#include "alloc_meter.hpp"
#include "detect/window_quality.hpp"
#include "keloecgsolver/checks.h"
#include "keloecgsolver/classify.h"
#include "keloecgsolver/detect.h"
#include "keloecgsolver/heart_rate.h"
#include "keloecgsolver/hrv.h"
#include "keloecgsolver/lifecycle.h"
#include "recordings.hpp"
#include "reference/routines.hpp"
#include "runtime/emx.hpp"
#include "runtime/simd/isa.hpp"

namespace {

using kelo::bench::kFs;

constexpr std::size_t kFixed = 36000;      // 3 minutes at 200 Hz
constexpr std::size_t kShort = 3000;       // 15 seconds
constexpr std::size_t kDayBeats = 100000;  // about 24 hours

kelo::EmxReal column(const std::vector<double>& values) {
  kelo::EmxReal r(1);
  kelo::resize_column(r.get(), static_cast<int32_t>(values.size()));
  std::copy(values.begin(), values.end(), r.span().begin());
  return r;
}

kelo::EmxInt32 int_column(const std::vector<int32_t>& values) {
  kelo::EmxInt32 r(1);
  kelo::resize_column(r.get(), static_cast<int32_t>(values.size()));
  std::copy(values.begin(), values.end(), r.span().begin());
  return r;
}

// A recording and the 1-based R peaks detectWaves finds in it.
struct Recording {
  std::vector<double> ecg;
  std::vector<int32_t> beats;
};

Recording detected(int64_t minutes) {
  Recording r{kelo::bench::recording(minutes), {}};
  if (r.ecg.empty()) return r;
  detectWaves_initialize();
  const kelo::EmxReal x = column(r.ecg);
  kelo::EmxInt32 peaks(2), windows(2);
  int32_t quality = 0;
  detectWaves(x, 10.0, kFs, 10, peaks, &quality, windows);
  const auto s = peaks.span();
  r.beats.assign(s.begin(), s.end());
  return r;
}

const Recording& ten_minutes() {
  static const Recording r = detected(10);
  return r;
}

const Recording& three_minutes() {
  static const Recording r = detected(3);
  return r;
}

// `count` beats whose intervals repeat those of the 10-minute list.
std::vector<int32_t> tiled_beats(std::size_t count) {
  const std::vector<int32_t>& b = ten_minutes().beats;
  std::vector<int32_t> out;
  if (b.size() < 2) return out;
  out.push_back(b[0]);
  for (std::size_t k = 1; out.size() < count; ++k) {
    const std::size_t i = 1 + (k - 1) % (b.size() - 1);
    out.push_back(out.back() + (b[i] - b[i - 1]));
  }
  return out;
}

// A beat list with extra detections: every 25th beat gets a second one 30
// samples after it, so the RR checks have short intervals to remove.
std::vector<int32_t> with_extra_beats(const std::vector<int32_t>& beats) {
  std::vector<int32_t> out;
  for (std::size_t k = 0; k < beats.size(); ++k) {
    out.push_back(beats[k]);
    if (k % 25 == 12 && k + 1 < beats.size()) out.push_back(beats[k] + 30);
  }
  return out;
}

// The first `count` entries of v in a fixed-length array (zeros after).
template <class T>
std::vector<T> fixed(const std::vector<T>& v, std::size_t length, std::size_t count) {
  std::vector<T> out(length, T{});
  std::copy_n(v.begin(), std::min({count, v.size(), length}), out.begin());
  return out;
}

// The beats below `limit` (1-based sample numbers).
std::vector<int32_t> beats_below(const std::vector<int32_t>& beats, int32_t limit) {
  std::vector<int32_t> out;
  for (int32_t b : beats)
    if (b <= limit) out.push_back(b);
  return out;
}

// Times `call` and reports items/s and the peak heap per item; `setup`
// runs untimed (and unmeasured) before each call.
void run(benchmark::State& state, std::size_t items, const std::function<void()>& call,
         const char* label = nullptr, const std::function<void()>& setup = {}) {
  std::size_t peak = 0;
  for (auto _ : state) {
    if (setup) {
      state.PauseTiming();
      setup();
      state.ResumeTiming();
    }
    const std::size_t before = kelo::bench::heap_use().current;
    kelo::bench::reset_heap_peak();
    call();
    peak = kelo::bench::heap_use().peak - before;
  }
  state.counters["items/s"] = benchmark::Counter(static_cast<double>(items),
                                                 benchmark::Counter::kIsIterationInvariantRate);
  state.counters["peak_B/item"] = static_cast<double>(peak) / static_cast<double>(items);
  state.counters["items"] = static_cast<double>(items);
  if (label != nullptr) state.SetLabel(label);
}

const char* best_path() { return kelo::simd::isa_name(kelo::simd::best_isa()); }

// ---- window grading and heart rate --------------------------------------------

void BM_WindowQuality(benchmark::State& state) {
  const Recording rec = state.range(0) == 10 ? ten_minutes() : detected(state.range(0));
  if (rec.ecg.empty()) return state.SkipWithError("recording not found");
  const kelo::EmxReal x = column(rec.ecg);
  const kelo::EmxInt32 peaks = int_column(rec.beats);
  kelo::EmxInt32 grades(1);
  run(state, rec.ecg.size(), [&] {
    kelo::detect::m_checkWindowQuality(x, kFs, 10.0, peaks, 10, grades);
    benchmark::DoNotOptimize(grades->data);
  });
}

void BM_CalcHRvar(benchmark::State& state) {
  const std::vector<int32_t> beats = state.range(0) == 0 ? ten_minutes().beats : tiled_beats(kDayBeats);
  if (beats.size() < 2) return state.SkipWithError("recording not found");
  const kelo::EmxInt32 b = int_column(beats);
  calcHRvar_initialize();
  run(state, beats.size(), [&] {
    benchmark::DoNotOptimize(calcHRvar(b, static_cast<int32_t>(beats.size()), kFs));
  });
}

template <std::size_t Length, double (*Fn)(const int32_t*, int32_t, int32_t)>
void BM_CalcHRfixed(benchmark::State& state) {
  const std::vector<int32_t>& all = ten_minutes().beats;
  if (all.size() < 2) return state.SkipWithError("recording not found");
  const auto n = std::min(all.size(), Length);
  const std::vector<int32_t> beats = fixed(all, Length, n);
  calcHR_initialize();
  run(state, n, [&] { benchmark::DoNotOptimize(Fn(beats.data(), static_cast<int32_t>(n), kFs)); });
}

// ---- heart-rate variability ------------------------------------------------------

void BM_CalcHrv(benchmark::State& state) {
  const std::vector<int32_t> beats = state.range(0) == 0 ? ten_minutes().beats : tiled_beats(kDayBeats);
  if (beats.size() < 4) return state.SkipWithError("recording not found");
  std::array<double, 7> timeResults{};
  std::array<double, 6> freqResults{};
  int32_t status = 0;
  run(
      state, beats.size(),
      [&] {
        calcHrv(beats.data(), static_cast<int32_t>(beats.size() - 1), kFs, timeResults.data(),
                freqResults.data(), &status);
        benchmark::DoNotOptimize(freqResults.data());
      },
      best_path());
}

// ---- checks ------------------------------------------------------------------------

template <std::size_t Length,
          int32_t (*Fn)(const double*, int32_t, double, const int32_t*, int32_t)>
void BM_CheckQuality(benchmark::State& state) {
  const Recording& rec = three_minutes();
  if (rec.ecg.empty()) return state.SkipWithError("recording not found");
  const std::vector<double> ecg = fixed(rec.ecg, Length, Length);
  const std::vector<int32_t> inside = beats_below(rec.beats, static_cast<int32_t>(Length));
  const std::vector<int32_t> beats = fixed(inside, Length, inside.size());
  checkQuality_initialize();
  run(state, Length, [&] {
    benchmark::DoNotOptimize(Fn(ecg.data(), static_cast<int32_t>(Length), 10.0, beats.data(),
                                static_cast<int32_t>(inside.size())));
  });
}

template <std::size_t Length, void (*Fn)(const int32_t*, int32_t, int32_t*, int32_t*, int32_t*)>
void BM_CheckRRfixed(benchmark::State& state) {
  const std::vector<int32_t> all = with_extra_beats(ten_minutes().beats);
  if (all.size() < 2) return state.SkipWithError("recording not found");
  const std::size_t n = std::min(all.size(), Length);
  const std::vector<int32_t> beats = fixed(all, Length, n);
  std::vector<int32_t> classes(Length), clean(Length);
  checkRR_initialize();
  run(
      state, n,
      [&] {
        int32_t count = 0;
        Fn(beats.data(), static_cast<int32_t>(n), classes.data(), clean.data(), &count);
        benchmark::DoNotOptimize(count);
      },
      nullptr, [&] { std::fill(classes.begin(), classes.end(), 0); });
}

template <void (*Fn)(emxArray_int32_T*, int32_t*, emxArray_int32_T*)>
void BM_CheckRRvar(benchmark::State& state) {
  const std::vector<int32_t> beats =
      with_extra_beats(state.range(0) == 0 ? ten_minutes().beats : tiled_beats(kDayBeats));
  if (beats.size() < 2) return state.SkipWithError("recording not found");
  const std::vector<int32_t> zeros(beats.size(), 0);
  checkRRvar_initialize();
  kelo::EmxInt32 b = int_column(beats);
  kelo::EmxInt32 classes = int_column(zeros);
  run(
      state, beats.size(),
      [&] {
        int32_t n = static_cast<int32_t>(beats.size());
        Fn(b, &n, classes);
        benchmark::DoNotOptimize(n);
      },
      nullptr,
      [&] {
        std::copy(beats.begin(), beats.end(), b.span().begin());
        std::fill(classes.span().begin(), classes.span().end(), 0);
      });
}

// ---- classification and refinement ----------------------------------------------------

template <std::size_t Length, void (*Fn)(const double*, const int32_t*, int32_t, int32_t*)>
void BM_ClassifyFixed(benchmark::State& state) {
  const Recording& rec = three_minutes();
  if (rec.ecg.empty()) return state.SkipWithError("recording not found");
  const std::vector<double> ecg = fixed(rec.ecg, Length, Length);
  const std::vector<int32_t> beats = beats_below(rec.beats, static_cast<int32_t>(Length));
  std::vector<int32_t> classes(Length);
  classifyQRS_initialize();
  run(state, Length, [&] {
    Fn(ecg.data(), beats.data(), static_cast<int32_t>(beats.size()), classes.data());
    benchmark::DoNotOptimize(classes.data());
  });
}

void BM_ClassifyQRSvar(benchmark::State& state) {
  const Recording& rec = ten_minutes();
  if (rec.ecg.empty()) return state.SkipWithError("recording not found");
  const kelo::EmxReal x = column(rec.ecg);
  const kelo::EmxInt32 peaks = int_column(rec.beats);
  kelo::EmxInt32 classes(1);
  classifyQRSvar_initialize();
  run(state, rec.ecg.size(), [&] {
    classifyQRSvar(x, peaks, static_cast<int32_t>(rec.beats.size()), kFs, classes);
    benchmark::DoNotOptimize(classes->data);
  });
}

// Three minutes with every eighth beat left out, so that the search has
// gaps to fill.
template <void (*Fn)(const double*, const int32_t*, int32_t, int32_t, int32_t*, int32_t*)>
void BM_RefineQrsDetection(benchmark::State& state) {
  const Recording& rec = three_minutes();
  if (rec.ecg.empty()) return state.SkipWithError("recording not found");
  std::vector<int32_t> kept;
  const std::vector<int32_t> inside = beats_below(rec.beats, static_cast<int32_t>(kFixed));
  for (std::size_t k = 0; k < inside.size(); ++k)
    if (k % 8 != 4) kept.push_back(inside[k]);
  const std::vector<int32_t> beats = fixed(kept, kFixed, kept.size());
  std::vector<int32_t> out(kFixed);
  refineQrsDetection_initialize();
  run(state, kFixed, [&] {
    int32_t count = 0;
    Fn(rec.ecg.data(), beats.data(), static_cast<int32_t>(kept.size()), kFs, out.data(),
                       &count);
    benchmark::DoNotOptimize(out.data());
  });
}

}  // namespace

BENCHMARK(BM_WindowQuality)->Arg(10)->Arg(24 * 60)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CalcHRvar)->ArgName("day")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CalcHRfixed<KELO_CALCHR_LENGTH, calcHR>)->Name("BM_CalcHR")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CalcHRfixed<KELO_CALCHR_SHORT_LENGTH, calcHRshort>)
    ->Name("BM_CalcHRshort")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CalcHrv)->ArgName("day")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CheckQuality<kFixed, checkQuality>)->Name("BM_CheckQuality")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CheckQuality<kShort, checkQualityShort>)
    ->Name("BM_CheckQualityShort")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CheckRRfixed<kFixed, checkRR>)->Name("BM_CheckRR")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CheckRRfixed<kShort, checkRRshort>)->Name("BM_CheckRRshort")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CheckRRvar<checkRRvar>)->Name("BM_CheckRRvar")->ArgName("day")->Arg(0)->Arg(1)
    ->Unit(benchmark::kMillisecond);
// The plain sweeps, for comparison (quadratic in the beats removed).
BENCHMARK(BM_CheckRRvar<kelo::ref::check_rr_var>)->Name("BM_CheckRRvarPlain")->ArgName("day")->Arg(0)->Arg(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ClassifyFixed<kFixed, classifyQRS>)->Name("BM_ClassifyQRS")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ClassifyFixed<kShort, classifyQRSshort>)
    ->Name("BM_ClassifyQRSshort")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ClassifyQRSvar)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RefineQrsDetection<refineQrsDetection>)->Name("BM_RefineQrsDetection")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RefineQrsDetection<kelo::ref::refine_qrs_detection>)->Name("BM_RefineQrsDetectionPlain")
    ->Unit(benchmark::kMillisecond);
