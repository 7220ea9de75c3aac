// A day of real ECG for the benchmarks of keloecg: the two-hour MIT-BIH
// recording of the tests (tests/tools/data/mitdb-2h, 360 Hz, format 212)
// played twelve times, as a WFDB record, and its first five minutes as a
// record of their own.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace kelo::bench {

namespace fs = std::filesystem;

inline std::string read_all(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + p.string());
  return {std::istreambuf_iterator<char>(in), {}};
}

// Writes NAME.hea and NAME.dat into dir: `frames` samples at 360 Hz made of
// the two-hour record repeated (its 2,600,000 samples are an even number,
// so the format-212 bytes repeat whole).
inline fs::path write_day_record(const fs::path& dir, const std::string& name, std::int64_t frames) {
  const std::string dat = read_all(fs::path(KELO_TOOLS_TEST_DATA) / "mitdb-2h.dat");
  const auto bytes = static_cast<std::size_t>((frames + 1) / 2 * 3);
  {
    std::ofstream out(dir / (name + ".dat"), std::ios::binary);
    for (std::size_t done = 0; done < bytes;) {
      const std::size_t n = std::min(dat.size(), bytes - done);
      out.write(dat.data(), static_cast<std::streamsize>(n));
      done += n;
    }
  }
  std::ofstream(dir / (name + ".hea")) << name << " 1 360 " << frames << "\n"
                                       << name << ".dat 212 200 11 1024 995 0 0 MLII\n";
  return dir / (name + ".hea");
}

inline constexpr std::int64_t kDayFrames = 24LL * 3600 * 360;
inline constexpr std::int64_t kFiveMinuteFrames = 5LL * 60 * 360;

}  // namespace kelo::bench
