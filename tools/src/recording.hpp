// One lead of a recording, read from any of the supported formats:
// WFDB (.hea with .dat in format 212 or 16), EDF/EDF+/BDF, text/CSV, and raw
// little-endian float32/float64.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace keloecg {

// The sampling rates keloecg analyses.
inline constexpr double kLowestSamplingRate = 50.0;
inline constexpr double kHighestSamplingRate = 10000.0;

struct LoadOptions {
  // "auto" (by extension, then by content), "wfdb", "edf", "csv", "f32", "f64".
  std::string format = "auto";
  // "" for the first lead; a number selects by 0-based index, anything else
  // by name (signal description, EDF label or CSV column header).
  std::string lead;
  // Sampling rate of text and raw input (those formats do not store it).
  std::optional<double> fs;
  // The part of the recording to read, in seconds from its start (default:
  // all of it). Readers that can seek read only this part; the others keep
  // only its samples.
  double from_s = 0.0;
  std::optional<double> to_s;
};

struct Recording {
  std::string path;    // as given
  std::string name;    // record name or file stem
  std::string format;  // "WFDB 212", "EDF+", "CSV", "float32", ...
  double fs = 0.0;     // sampling rate of `samples`, Hz
  // The chosen lead, in `units`: samples first_sample .. first_sample +
  // samples.size() - 1 of the total_samples of the whole lead (the part
  // that LoadOptions asked for).
  std::vector<double> samples;
  std::int64_t first_sample = 0;
  std::int64_t total_samples = 0;
  std::string units = "mV";     // "mV" whenever the file's unit was recognised
  int lead_index = 0;
  std::vector<std::string> lead_names;  // one per lead ("" when unnamed)
  // Largest amplitude the acquisition can represent, in `units`, when the
  // format tells (WFDB ADC range, EDF physical range, a sidecar file).
  std::optional<double> full_scale;
  std::string full_scale_source;
  std::vector<std::string> warnings;
  // Reference annotations that belong to the recording, if found next to it
  // (REC.atr of a WFDB record, STEM.beats.txt or STEM.atr otherwise).
  std::optional<std::filesystem::path> annotations;

  double duration_s() const { return fs > 0.0 ? static_cast<double>(total_samples) / fs : 0.0; }
  const std::string& lead_name() const { return lead_names.at(static_cast<std::size_t>(lead_index)); }
};

// Reads one lead. Throws InputError naming the file for every problem: a
// missing or unreadable file, an unknown format, a lead that does not
// exist, a missing sampling rate, samples that are not numbers.
Recording load_recording(const std::filesystem::path& path, const LoadOptions& options);

// The format "auto" would choose for path ("" when unknown). A WFDB record
// may be named without extension (path.hea exists).
std::string detect_format(const std::filesystem::path& path);

// True for files that a folder scan treats as recordings.
bool looks_like_recording(const std::filesystem::path& path);

// Factor that converts a physical unit to millivolts (nullopt if unknown).
std::optional<double> to_millivolts(std::string units);

}  // namespace keloecg
