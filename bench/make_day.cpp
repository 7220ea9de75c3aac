// Writes the day of ECG of the benchmarks into a folder, for measuring the
// program itself (bench/long-recording.sh):
//   bench_make_day DIR
// DIR/day.hea, DIR/day.dat: 24 hours at 360 Hz (the two-hour MIT-BIH test
// recording twelve times, format 212) with DIR/day.atr, its reference
// beats; DIR/day200.f32 with DIR/day200.info: the same at 200 Hz as raw
// float32, resampled by keloecg's converter.
#include <cstdio>
#include <exception>
#include <fstream>

#include "file_util.hpp"
#include "day_recording.hpp"
#include "recording.hpp"
#include "resample.hpp"
#include "wfdb.hpp"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: bench_make_day DIR\n");
    return 2;
  }
  try {
    const std::filesystem::path dir = argv[1];
    std::filesystem::create_directories(dir);
    const auto hea = kelo::bench::write_day_record(dir, "day", kelo::bench::kDayFrames);

    // The reference beats of the two hours, twelve times.
    const auto two_hours = keloecg::wfdb::parse_annotations(
        keloecg::read_bytes(std::filesystem::path(KELO_TOOLS_TEST_DATA) / "mitdb-2h.atr"), "mitdb-2h.atr");
    std::vector<keloecg::wfdb::Annotation> day;
    for (long long k = 0; k < 12; ++k) {
      for (auto a : two_hours) {
        a.sample += k * 2600000;
        if (a.sample < kelo::bench::kDayFrames) day.push_back(a);
      }
    }
    const std::string atr = keloecg::wfdb::encode_annotations(day);
    std::ofstream(dir / "day.atr", std::ios::binary).write(atr.data(), static_cast<std::streamsize>(atr.size()));

    const keloecg::Recording rec = keloecg::load_recording(hea, {});
    const auto at200 = keloecg::resample(rec.samples, rec.fs, keloecg::kAnalysisRate);
    const std::vector<float> f(at200.begin(), at200.end());
    std::ofstream(dir / "day200.f32", std::ios::binary)
        .write(reinterpret_cast<const char*>(f.data()), static_cast<std::streamsize>(f.size() * sizeof(float)));
    std::ofstream(dir / "day200.info") << "fs=200\nfull_scale=5.12\nlead=MLII\nrecord=day200\n";
    std::printf("%s: 24 h at 360 Hz (WFDB) and at 200 Hz (float32)\n", dir.c_str());
  } catch (const std::exception& e) {
    std::fprintf(stderr, "bench_make_day: %s\n", e.what());
    return 1;
  }
  return 0;
}
