// Writes the seed corpora of the fuzz targets, one folder per target,
// from the bundled recording (data/), its reference beats and the WFDB
// excerpt of the tests: usage make_seeds PROJECT_DIR OUT_DIR.
#include <edflib.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::string read(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  if (!in) throw std::runtime_error("cannot read " + p.string());
  return s.str();
}

void write(const fs::path& p, const std::string& bytes) {
  std::ofstream(p, std::ios::binary) << bytes;
}

void put16(std::string& s, int v) {
  s += static_cast<char>(v & 0xFF);
  s += static_cast<char>((v >> 8) & 0xFF);
}

// Samples in units of 1/200 mV, as the targets read them.
std::string samples16(const std::vector<float>& mv, std::size_t from, std::size_t count) {
  std::string s;
  for (std::size_t i = from; i < from + count && i < mv.size(); ++i) put16(s, static_cast<int>(std::lround(mv[i] * 200.0f)));
  return s;
}

// Gaps for the targets' ascending(): the first position is first + 1 + gap.
std::string gaps(const std::vector<int>& positions, int first) {
  std::string s;
  int at = first;
  for (int p : positions) {
    put16(s, p - at - 1);
    at = p;
  }
  return s;
}

std::string edf_file(const fs::path& dir, const std::vector<float>& mv) {
  const fs::path p = dir / "seed.edf";
  const int h = edfopen_file_writeonly(p.c_str(), EDFLIB_FILETYPE_EDFPLUS, 1);
  if (h < 0) throw std::runtime_error("cannot write an EDF file");
  edf_set_samplefrequency(h, 0, 200);
  edf_set_physical_maximum(h, 0, 5.12);
  edf_set_physical_minimum(h, 0, -5.12);
  edf_set_digital_maximum(h, 0, 32767);
  edf_set_digital_minimum(h, 0, -32768);
  edf_set_label(h, 0, "MLII");
  edf_set_physical_dimension(h, 0, "mV");
  for (std::size_t rec = 0; rec < 5; ++rec) {
    std::vector<double> second(mv.begin() + static_cast<long>(rec * 200), mv.begin() + static_cast<long>(rec * 200 + 200));
    edfwrite_physical_samples(h, second.data());
  }
  edfclose_file(h);
  std::string bytes = read(p);
  fs::remove(p);
  return bytes;
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 3) {
    std::cerr << "usage: make_seeds PROJECT_DIR OUT_DIR\n";
    return 2;
  }
  const fs::path root = argv[1], out = argv[2];
  const std::string raw = read(root / "data/mitdb100-5min.f32");  // 200 Hz, mV
  std::vector<float> mv(raw.size() / 4);
  std::memcpy(mv.data(), raw.data(), mv.size() * 4);
  std::vector<int> beats;  // 0-based sample numbers at 200 Hz
  {
    std::istringstream in(read(root / "data/mitdb100-5min.beats.txt"));
    for (std::string line; std::getline(in, line);) {
      if (!line.empty() && line[0] != '#') beats.push_back(std::stoi(line));
    }
  }
  auto seeds = [&](const std::string& target, const std::vector<std::string>& inputs) {
    fs::create_directories(out / target);
    for (std::size_t i = 0; i < inputs.size(); ++i) write(out / target / ("seed" + std::to_string(i)), inputs[i]);
  };
  auto beats_before = [&](int limit, int shift) {
    std::vector<int> b;
    for (int p : beats) {
      if (p + 1 - shift >= 1 && p + 1 - shift <= limit) b.push_back(p + 1 - shift);  // 1-based
    }
    return b;
  };

  std::vector<std::string> detect;
  for (std::size_t seconds : {15, 30, 60}) {
    detect.push_back(std::string{0, 0, 12} + samples16(mv, seconds * 200, seconds * 200));
  }
  seeds("detect_waves", detect);
  seeds("detector", {std::string(1, '\0') + samples16(mv, 0, 6000), std::string(1, '\0') + samples16(mv, 9000, 3000)});

  // HRV: the whole series, and its first two minutes (the first position
  // word is 1000, that is 0).
  std::string hrv_all = std::string{0, 0};
  put16(hrv_all, 1000);
  std::string hrv_short = hrv_all;
  hrv_all += gaps(beats_before(60000, 0), 0);
  hrv_short += gaps(beats_before(24000, 0), 0);
  seeds("hrv", {hrv_all, hrv_short});

  const std::vector<int> short_beats = beats_before(3000, 0);
  std::string checks = {0, static_cast<char>(short_beats.size()), 1};
  checks += gaps(short_beats, 0);
  checks += std::string(short_beats.size(), '\0');  // classes 0
  checks += samples16(mv, 0, 3000);
  seeds("checks", {checks});

  std::string classify = {0, static_cast<char>(short_beats.size()), 30};
  classify += gaps(short_beats, 0);
  classify += samples16(mv, 0, 3000);
  const std::vector<int> long_beats = beats_before(36000, 0);
  std::vector<int> missing;  // every fifth beat left out, for the search to find
  for (std::size_t i = 0; i < long_beats.size() && missing.size() < 79; ++i) {
    if (i % 5 != 2) missing.push_back(long_beats[i]);
  }
  std::string refine = {1, 0, static_cast<char>(missing.size()), 30};
  refine += gaps(missing, 0);
  refine += samples16(mv, 0, 36000);
  seeds("classify", {classify, refine});

  std::string header = read(root / "tests/tools/data/mitdb100-10s.hea");
  for (std::size_t at; (at = header.find("mitdb100-10s")) != std::string::npos;) header.replace(at, 12, "r");
  std::string csv, csv_header = "time,MLII\n";
  for (std::size_t i = 0; i < 2000; ++i) {
    csv += std::to_string(mv[i]) + "\n";
    csv_header += std::to_string(static_cast<double>(i) / 200.0) + "," + std::to_string(mv[i]) + "\n";
  }
  const std::string sidecar = read(root / "data/mitdb100-5min.info");
  std::vector<double> mv64(mv.begin(), mv.begin() + 2000);
  const std::string f64(reinterpret_cast<const char*>(mv64.data()), mv64.size() * 8);
  std::string text_beats;
  for (int p : beats_before(2000, 0)) text_beats += std::to_string(p) + " N\n";
  seeds("readers", {std::string{0, 0} + header + '\0' + read(root / "tests/tools/data/mitdb100-10s.dat"),
                    std::string{1, 0} + read(root / "tests/tools/data/mitdb100-10s.atr"),
                    std::string{2, 0} + text_beats,
                    std::string{3, 0} + edf_file(out, mv),
                    std::string{4, 0} + csv,
                    std::string{5, 0} + sidecar + '\0' + csv_header,
                    std::string{6, 0} + sidecar + '\0' + raw.substr(0, 8000),
                    std::string{7, 0} + sidecar + '\0' + f64});
  return 0;
} catch (const std::exception& e) {
  std::cerr << "make_seeds: " << e.what() << "\n";
  return 1;
}
