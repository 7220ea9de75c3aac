// keloecg: R peaks, heart rate, HRV, reports and validation of single-lead
// ECG recordings, on libkeloecgsolver.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "commands.hpp"
#include "errors.hpp"
#include "parallel.hpp"

namespace {

using keloecg::CommonOptions;

struct CommonFlags {
  CLI::Option* fs = nullptr;
  CLI::Option* full_scale = nullptr;
  CLI::Option* duration = nullptr;
  CLI::Option* segment = nullptr;
  double fs_value = 0, full_scale_value = 0, duration_value = 0, segment_minutes = 10;
};

void add_common(CLI::App* cmd, CommonOptions& o, CommonFlags& f, bool outputs) {
  cmd->add_option("--start", o.analysis.start_s, "Seconds to skip at the start of the recording")
      ->check(CLI::NonNegativeNumber)
      ->group("Excerpt");
  f.duration = cmd->add_option("--duration", f.duration_value, "Seconds to analyse from --start (default: all)")
                   ->check(CLI::PositiveNumber)
                   ->group("Excerpt");
  f.full_scale = cmd->add_option("--full-scale", f.full_scale_value,
                                 "Largest amplitude the acquisition can represent, in mV (default: from the "
                                 "file's ADC or physical range; unknown for text and raw input)")
                     ->check(CLI::PositiveNumber)
                     ->group("Analysis");
  cmd->add_option("--window", o.analysis.window_s, "Length of a quality window in seconds")
      ->check(CLI::Range(1, 86400))
      ->capture_default_str()
      ->group("Analysis");
  f.segment = cmd->add_option("--segment", f.segment_minutes,
                              "Detect excerpts of two segments or more in segments of this many minutes, "
                              "overlapping by 30 s (0: the whole excerpt in one pass)")
                  ->check(CLI::Range(0.0, 100000.0))
                  ->capture_default_str()
                  ->group("Analysis");
  cmd->add_option("--lead", o.load.lead,
                  "Lead to analyse: 0-based index or name (WFDB signal, EDF label, CSV column)")
      ->group("Input");
  f.fs = cmd->add_option("--fs", f.fs_value, "Sampling rate in Hz of text and raw input")
             ->check(CLI::PositiveNumber)
             ->group("Input");
  cmd->add_option("--format", o.load.format, "Input format: auto, wfdb, edf, csv, f32 or f64")
      ->capture_default_str()
      ->group("Input");
  if (outputs) {
    auto* json = cmd->add_flag("--json", o.json, "Print JSON")->group("Output");
    auto* csv = cmd->add_flag("--csv", o.csv, "Print CSV")->group("Output");
    json->excludes(csv);
  }
}

void apply(const CommonFlags& f, CommonOptions& o) {
  if (f.fs->count()) o.load.fs = f.fs_value;
  if (f.full_scale->count()) o.analysis.full_scale = f.full_scale_value;
  if (f.duration->count()) o.analysis.duration_s = f.duration_value;
  o.analysis.segment_s = f.segment_minutes * 60.0;
}

constexpr const char* kFooter =
    "Without FILE, a command runs on the bundled recording (5 minutes of MIT-BIH record 100).\n"
    "Formats: WFDB records (.hea with .dat in format 212 or 16; .atr annotations), EDF/EDF+/BDF,\n"
    "CSV/text (one column or --lead), raw little-endian float32/float64 (.f32/.f64, with --fs).\n"
    "Recordings at other rates are resampled to 200 Hz; positions are given at 200 Hz and at the\n"
    "original rate, 0-based in the whole recording.\n"
    "Exit status: 0 done, 2 a problem with the input (one line on standard error names it).\n";

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"keloecg: R peaks, heart rate and heart-rate variability of single-lead ECG recordings",
               "keloecg"};
  app.set_version_flag("--version", std::string("keloecg ") + KELO_VERSION);
  app.footer(kFooter);
  app.require_subcommand(1);
  // Usage errors read like every other error: one line, exit status 2.
  app.failure_message([](const CLI::App*, const CLI::Error& e) {
    return std::string("keloecg: error: ") + e.what() + " (see keloecg --help)\n";
  });

  CommonOptions o;
  // Each subcommand has its own option objects; the one that ran counts.
  CommonFlags qrs_flags, hrv_flags, report_flags, validate_flags, batch_flags;
  std::string file, annotations, out_dir;
  std::vector<std::string> files, annotation_list;
  unsigned jobs = keloecg::default_jobs();
  bool recursive = false;

  auto* qrs = app.add_subcommand("qrs", "R peaks, heart rate, excerpt grade and window grades");
  qrs->add_option("FILE", file, "Recording (default: the bundled one)");
  add_common(qrs, o, qrs_flags, true);
  qrs->add_option("-o,--output", o.output, "Write to this file instead of standard output")->group("Output");

  auto* hrv = app.add_subcommand("hrv", "As qrs, plus every time- and frequency-domain HRV value (3 to 10 minutes)");
  hrv->add_option("FILE", file, "Recording (default: the bundled one)");
  add_common(hrv, o, hrv_flags, true);
  hrv->add_option("-o,--output", o.output, "Write to this file instead of standard output")->group("Output");

  auto* report = app.add_subcommand("report", "A self-contained HTML page: ECG, beats, grades, tachogram, periodogram");
  report->add_option("FILE", file, "Recording (default: the bundled one)");
  add_common(report, o, report_flags, false);
  report->add_option("-o,--output", o.output, "The HTML file to write")->default_str("report.html")->group("Output");
  report->add_option("--annotations", annotations,
                     "Reference beats to show (default: REC.atr or STEM.beats.txt next to FILE, if any)")
      ->group("Input");

  auto* validate = app.add_subcommand("validate", "Compare detected beats with reference annotations, beat by beat");
  validate->add_option("FILE", files, "Recordings (default: the bundled one)");
  add_common(validate, o, validate_flags, true);
  validate->add_option("--annotations", annotation_list,
                       "Reference annotations, one per FILE: a WFDB annotation file, or text lines \"sample "
                       "[symbol]\" numbered at the recording's rate (default: REC.atr or STEM.beats.txt next to it)")
      ->group("Input");
  validate->add_option("-j,--jobs", jobs, "Recordings analysed at once")->capture_default_str()->check(CLI::PositiveNumber);
  validate->add_option("-o,--output", o.output, "Write to this file instead of standard output")->group("Output");

  auto* batch = app.add_subcommand("batch", "Many recordings: one JSON each, a summary CSV and the validation totals");
  batch->add_option("INPUT", files, "Folders and recordings (default: the bundled one)");
  batch->add_option("--out", out_dir, "Folder for the results")->required();
  batch->add_flag("-r,--recursive", recursive, "Look for recordings in sub-folders too");
  batch->add_option("-j,--jobs", jobs, "Recordings analysed at once")->capture_default_str()->check(CLI::PositiveNumber);
  add_common(batch, o, batch_flags, false);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const int code = app.exit(e);
    return code == 0 ? 0 : keloecg::kInputErrorExit;
  }

  try {
    if (*qrs) {
      apply(qrs_flags, o);
      return keloecg::command_qrs(o, file);
    }
    if (*hrv) {
      apply(hrv_flags, o);
      return keloecg::command_hrv(o, file);
    }
    if (*report) {
      apply(report_flags, o);
      return keloecg::command_report(o, file, annotations);
    }
    if (*validate) {
      apply(validate_flags, o);
      return keloecg::command_validate(o, files, annotation_list, jobs);
    }
    if (*batch) {
      apply(batch_flags, o);
      return keloecg::command_batch(o, files, out_dir, jobs, recursive);
    }
  } catch (const keloecg::InputError& e) {
    std::fprintf(stderr, "keloecg: error: %s\n", e.what());
    return keloecg::kInputErrorExit;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "keloecg: internal error: %s\n", e.what());
    return 1;
  }
  return 0;
}
