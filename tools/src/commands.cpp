#include "commands.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <new>
#include <optional>
#include <set>

#include "errors.hpp"
#include "file_util.hpp"
#include "interrupt.hpp"
#include "keloecgsolver/version.h"
#include "memory_reserve.hpp"
#include "output.hpp"
#include "parallel.hpp"
#include "report.hpp"
#include "wfdb.hpp"

namespace keloecg {

namespace fs = std::filesystem;

namespace {

void emit(const CommonOptions& o, const std::string& text) {
  check_memory();
  if (!o.output.empty()) {
    write_file_atomically(o.output, text);
  } else {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
  }
}

// The one-line message of a recording that failed: input errors name their
// file already.
std::string failure_message(const std::exception& e, const std::string& file) {
  if (dynamic_cast<const std::bad_alloc*>(&e) != nullptr) return file + ": out of memory";
  return e.what();
}

void warn(const std::string& what) { std::fprintf(stderr, "keloecg: warning: %s\n", what.c_str()); }

std::string input_or_bundled(const std::string& file) { return file.empty() ? bundled_recording() : file; }

Prepared load(const CommonOptions& o, const std::string& file) {
  Recording rec = load_recording(file, read_window(o.load, o.analysis));
  // Notes go to standard error in every mode, so that the output itself
  // stays what was asked for.
  for (const auto& w : rec.warnings) warn(rec.path + ": " + w);
  return prepare(std::move(rec), o.analysis);
}

std::string dump(const Json& j) { return j.dump(2) + "\n"; }

// The detected beats as a WFDB annotation file (MIT format) numbered at
// the recording's own rate, so that WFDB tools read them beside the
// record. A normal beat, and one whose label is not known (--beats normal
// gives the normal-shaped beats alone), is written N. The other labels
// (wide, premature, unknown) say nothing of where a beat arose, which the
// format's beat codes do: those beats are written Q, unclassifiable, with
// the label as the annotation's text.
void write_beat_annotations(const CommonOptions& o, const Prepared& p, const QrsResult& q) {
  if (o.annotations_out.empty()) return;
  std::vector<wfdb::Annotation> beats;
  const std::string normal = label_name(kNormalBeat);
  for (const auto& b : beat_records(p, q)) {
    wfdb::Annotation a;
    a.sample = b.sample_original;
    a.code = wfdb::symbol_code("N");
    if (!b.label.empty() && b.label != normal) {
      a.code = wfdb::symbol_code("Q");
      a.aux = b.label;
    }
    beats.push_back(a);
  }
  write_file_atomically(o.annotations_out, wfdb::encode_annotations(beats));
}

// A JSON document as text, built and destroyed in a ReserveScope (see
// memory_reserve.hpp), before anything is written.
template <class Build>
std::string json_text(Build&& build) {
  const ReserveScope scope;
  return dump(build());
}

std::optional<fs::path> annotations_for(const Prepared& p, const std::string& given) {
  if (!given.empty()) return fs::path(given);
  return p.recording.annotations;
}

// Detection over the excerpt, and the comparison with the reference beats
// that belong to the recording (if any are found).
struct ValidationRun {
  QrsResult qrs;
  std::optional<Validation> validation;
};

ValidationRun validation_run(const Prepared& p, const AnalysisSettings& s, const std::string& annotations,
                             bool required) {
  ValidationRun run;
  const auto ann = annotations_for(p, annotations);
  if (!ann && required) {
    throw InputError(p.recording.path, "no reference annotations found next to it (REC.atr or STEM.beats.txt); "
                                       "give them with --annotations");
  }
  // Read the references before the long detection, so that a bad
  // annotation file fails at once.
  std::optional<ReferenceBeats> reference;
  if (ann) reference = load_reference_beats(*ann, p.recording.fs);
  run.qrs = run_qrs(p, choose_excerpt(p, s, RunKind::Qrs), s);
  if (reference) run.validation = validate(p, run.qrs, *reference, s.score_from_s);
  return run;
}

// The HRV excerpt when the recording is long enough (else why not).
std::optional<Excerpt> hrv_excerpt(const Prepared& p, const AnalysisSettings& s, std::string& why) {
  try {
    return choose_excerpt(p, s, RunKind::Hrv);
  } catch (const InputError& e) {
    why = e.problem();
    return std::nullopt;
  }
}

bool same_excerpt(const Excerpt& a, const Excerpt& b) { return a.start == b.start && a.length == b.length; }

}  // namespace

namespace {

// The folder of the bundled recording: KELOECG_DATA when set, else found
// from where the program itself lies (BINDIR/../share/keloecg once
// installed, the same layout in the build tree), so that an installed or
// moved program needs no path fixed when it was built.
fs::path bundled_data_dir() {
  const char* dir = std::getenv("KELOECG_DATA");
  if (dir && *dir) return dir;
  std::error_code ec;
  const fs::path program = fs::read_symlink("/proc/self/exe", ec);
  if (ec) return KELO_DATA_FROM_PROGRAM;  // no /proc: relative to the working folder
  return (program.parent_path() / KELO_DATA_FROM_PROGRAM).lexically_normal();
}

}  // namespace

std::string bundled_recording() {
  const fs::path path = bundled_data_dir() / "mitdb100-5min.f32";
  std::error_code ec;
  if (!fs::is_regular_file(path, ec)) {
    throw InputError(display(path), "no FILE given and the bundled recording is missing (set KELOECG_DATA to its folder)");
  }
  return path.string();
}

namespace {

// A single recording: its segments are detected on all cores.
CommonOptions on_all_cores(CommonOptions o) {
  o.analysis.threads = default_jobs();
  return o;
}

}  // namespace

int command_qrs(const CommonOptions& options, const std::string& file) {
  const CommonOptions o = on_all_cores(options);
  const Prepared p = load(o, input_or_bundled(file));
  const QrsResult q = run_qrs(p, choose_excerpt(p, o.analysis, RunKind::Qrs), o.analysis);
  write_beat_annotations(o, p, q);
  if (o.json) {
    emit(o, json_text([&] { return document(p, o.analysis, &q, nullptr, nullptr); }));
  } else if (o.csv) {
    emit(o, beats_csv(p, q));
  } else {
    emit(o, recording_text(p) + qrs_text(p, q, true) + beats_text(p, q));
  }
  return 0;
}

int command_hrv(const CommonOptions& options, const std::string& file) {
  const CommonOptions o = on_all_cores(options);
  const Prepared p = load(o, input_or_bundled(file));
  const Excerpt e = choose_excerpt(p, o.analysis, RunKind::Hrv);
  const HrvResult h = run_hrv(run_qrs(p, e, o.analysis), hrv_options(e, false));
  write_beat_annotations(o, p, h.qrs);
  if (o.json) {
    emit(o, json_text([&] { return document(p, o.analysis, &h.qrs, &h, nullptr); }));
  } else if (o.csv) {
    emit(o, hrv_csv(h));
  } else {
    emit(o, recording_text(p) + qrs_text(p, h.qrs, false) + hrv_text(h));
  }
  return 0;
}

int command_report(const CommonOptions& options, const std::string& file, const std::string& annotations) {
  const CommonOptions o = on_all_cores(options);
  const Prepared p = load(o, input_or_bundled(file));
  std::string why;
  const auto hrv_range = hrv_excerpt(p, o.analysis, why);
  // A recording too short for HRV still gets a report of its beats.
  const Excerpt excerpt = hrv_range ? *hrv_range : choose_excerpt(p, o.analysis, RunKind::Qrs);
  const auto ann = annotations_for(p, annotations);
  std::optional<ReferenceBeats> reference;
  if (ann) reference = load_reference_beats(*ann, p.recording.fs);

  QrsResult q = run_qrs(p, excerpt, o.analysis);
  const HrvResult h =
      hrv_range ? run_hrv(std::move(q), hrv_options(*hrv_range, true)) : hrv_not_computed(std::move(q), why);
  std::optional<Validation> v;
  if (reference) v = validate(p, h.qrs, *reference);
  write_beat_annotations(o, p, h.qrs);

  const BeatReview review = review_beats(p, h.qrs);
  const std::string html = [&] {
    const ReserveScope scope;  // the report's data is JSON
    return render_report(p, o.analysis, h, review, v ? &*v : nullptr);
  }();
  check_memory();
  // Without -o the report is named after the record, in the current
  // folder, and the message says so.
  const fs::path out = o.output.empty() ? fs::path(p.recording.name + "-report.html") : fs::path(o.output);
  write_file_atomically(out, html);
  std::error_code ec;
  const fs::path shown = fs::absolute(out, ec);
  std::printf("Report written to %s (%.0f KB%s): open it in a browser.\n", (ec ? out : shown).c_str(),
              static_cast<double>(html.size()) / 1024.0, o.output.empty() ? ", no -o given" : "");
  return 0;
}

int command_validate(const CommonOptions& o, const std::vector<std::string>& files_in,
                     const std::vector<std::string>& annotations, unsigned jobs) {
  std::vector<std::string> files = files_in;
  if (files.empty()) files.push_back(bundled_recording());
  if (!annotations.empty() && annotations.size() != files.size()) {
    throw InputError("", "give one --annotations per FILE (" + std::to_string(files.size()) + " files, " +
                             std::to_string(annotations.size()) + " annotation files)");
  }
  std::vector<std::optional<Validation>> results(files.size());
  std::vector<std::string> errors(files.size());
  ProgressBar progress(files.size(), files.size() > 1);
  run_parallel(files.size(), jobs, [&](std::size_t i) {
    try {
      const Prepared p = load(o, files[i]);
      results[i] = validation_run(p, o.analysis, annotations.empty() ? "" : annotations[i], true).validation;
    } catch (const std::exception& e) {
      errors[i] = failure_message(e, files[i]);
    }
    progress.done(fs::path(files[i]).filename().string(), errors[i].empty());
  });

  std::vector<Validation> rows;
  for (auto& r : results) {
    if (r) rows.push_back(std::move(*r));
  }
  const bool failed = std::any_of(errors.begin(), errors.end(), [](const auto& e) { return !e.empty(); });
  if (files.size() == 1 && failed) throw InputError("", errors.front());
  if (o.json) {
    emit(o, json_text([&] {
      Json j = Json::object();
      j["program"] = "keloecg";
      j["version"] = KELOECGSOLVER_VERSION_STRING;
      j["match_window_ms"] = kMatchWindowSeconds * 1e3;
      j["beat_symbols"] = "N L R B A a J S V r F e j n E / f Q ?";
      if (o.analysis.score_from_s > 0.0) j["score_from_s"] = o.analysis.score_from_s;
      j["records"] = Json::array();
      MatchCounts total;
      ClassCounts classes;
      for (const auto& v : rows) {
        j["records"].push_back(validation_json(v));
        total += v.match.counts;
        classes += v.classes;
      }
      j["total"] = counts_json(total);
      j["total"]["classes"] = classes_json(classes);
      return j;
    }));
  } else if (o.csv) {
    emit(o, validation_csv(rows));
  } else {
    emit(o, validation_text(rows));
  }
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (!errors[i].empty()) std::fprintf(stderr, "keloecg: error: %s\n", errors[i].c_str());
  }
  return failed ? kInputErrorExit : 0;
}

