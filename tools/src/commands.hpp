// The subcommands of keloecg. Each returns the program's exit status and
// throws InputError for problems with the input (exit status 2).
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "analysis.hpp"
#include "recording.hpp"

namespace keloecg {

struct CommonOptions {
  LoadOptions load;
  AnalysisSettings analysis;
  bool json = false;
  bool csv = false;
  std::string output;  // write the result here instead of standard output
  std::string annotations_out;  // write the detected beats here as a WFDB annotation file
};

// The recording used when no FILE is given.
std::string bundled_recording();

int command_qrs(const CommonOptions& o, const std::string& file);
int command_hrv(const CommonOptions& o, const std::string& file);
int command_report(const CommonOptions& o, const std::string& file, const std::string& annotations);
int command_validate(const CommonOptions& o, const std::vector<std::string>& files,
                     const std::vector<std::string>& annotations, unsigned jobs);
int command_batch(const CommonOptions& o, const std::vector<std::string>& inputs, const std::string& out_dir,
                  unsigned jobs, bool recursive);

// The parts of `keloecg batch` that also serve other drivers (the Python
// package's cluster runs).

// The recordings of the inputs: files as given, folders scanned for
// recordings (sorted; with `recursive` their subfolders too). Throws
// InputError for a folder that cannot be listed or holds no recording.
std::vector<std::filesystem::path> gather_inputs(const std::vector<std::string>& inputs, bool recursive);

// Result file names: the record's stem, made unique with the name of its
// folder when two inputs share a stem.
std::vector<std::string> output_names(const std::vector<std::filesystem::path>& files);

struct BatchOutcome {
  bool ran = false;                  // false: an interruption came before it started
  std::string error;                 // empty when the recording was analysed
  std::vector<std::string> summary;  // its row of summary.csv (summary_header())
  std::optional<Validation> validation;
};

// One recording of a batch: its JSON document written to json_path, and its
// summary row. Never throws: a failure is the outcome's error.
BatchOutcome batch_one(const CommonOptions& o, const std::filesystem::path& file,
                       const std::filesystem::path& json_path);

}  // namespace keloecg
