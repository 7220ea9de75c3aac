// EDF, EDF+ and BDF (BDF+) files through EDFlib.
#include <edflib.h>

#include <charconv>
#include <cmath>
#include <fstream>
#include <optional>
#include <string_view>
#include <memory>
#include <mutex>

#include "errors.hpp"
#include "file_util.hpp"
#include "readers.hpp"

namespace keloecg::detail {

namespace fs = std::filesystem;

namespace {

// EDFlib keeps its table of open files in global state of its own, so
// opening, reading and closing are serialised across threads.
std::mutex& edflib_lock() {
  static std::mutex lock;
  return lock;
}

std::string open_error(int code) {
  switch (code) {
    case EDFLIB_MALLOC_ERROR: return "out of memory while opening";
    case EDFLIB_NO_SUCH_FILE_OR_DIRECTORY: return "cannot open";
    case EDFLIB_FILE_CONTAINS_FORMAT_ERRORS: return "not a valid EDF/BDF file (its header has format errors)";
    case EDFLIB_MAXFILES_REACHED: return "too many EDF files open";
    case EDFLIB_FILE_READ_ERROR: return "cannot read an EDF/BDF header (the file is too short or damaged)";
    case EDFLIB_FILE_ALREADY_OPENED: return "file already opened";
    case EDFLIB_FILETYPE_ERROR: return "not an EDF/BDF file";
    case EDFLIB_FILE_IS_DISCONTINUOUS: return "discontinuous EDF+D/BDF+D files are not supported";
    default: return "cannot be read as EDF/BDF (EDFlib error " + std::to_string(code) + ")";
  }
}

std::string trimmed(const char* s) {
  std::string out(s);
  while (!out.empty() && out.back() == ' ') out.pop_back();
  while (!out.empty() && out.front() == ' ') out.erase(out.begin());
  return out;
}

// A field of a fixed-width ASCII header as a number.
std::optional<long long> header_number(std::string_view field) {
  while (!field.empty() && field.back() == ' ') field.remove_suffix(1);
  while (!field.empty() && field.front() == ' ') field.remove_prefix(1);
  long long v = 0;
  const auto [ptr, ec] = std::from_chars(field.data(), field.data() + field.size(), v);
  if (field.empty() || ec != std::errc() || ptr != field.data() + field.size()) return std::nullopt;
  return v;
}

// A file shorter than its header announces: EDFlib calls that a format
// error of the header; say what is wrong instead. Reads the header's own
// fields (bytes in the header, data records, signals, samples per record);
// a header that cannot be read this way is left to EDFlib.
void check_complete(const fs::path& path, const std::string& where) {
  std::ifstream in(path, std::ios::binary);
  std::string head(256, '\0');
  if (!in.read(head.data(), 256)) return;
  const bool bdf = static_cast<unsigned char>(head[0]) == 0xFF;
  const auto header_bytes = header_number(std::string_view(head).substr(184, 8));
  const auto records = header_number(std::string_view(head).substr(236, 8));
  const auto signals = header_number(std::string_view(head).substr(252, 4));
  if (!header_bytes || !records || !signals || *records < 0 || *signals < 1 || *signals > 4096 ||
      *header_bytes != 256 * (*signals + 1)) {
    return;
  }
  std::string fields(static_cast<std::size_t>(*signals) * 216 + static_cast<std::size_t>(*signals) * 40, '\0');
  if (!in.read(fields.data(), static_cast<std::streamsize>(fields.size()))) return;
  long long per_record = 0;  // samples of every signal in one data record
  for (long long k = 0; k < *signals; ++k) {
    const auto n = header_number(std::string_view(fields).substr(static_cast<std::size_t>(*signals * 216 + k * 8), 8));
    if (!n || *n < 0) return;
    per_record += *n;
  }
  const long long record_bytes = per_record * (bdf ? 3 : 2);
  std::error_code ec;
  const auto size = static_cast<long long>(fs::file_size(path, ec));
  if (ec || record_bytes <= 0) return;
  const long long whole = (size - *header_bytes) / record_bytes;
  if (whole < *records) {
    throw InputError(where, "truncated: the header announces " + std::to_string(*records) + " data records of " +
                                std::to_string(record_bytes) + " bytes, the file holds " +
                                std::to_string(std::max(0LL, whole)) + " whole ones");
  }
}

struct EdfFile {
  int handle = -1;
  ~EdfFile() {
    if (handle >= 0) edfclose_file(handle);
  }
};

}  // namespace

Recording read_edf(const fs::path& path, const LoadOptions& options) {
  const std::string where = display(path);
  require_readable_file(path);
  check_complete(path, where);
  std::lock_guard guard(edflib_lock());

  auto hdr = std::make_unique<edf_hdr_struct>();  // large: kept off the stack
  EdfFile file;
  if (edfopen_file_readonly(path.c_str(), hdr.get(), EDFLIB_DO_NOT_READ_ANNOTATIONS) != 0) {
    throw InputError(where, open_error(hdr->filetype));
  }
  file.handle = hdr->handle;

  Recording rec;
  static constexpr const char* kTypes[] = {"EDF", "EDF+", "BDF", "BDF+"};
  rec.format = hdr->filetype >= 0 && hdr->filetype < 4 ? kTypes[hdr->filetype] : "EDF";
  for (int s = 0; s < hdr->edfsignals; ++s) rec.lead_names.push_back(trimmed(hdr->signalparam[s].label));
  if (rec.lead_names.empty()) throw InputError(where, "the file holds no signal (only annotations)");
  const int lead = choose_lead(rec.lead_names, options.lead, where);
  const auto& param = hdr->signalparam[lead];
  rec.lead_index = lead;

  if (hdr->datarecord_duration <= 0 || param.smp_in_datarecord <= 0) {
    throw InputError(where, "signal " + std::to_string(lead) + " has no sampling rate (empty data records)");
  }
  rec.fs = param.smp_in_datarecord * static_cast<double>(EDFLIB_TIME_DIMENSION) /
           static_cast<double>(hdr->datarecord_duration);
  rec.units = trimmed(param.physdimension);
  rec.full_scale = std::max(std::abs(param.phys_max), std::abs(param.phys_min));
  rec.full_scale_source = "physical range of the file";

  rec.total_samples = param.smp_in_file;
  const auto range = requested_range(options, rec.fs, rec.total_samples);
  rec.first_sample = range.first;
  rec.samples.resize(static_cast<std::size_t>(range.last - range.first));
  if (range.first > 0 && edfseek(file.handle, lead, range.first, EDFSEEK_SET) != range.first) {
    throw InputError(where, "cannot seek to sample " + std::to_string(range.first));
  }
  std::size_t done = 0;
  while (done < rec.samples.size()) {
    const int chunk = static_cast<int>(std::min<std::size_t>(rec.samples.size() - done, 1 << 20));
    const int got = edfread_physical_samples(file.handle, lead, chunk, rec.samples.data() + done);
    if (got <= 0) {
      // The size was checked against the header when the file was opened.
      throw InputError(where, "read error after " + std::to_string(done) + " of " + std::to_string(rec.samples.size()) +
                                  " samples (was the file shortened while being read?)");
    }
    done += static_cast<std::size_t>(got);
  }
  return rec;
}

}  // namespace keloecg::detail
