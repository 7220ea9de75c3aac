// keloecg on long recordings: resampling a day of ECG from 360 to 200 Hz,
// and the HRV run on five minutes cut from a 24-hour file against the same
// run on a five-minute file (the excerpt and its margin are read and
// resampled alone). Run from the default preset:
//   build/default/bench/bench_tools
#include <benchmark/benchmark.h>

#include <unistd.h>

#include "analysis.hpp"
#include "day_recording.hpp"
#include "recording.hpp"
#include "resample.hpp"

namespace {

namespace fs = std::filesystem;
using namespace keloecg;

// The benchmark's recordings, written once into a temporary folder.
struct Files {
  fs::path dir;
  fs::path day, five;
  Files() {
    dir = fs::temp_directory_path() / ("keloecg-bench-" + std::to_string(::getpid()));
    fs::create_directories(dir);
    day = kelo::bench::write_day_record(dir, "day", kelo::bench::kDayFrames);
    five = kelo::bench::write_day_record(dir, "five", kelo::bench::kFiveMinuteFrames);
  }
  ~Files() {
    std::error_code ec;
    fs::remove_all(dir, ec);
  }
};

const Files& files() {
  static const Files f;
  return f;
}

void BM_ResampleDay360To200(benchmark::State& state) {
  const Recording rec = load_recording(files().day, {});
  const Resampler resampler(rec.fs, kAnalysisRate);
  const auto n = static_cast<std::int64_t>(rec.samples.size());
  std::vector<double> out(static_cast<std::size_t>(resampler.output_length(n)));
  for (auto _ : state) {
    resampler.run(rec.samples, 0, n, 0, out);
    benchmark::DoNotOptimize(out.data());
  }
  state.counters["input samples/s"] =
      benchmark::Counter(static_cast<double>(n), benchmark::Counter::kIsIterationInvariantRate);
  state.counters["taps"] = resampler.taps();
}

// What `keloecg hrv --start S --duration 300 FILE` computes (without
// printing): read, resample, detect, heart rate and HRV.
void hrv_run(benchmark::State& state, const fs::path& file, double start_s) {
  AnalysisSettings settings;
  settings.start_s = start_s;
  settings.duration_s = 300.0;
  std::size_t beats = 0;
  for (auto _ : state) {
    Prepared p = prepare(load_recording(file, read_window({}, settings)), settings);
    const Excerpt e = choose_excerpt(p, settings, RunKind::Hrv);
    const HrvResult h = run_hrv(run_qrs(p, e, settings), hrv_options(e, false));
    beats = h.qrs.r_peaks.size();
    benchmark::DoNotOptimize(h.whole.time.data());
  }
  state.counters["beats"] = static_cast<double>(beats);
}

void BM_HrvFiveMinuteFile(benchmark::State& state) { hrv_run(state, files().five, 0.0); }
void BM_HrvFiveMinutesOfADay(benchmark::State& state) { hrv_run(state, files().day, 43200.0); }

}  // namespace

BENCHMARK(BM_ResampleDay360To200)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_HrvFiveMinuteFile)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HrvFiveMinutesOfADay)->Unit(benchmark::kMillisecond);
