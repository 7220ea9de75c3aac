// The subcommands of keloecg. Each returns the program's exit status and
// throws InputError for problems with the input (exit status 2).
#pragma once

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

}  // namespace keloecg
