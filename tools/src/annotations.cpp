#include "annotations.hpp"

#include <algorithm>
#include <charconv>
#include <numeric>

#include "errors.hpp"
#include "file_util.hpp"
#include "wfdb.hpp"

namespace keloecg {

namespace fs = std::filesystem;

namespace {

void read_text_annotations(const std::string& text, const std::string& where, ReferenceBeats& out) {
  std::size_t pos = 0;
  int line_no = 0;
  while (pos < text.size()) {
    auto end = text.find('\n', pos);
    if (end == std::string::npos) end = text.size();
    std::string_view line(text.data() + pos, end - pos);
    pos = end + 1;
    ++line_no;
    while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
    if (line.empty() || line.front() == '#' || line.front() == '\r') continue;
    std::int64_t sample = 0;
    const auto [ptr, ec] = std::from_chars(line.data(), line.data() + line.size(), sample);
    if (ec != std::errc() || sample < 0) {
      throw InputError(where, "line " + std::to_string(line_no) + ": expected \"sample [symbol]\"");
    }
    std::string_view rest(ptr, static_cast<std::size_t>(line.data() + line.size() - ptr));
    while (!rest.empty() && (rest.front() == ' ' || rest.front() == '\t' || rest.front() == ',')) rest.remove_prefix(1);
    const auto stop = rest.find_first_of(" \t\r,");
    const std::string symbol(rest.substr(0, stop));
    if (!symbol.empty() && !wfdb::is_beat_symbol(symbol)) {
      ++out.other_annotations;
      continue;
    }
    out.samples.push_back(sample);
    out.symbols.push_back(symbol.empty() ? "N" : symbol);
  }
}

}  // namespace

ReferenceBeats load_reference_beats(const fs::path& path, double fs) {
  ReferenceBeats out;
  out.path = display(path);
  out.fs = fs;
  const std::string ext = path.extension().string();
  if (ext == ".txt" || ext == ".csv") {
    read_text_annotations(read_text(path), out.path, out);
  } else {
    for (auto& a : wfdb::parse_annotations(read_bytes(path), out.path)) {
      if (!wfdb::is_beat_symbol(a.symbol)) {
        ++out.other_annotations;
        continue;
      }
      out.samples.push_back(a.sample);
      out.symbols.push_back(std::move(a.symbol));
    }
  }
  // Annotation files are in time order; keep that guaranteed for matching.
  if (!std::is_sorted(out.samples.begin(), out.samples.end())) {
    std::vector<std::size_t> order(out.samples.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](auto a, auto b) { return out.samples[a] < out.samples[b]; });
    ReferenceBeats sorted = out;
    for (std::size_t i = 0; i < order.size(); ++i) {
      sorted.samples[i] = out.samples[order[i]];
      sorted.symbols[i] = out.symbols[order[i]];
    }
    out = std::move(sorted);
  }
  return out;
}

}  // namespace keloecg