std::vector<fs::path> gather_inputs(const std::vector<std::string>& inputs, bool recursive) {
  std::vector<fs::path> files;
  for (const auto& in : inputs) {
    std::error_code ec;
    if (!fs::is_directory(in, ec)) {
      files.emplace_back(in);  // a missing file is reported with the others
      continue;
    }
    std::vector<fs::path> found;
    auto consider = [&](const fs::directory_entry& e) {
      if (e.is_regular_file() && looks_like_recording(e.path())) found.push_back(e.path());
    };
    if (recursive) {
      for (const auto& e : fs::recursive_directory_iterator(in, fs::directory_options::skip_permission_denied, ec)) consider(e);
    } else {
      for (const auto& e : fs::directory_iterator(in, ec)) consider(e);
    }
    if (ec) throw InputError(in, "cannot list the folder: " + ec.message());
    if (found.empty()) {
      throw InputError(in, std::string("no recordings found in this folder") + (recursive ? "" : " (try --recursive)"));
    }
    std::sort(found.begin(), found.end());
    files.insert(files.end(), found.begin(), found.end());
  }
  return files;
}

// Result file names: the record's stem, made unique with the name of its
// folder when two inputs share a stem.
std::vector<std::string> output_names(const std::vector<fs::path>& files) {
  std::map<std::string, int> stems;
  for (const auto& f : files) ++stems[f.stem().string()];
  std::vector<std::string> names;
  std::set<std::string> used;
  for (const auto& f : files) {
    std::string name = f.stem().string();
    if (stems[name] > 1 && f.has_parent_path()) name = f.parent_path().filename().string() + "_" + name;
    std::string unique = name;
    for (int k = 2; used.count(unique); ++k) unique = name + "_" + std::to_string(k);
    used.insert(unique);
    names.push_back(unique);
  }
  return names;
}

