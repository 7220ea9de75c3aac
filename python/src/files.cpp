// keloecg's side of the package: its readers (with the resampling to
// 200 Hz and the reference annotations found next to a recording), the
// beat-by-beat comparison with reference beats, and the pieces of
// `keloecg batch` that keloecg.distributed runs on a cluster's workers.
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "bindings.hpp"
#include "commands.hpp"
#include "errors.hpp"
#include "file_util.hpp"
#include "output.hpp"

namespace keloecg::python {

namespace {

namespace fs = std::filesystem;

py::dict annotations_dict(ReferenceBeats&& beats) {
  RateMap map;
  map.original_fs = beats.fs;
  std::vector<std::int64_t> at_analysis;
  at_analysis.reserve(beats.samples.size());
  for (auto s : beats.samples) at_analysis.push_back(map.to_analysis(s));
  py::dict out;
  out["path"] = beats.path;
  out["fs"] = beats.fs;
  out["sample"] = to_numpy(std::move(beats.samples));
  out["sample_200hz"] = to_numpy(std::move(at_analysis));
  out["symbol"] = beats.symbols;
  out["other_annotations"] = beats.other_annotations;
  return out;
}

py::dict read_annotations(const std::string& path, double fs) {
  if (!(fs > 0.0)) throw InputError("", "fs must be a sampling rate above 0 Hz");
  ReferenceBeats beats;
  {
    py::gil_scoped_release unlocked;
    beats = load_reference_beats(path, fs);
  }
  return annotations_dict(std::move(beats));
}

LoadOptions load_options(const std::string& format, const std::string& lead, std::optional<double> fs) {
  LoadOptions o;
  o.format = format;
  o.lead = lead;
  o.fs = fs;
  return o;
}

py::dict read(const std::string& path, const std::string& lead, const std::string& format, std::optional<double> fs) {
  Prepared p;
  std::optional<ReferenceBeats> reference;
  {
    py::gil_scoped_release unlocked;
    p = prepare(load_recording(path, load_options(format, lead, fs)), AnalysisSettings{});  // the whole recording
    if (p.recording.annotations) reference = load_reference_beats(*p.recording.annotations, p.recording.fs);
  }
  const Recording& r = p.recording;
  py::dict out;
  out["path"] = r.path;
  out["name"] = r.name;
  out["format"] = r.format;
  out["original_fs"] = r.fs;
  out["original_samples"] = r.total_samples;
  out["units"] = r.units;
  out["lead_index"] = r.lead_index;
  out["leads"] = r.lead_names;
  out["full_scale"] = r.full_scale ? py::object(py::float_(*r.full_scale)) : py::object(py::none());
  out["full_scale_source"] = r.full_scale_source;
  out["warnings"] = r.warnings;
  out["annotations"] = reference ? py::object(annotations_dict(std::move(*reference))) : py::object(py::none());
  out["samples"] = to_numpy(std::move(p.samples));
  return out;
}

// The comparison of keloecg validate: detections and reference beats in
// seconds, the references kept when they fall in [from_s, to_s).
py::dict match(const IndexArray& detected, double fs, const IndexArray& reference, double reference_fs,
               std::optional<double> from_s, std::optional<double> to_s) {
  if (!(fs > 0.0) || !(reference_fs > 0.0)) throw InputError("", "fs must be a sampling rate above 0 Hz");
  const auto d = elements(detected, "detected");
  const auto r = elements(reference, "reference");
  MatchResult result;
  std::vector<std::int64_t> kept;
  {
    py::gil_scoped_release unlocked;
    std::vector<double> detected_s, reference_s;
    detected_s.reserve(d.size());
    for (auto s : d) detected_s.push_back(static_cast<double>(s) / fs);
    for (std::size_t i = 0; i < r.size(); ++i) {
      const double t = static_cast<double>(r[i]) / reference_fs;
      if ((!from_s || t >= *from_s) && (!to_s || t < *to_s)) {
        reference_s.push_back(t);
        kept.push_back(static_cast<std::int64_t>(i));
      }
    }
    if (!std::is_sorted(detected_s.begin(), detected_s.end()) || !std::is_sorted(reference_s.begin(), reference_s.end())) {
      throw InputError("", "detected and reference beats must be in ascending order");
    }
    result = match_beats(reference_s, detected_s);
  }
  const MatchCounts& c = result.counts;
  py::dict out;
  out["reference_index"] = to_numpy(std::move(kept));
  out["reference_match"] = to_numpy(std::move(result.reference_match));
  out["detection_match"] = to_numpy(std::move(result.detection_match));
  out["tp"] = c.true_positives;
  out["fn"] = c.false_negatives;
  out["fp"] = c.false_positives;
  out["sensitivity"] = c.sensitivity();
  out["positive_predictivity"] = c.positive_predictivity();
  out["f1"] = c.f1();
  out["mean_abs_offset_s"] = result.mean_abs_offset_s;
  return out;
}

// ---- keloecg batch, one recording at a time ---------------------------------

CommonOptions batch_options(const py::dict& settings) {
  CommonOptions o;
  auto get = [&](const char* key) -> py::object {
    return settings.contains(key) ? py::object(settings[key]) : py::object(py::none());
  };
  if (!get("lead").is_none()) o.load.lead = get("lead").cast<std::string>();
  if (!get("format").is_none()) o.load.format = get("format").cast<std::string>();
  if (!get("fs").is_none()) o.load.fs = get("fs").cast<double>();
  if (!get("start").is_none()) o.analysis.start_s = get("start").cast<double>();
  if (!get("duration").is_none()) o.analysis.duration_s = get("duration").cast<double>();
  if (!get("full_scale").is_none()) o.analysis.full_scale = get("full_scale").cast<double>();
  if (!get("window").is_none()) o.analysis.window_s = get("window").cast<int>();
  if (!get("beats").is_none()) {
    const auto text = get("beats").cast<std::string>();
    const auto mode = parse_beats_mode(text);
    if (!mode) throw InputError("", "beats must be \"all\" or \"normal\", not \"" + text + "\"");
    o.analysis.beats = *mode;
  }
  return o;
}

// One recording as `keloecg batch` analyses it: its JSON document written
// to json_path; returns (error or None, summary row).
py::tuple analyse_for_batch(const std::string& file, const std::string& json_path, const py::dict& settings) {
  const CommonOptions o = batch_options(settings);
  BatchOutcome outcome;
  {
    py::gil_scoped_release unlocked;
    outcome = batch_one(o, file, json_path);
  }
  return py::make_tuple(outcome.error.empty() ? py::object(py::none()) : py::object(py::str(outcome.error)),
                        outcome.summary);
}

std::vector<std::string> batch_inputs(const std::vector<std::string>& inputs, bool recursive) {
  std::vector<std::string> out;
  for (const auto& f : gather_inputs(inputs, recursive)) out.push_back(display(f));
  return out;
}

std::vector<std::string> batch_names(const std::vector<std::string>& files) {
  return output_names(std::vector<fs::path>(files.begin(), files.end()));
}

std::string summary_csv(const std::vector<std::vector<std::string>>& rows) {
  std::string csv = csv_line(summary_header());
  for (const auto& row : rows) csv += csv_line(row);
  return csv;
}

void write_atomically(const std::string& path, const std::string& content) {
  py::gil_scoped_release unlocked;
  write_file_atomically(path, content);
}

}  // namespace

void register_files(py::module_& m) {
  using namespace pybind11::literals;
  m.def("read", &read, "path"_a, "lead"_a, "format"_a, "fs"_a);
  m.def("read_annotations", &read_annotations, "path"_a, "fs"_a);
  m.def("match", &match, "detected"_a, "fs"_a, "reference"_a, "reference_fs"_a, "from_s"_a, "to_s"_a);
  m.attr("MATCH_WINDOW_S") = kMatchWindowSeconds;
  m.def("analyse_for_batch", &analyse_for_batch, "file"_a, "json_path"_a, "settings"_a);
  m.def("batch_inputs", &batch_inputs, "inputs"_a, "recursive"_a);
  m.def("batch_names", &batch_names, "files"_a);
  m.def("summary_header", &summary_header);
  m.def("summary_row", [](const std::string& file, const std::string& error) {
    return summary_row(file, nullptr, nullptr, nullptr, nullptr, error);
  });
  m.def("summary_csv", &summary_csv, "rows"_a);
  m.def("write_atomically", &write_atomically, "path"_a, "content"_a);
}

}  // namespace keloecg::python
