// Recordings of the benchmarks: the bundled three-minute excerpts of the
// detection tests (records 100, 119 and 203 of the MIT-BIH Arrhythmia
// Database, see tests/data/detect/README.md) laid end to end as often as
// needed, at 200 Hz. With KELO_BENCH_RECORDING set to a raw float32 file at
// 200 Hz (a whole 30-minute record, say), that recording is used instead,
// repeated to length.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace kelo::bench {

inline constexpr int32_t kFs = 200;

inline std::vector<double> read_f32(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<double> x;
  float f;
  while (in.read(reinterpret_cast<char*>(&f), sizeof f)) x.push_back(f);
  return x;
}

// `minutes` of ECG at 200 Hz (30 minutes: the 361,112 samples of a whole
// MIT-BIH record). Empty when the excerpts cannot be read.
inline std::vector<double> recording(int64_t minutes) {
  std::vector<double> source;
  if (const char* path = std::getenv("KELO_BENCH_RECORDING")) source = read_f32(path);
  if (source.empty())
    for (const char* r : {"100", "119", "203"}) {
      const std::vector<double> part = read_f32(std::string(KELO_DETECT_DATA_DIR) + "/" + r + ".f32");
      source.insert(source.end(), part.begin(), part.end());
    }
  const std::size_t n = minutes == 30 ? 361112 : static_cast<std::size_t>(minutes * 60 * kFs);
  std::vector<double> x;
  if (source.empty()) return x;
  x.reserve(n);
  while (x.size() < n) x.push_back(source[x.size() % source.size()]);
  return x;
}

}  // namespace kelo::bench