BatchOutcome batch_one(const CommonOptions& o, const fs::path& file, const fs::path& json_path) {
  BatchOutcome out;
  out.ran = true;
  const std::string shown = display(file);
  keep_memory_reserve();
  try {
    const Prepared p = load(o, shown);
    auto run = validation_run(p, o.analysis, "", false);
    std::string why;
    std::optional<HrvResult> hrv;
    if (const auto range = hrv_excerpt(p, o.analysis, why)) {
      // Reuse the detection when the HRV excerpt is the same stretch.
      QrsResult q = same_excerpt(*range, run.qrs.excerpt) ? run.qrs : run_qrs(p, *range, o.analysis);
      hrv = run_hrv(std::move(q), hrv_options(*range, false));
    } else {
      hrv = hrv_not_computed(run.qrs, why);
    }
    const Validation* v = run.validation ? &*run.validation : nullptr;
    write_file_atomically(json_path, json_text([&] { return document(p, o.analysis, &run.qrs, &*hrv, v); }));
    out.summary = summary_row(shown, &p, &run.qrs, &*hrv, v, "");
    out.validation = std::move(run.validation);
  } catch (const std::exception& e) {
    out.error = failure_message(e, shown);
    out.summary = summary_row(shown, nullptr, nullptr, nullptr, nullptr, out.error);
  }
  return out;
}

