// Reference beats for validation: WFDB annotation files (MIT format, .atr
// and others) or text files of "sample [symbol]" lines. Only beat
// annotations count: N L R B A a J S V r F e j n E / f Q ?
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace keloecg {

struct ReferenceBeats {
  std::string path;
  double fs = 0.0;                    // rate of the sample numbers
  std::vector<std::int64_t> samples;  // 0-based, ascending
  std::vector<std::string> symbols;
  std::size_t other_annotations = 0;  // annotations that are not beats

  double time_s(std::size_t i) const { return static_cast<double>(samples[i]) / fs; }
};

// Sample numbers are at `fs` (the recording's original rate unless the
// user says otherwise). Text lines without a symbol count as beats.
// Throws InputError naming the file on unreadable or malformed input.
ReferenceBeats load_reference_beats(const std::filesystem::path& path, double fs);

}  // namespace keloecg
