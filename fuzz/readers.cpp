// keloecg's readers on files made of the fuzzer's bytes: WFDB header and
// signal, WFDB and text annotations, EDF/BDF, CSV/text, raw float32 and
// float64 with a sidecar. A reader either gives a usable recording (a
// positive rate, finite samples, an existing lead) or throws InputError;
// running out of memory throws std::bad_alloc; nothing else may escape.
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <new>
#include <string>

#include "annotations.hpp"
#include "errors.hpp"
#include "fuzz/fuzz_input.hpp"
#include "recording.hpp"

namespace {

namespace fs = std::filesystem;

fs::path g_dir;  // this process's own folder for the files it makes

void remove_folder() {
  std::error_code ec;
  fs::remove_all(g_dir, ec);
}

void write(const fs::path& p, std::string_view bytes) {
  std::ofstream(p, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

void check_recording(const keloecg::Recording& r) {
  FUZZ_CHECK(std::isfinite(r.fs) && r.fs > 0.0);
  for (double v : r.samples) FUZZ_CHECK(std::isfinite(v));
  FUZZ_CHECK(r.lead_index >= 0 && static_cast<std::size_t>(r.lead_index) < r.lead_names.size());
  if (r.full_scale && r.full_scale_source.starts_with("sidecar")) {
    FUZZ_CHECK(std::isfinite(*r.full_scale) && *r.full_scale > 0.0);
  }
}

void check_beats(const keloecg::ReferenceBeats& b) {
  FUZZ_CHECK(b.symbols.size() == b.samples.size());
  for (std::size_t i = 1; i < b.samples.size(); ++i) FUZZ_CHECK(b.samples[i] >= b.samples[i - 1]);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  std::string tmpl = (fs::temp_directory_path() / "keloecg-fuzz-XXXXXX").string();
  if (::mkdtemp(tmpl.data()) == nullptr) std::abort();
  g_dir = tmpl;
  std::atexit(remove_folder);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kelo::fuzz::Input in(data, size);
  const int kind = in.byte() % 8;
  static const char* const kLeads[] = {"", "", "", "1", "ECG", "MLII"};
  keloecg::LoadOptions options;
  options.lead = in.pick(kLeads);
  const std::string_view rest(reinterpret_cast<const char*>(data) + (size - in.left()), in.left());
  // Two files from one input: what comes before the first NUL byte, and
  // what comes after it.
  const std::size_t cut = std::min(rest.find('\0'), rest.size());
  const std::string_view first = rest.substr(0, cut), second = rest.substr(std::min(cut + 1, rest.size()));
  for (const char* name : {"r.hea", "r.dat", "r.atr", "r.beats.txt", "r.edf", "r.csv", "r.f32", "r.f64", "r.info"}) {
    std::error_code ec;
    fs::remove(g_dir / name, ec);
  }
  try {
    switch (kind) {
      case 0:
        write(g_dir / "r.hea", first);
        write(g_dir / "r.dat", second);
        check_recording(keloecg::load_recording(g_dir / "r.hea", options));
        break;
      case 1:
        write(g_dir / "r.atr", rest);
        check_beats(keloecg::load_reference_beats(g_dir / "r.atr", 360));
        break;
      case 2:
        write(g_dir / "r.beats.txt", rest);
        check_beats(keloecg::load_reference_beats(g_dir / "r.beats.txt", 200));
        break;
      case 3:
        write(g_dir / "r.edf", rest);
        check_recording(keloecg::load_recording(g_dir / "r.edf", options));
        break;
      case 4:
        options.fs = 200;
        write(g_dir / "r.csv", rest);
        check_recording(keloecg::load_recording(g_dir / "r.csv", options));
        break;
      case 5:
        write(g_dir / "r.info", first);
        write(g_dir / "r.csv", second);
        check_recording(keloecg::load_recording(g_dir / "r.csv", options));
        break;
      default: {
        const char* raw = kind == 6 ? "r.f32" : "r.f64";
        write(g_dir / "r.info", first);
        write(g_dir / raw, second);
        check_recording(keloecg::load_recording(g_dir / raw, options));
      }
    }
  } catch (const keloecg::InputError&) {
    // A clear error about the input: what the readers promise.
  } catch (const std::bad_alloc&) {
    // A size in the file beyond the memory there is: reported as such.
  }
  return 0;
}