int command_batch(const CommonOptions& o, const std::vector<std::string>& inputs, const std::string& out_dir,
                  unsigned jobs, bool recursive) {
  const auto files = gather_inputs(inputs.empty() ? std::vector<std::string>{bundled_recording()} : inputs, recursive);
  std::error_code ec;
  fs::create_directories(out_dir, ec);
  if (ec || !fs::is_directory(out_dir)) {
    throw InputError(out_dir, "cannot create the output folder" + (ec ? ": " + ec.message() : std::string()));
  }
  const auto names = output_names(files);
  std::vector<BatchOutcome> outcomes(files.size());
  // Ctrl-C: the recordings under way finish, no new one starts, and the
  // summary covers what finished.
  const StopOnSignal stop_on_signal;
  {
    ProgressBar progress(files.size(), true);
    run_parallel(files.size(), jobs, [&](std::size_t i) {
      if (StopOnSignal::requested()) return;
      outcomes[i] = batch_one(o, files[i], fs::path(out_dir) / (names[i] + ".json"));
      progress.done(files[i].filename().string(), outcomes[i].error.empty());
    });
  }

  std::string csv = csv_line(summary_header());
  std::vector<Validation> validations;
  std::size_t failed = 0, ran = 0;
  for (auto& oc : outcomes) {
    if (!oc.ran) continue;
    ++ran;
    csv += csv_line(oc.summary);
    if (oc.validation) validations.push_back(std::move(*oc.validation));
    failed += oc.error.empty() ? 0 : 1;
  }
  const fs::path summary = fs::path(out_dir) / "summary.csv";
  write_file_atomically(summary, csv);

  const std::string not_started =
      ran < files.size() ? ", " + std::to_string(files.size() - ran) + " not started (interrupted)" : "";
  std::printf("%zu recording%s analysed, %zu failed%s; results in %s, summary in %s\n", ran - failed,
              ran - failed == 1 ? "" : "s", failed, not_started.c_str(), out_dir.c_str(), summary.c_str());
  if (!validations.empty()) std::printf("\n%s", validation_text(validations).c_str());
  std::fflush(stdout);
  if (failed) {
    std::fprintf(stderr, "keloecg: %zu of %zu recordings failed:\n", failed, ran);
    for (const auto& oc : outcomes) {
      if (!oc.error.empty()) std::fprintf(stderr, "keloecg: error: %s\n", oc.error.c_str());
    }
  }
  if (StopOnSignal::requested()) return StopOnSignal::exit_status();
  return failed ? kInputErrorExit : 0;
}

}  // namespace keloecg
