// The format readers behind load_recording. Each fills a Recording with the
// chosen lead in its file's physical units; load_recording then converts to
// millivolts and checks the samples.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "recording.hpp"

namespace keloecg::detail {

Recording read_wfdb(const std::filesystem::path& header, const LoadOptions& options);
Recording read_edf(const std::filesystem::path& path, const LoadOptions& options);
Recording read_text_table(const std::filesystem::path& path, const LoadOptions& options);
Recording read_raw(const std::filesystem::path& path, const LoadOptions& options, int bytes_per_sample);

// Index of the lead that `lead` names among `names` ("" = 0). Throws
// InputError naming `where` and listing the leads when there is none.
int choose_lead(const std::vector<std::string>& names, const std::string& lead, const std::string& where);

// The samples [first, last) of a lead of `total` samples at `fs` that
// `options` asks for (from_s to to_s; the sample at to_s included).
struct SampleRange {
  std::int64_t first = 0;
  std::int64_t last = 0;
};
SampleRange requested_range(const LoadOptions& options, double fs, std::int64_t total);

// key=value lines of a sidecar file STEM.info next to path (empty if none).
std::map<std::string, std::string> read_sidecar(const std::filesystem::path& path);

}  // namespace keloecg::detail
