// Writers of small recordings in the binary input formats of keloecg (WFDB
// 212 and 16 with MIT annotations, EDF/BDF, raw floats) and a temporary
// folder per test.
#pragma once

#include <edflib.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace kelo::test {

namespace fs = std::filesystem;

// A fresh temporary folder, removed at the end of the test.
class TempDir {
 public:
  ~TempDir() {
    std::error_code ec;
    fs::remove_all(path_, ec);
  }
  const fs::path& path() const { return path_; }
  fs::path operator/(const std::string& name) const { return path_ / name; }

 private:
  fs::path path_ = ::mkdtemp((fs::temp_directory_path() / "keloecg-test-XXXXXX").string().data());
};

inline void write_text(const fs::path& p, const std::string& text) { std::ofstream(p, std::ios::binary) << text; }

inline std::string read_file(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// Millivolts to ADC units, rounded, with a gain in units per mV.
inline std::vector<int> to_adc(const std::vector<double>& mv, double gain, int baseline) {
  std::vector<int> out;
  for (double v : mv) out.push_back(static_cast<int>(std::lround(v * gain)) + baseline);
  return out;
}

// Samples in format 16 (little-endian) or 212 (pairs (a, b) as the bytes
// a[7:0], b[11:8] a[11:8], b[7:0]; a last odd sample takes two bytes).
inline std::string pack(int format, const std::vector<int>& stream) {
  std::string out;
  for (std::size_t i = 0; i < stream.size(); ++i) {
    const auto v = static_cast<unsigned>(stream[i]);
    if (format == 16) {
      out += {char(v & 0xFF), char(v >> 8 & 0xFF)};
    } else if (i % 2 == 0) {
      out += {char(v & 0xFF), char(v >> 8 & 0xF)};
    } else {
      out.back() = char(static_cast<unsigned char>(out.back()) | (v >> 8 & 0xF) << 4);
      out += char(v & 0xFF);
    }
  }
  return out;
}

// A WFDB record `name` in `dir` with the given signals (ADC units), all in
// one .dat file of the given format (212 or 16); the ADC zero is the
// baseline.
inline fs::path write_wfdb(const fs::path& dir, const std::string& name, int format, double fs,
                           const std::vector<std::vector<int>>& signals, const std::vector<std::string>& names,
                           double gain = 200.0, int baseline = 0, int adc_bits = 12) {
  const std::size_t n = signals.at(0).size();
  std::vector<int> stream;
  for (std::size_t k = 0; k < n; ++k) {
    for (const auto& s : signals) stream.push_back(s[k]);
  }
  write_text(dir / (name + ".dat"), pack(format, stream));
  std::ostringstream hea;
  hea << name << " " << signals.size() << " " << fs << " " << n << "\n";
  for (std::size_t s = 0; s < signals.size(); ++s) {
    unsigned sum = 0;
    for (int v : signals[s]) sum += static_cast<unsigned>(v);
    hea << name << ".dat " << format << " " << gain << "(" << baseline << ") " << adc_bits << " " << baseline << " "
        << signals[s][0] << " " << static_cast<std::int16_t>(sum & 0xFFFF) << " 0 " << names[s] << "\n";
  }
  write_text(dir / (name + ".hea"), hea.str());
  return dir / (name + ".hea");
}

// MIT-format annotations: (sample, code) pairs in time order, less than
// 1024 samples apart (no SKIP entries).
inline void write_mit_annotations(const fs::path& p, const std::vector<std::pair<long, int>>& annotations) {
  std::vector<int> words;
  long time = 0;
  for (auto [sample, code] : annotations) {
    words.push_back(code << 10 | static_cast<int>(sample - time));
    time = sample;
  }
  words.push_back(0);
  write_text(p, pack(16, words));
}

// An EDF+ (or BDF+) file with the given signals in physical units.
inline void write_edf(const fs::path& p, bool bdf, int fs, std::vector<std::vector<double>> signals,
                      const std::vector<std::string>& labels, const std::string& unit, double phys_range) {
  const int handle = edfopen_file_writeonly(p.c_str(), bdf ? EDFLIB_FILETYPE_BDFPLUS : EDFLIB_FILETYPE_EDFPLUS,
                                            static_cast<int>(signals.size()));
  ASSERT_GE(handle, 0);
  for (int s = 0; s < static_cast<int>(signals.size()); ++s) {
    edf_set_samplefrequency(handle, s, fs);
    edf_set_physical_maximum(handle, s, phys_range);
    edf_set_physical_minimum(handle, s, -phys_range);
    edf_set_digital_maximum(handle, s, bdf ? 8388607 : 32767);
    edf_set_digital_minimum(handle, s, bdf ? -8388608 : -32768);
    edf_set_label(handle, s, labels[static_cast<std::size_t>(s)].c_str());
    edf_set_physical_dimension(handle, s, unit.c_str());
  }
  for (std::size_t rec = 0; rec + static_cast<std::size_t>(fs) <= signals[0].size(); rec += static_cast<std::size_t>(fs)) {
    for (auto& sig : signals) ASSERT_EQ(edfwrite_physical_samples(handle, sig.data() + rec), 0);
  }
  edfclose_file(handle);
}

// Raw little-endian samples as float (f32) or double (f64).
template <typename T>
inline void write_raw(const fs::path& p, const std::vector<double>& x) {
  const std::vector<T> v(x.begin(), x.end());
  write_text(p, std::string(reinterpret_cast<const char*>(v.data()), v.size() * sizeof(T)));
}

}  // namespace kelo::test
