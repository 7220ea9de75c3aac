// keloecg: R peaks, heart rate, HRV, reports and validation of single-lead
// ECG recordings, on libkeloecgsolver.
#include <CLI/CLI.hpp>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <exception>
#include <new>

#include "beats.hpp"
#include "commands.hpp"
#include "errors.hpp"
#include "keloecgsolver/version.h"
#include "memory_reserve.hpp"
#include "parallel.hpp"
#include "text_util.hpp"

namespace {

using keloecg::CommonOptions;

struct CommonFlags {
  CLI::Option* fs = nullptr;
  CLI::Option* full_scale = nullptr;
  CLI::Option* duration = nullptr;
  CLI::Option* segment = nullptr;
  double fs_value = 0, full_scale_value = 0, duration_value = 0, segment_minutes = 10;
  std::string beats = "all";
};

// Option checks whose messages say what is wanted (CLI11's own range
// checks print the largest double in full).
CLI::Validator clock_time(bool positive) {
  return CLI::Validator(
      [positive](std::string& text) -> std::string {
        const auto v = keloecg::parse_clock(text);
        if (!v || (positive && !(*v > 0.0))) {
          return std::string("\"") + text + "\" is not " + (positive ? "a positive" : "a") +
                 " time: give seconds (90, 5.5) or [h:]mm:ss (1:30, 1:30:00)";
        }
        char buf[40];
        std::snprintf(buf, sizeof buf, "%.17g", *v);
        text = buf;
        return {};
      },
      "SECONDS or [H:]MM:SS");
}

CLI::Validator number_in(double lowest, double highest, const std::string& what) {
  return CLI::Validator(
      [=](std::string& text) -> std::string {
        double v = 0.0;
        const auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
        if (ec != std::errc() || ptr != text.data() + text.size() || !(v >= lowest && v <= highest)) {
          return std::string("\"") + text + "\" is not " + what;
        }
        return {};
      },
      "");
}

CLI::Validator at_least_one() {
  return CLI::Validator(
      [](std::string& text) -> std::string {
        unsigned long v = 0;
        const auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
        if (ec != std::errc() || ptr != text.data() + text.size() || v < 1 || v > 4096) {
          return std::string("\"") + text + "\" is not a number of jobs from 1 to 4096";
        }
        return {};
      },
      "");
}

void add_common(CLI::App* cmd, CommonOptions& o, CommonFlags& f, bool outputs) {
  cmd->add_option("--start", o.analysis.start_s, "Time to skip at the start of the recording: seconds or [h:]mm:ss")
      ->transform(clock_time(false))
      ->type_name("TIME")
      ->group("Excerpt");
  f.duration = cmd->add_option("--duration", f.duration_value,
                               "Length of the excerpt from --start: seconds or [h:]mm:ss (default: all)")
                   ->transform(clock_time(true))
                   ->type_name("TIME")
                   ->group("Excerpt");
  f.full_scale = cmd->add_option("--full-scale", f.full_scale_value,
                                 "Largest amplitude the acquisition can represent, in mV (default: from the "
                                 "file's ADC or physical range; unknown for text and raw input)")
                     ->check(number_in(1e-9, 1e12, "a full scale in mV (a positive number)"))
                     ->group("Analysis");
  // Default all: the beat list is complete and HRV leaves out the
  // intervals next to ectopic beats; normal gives the Java bridge's beats.
  cmd->add_option("--beats", f.beats,
                  "Beats to use: all (every beat, labelled normal, wide, premature or unknown; HRV over NN "
                  "intervals only) or normal (the normal-shaped beats of detectWaves, as the Java bridge)")
      ->check(CLI::IsMember({"all", "normal"}))
      ->capture_default_str()
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
  f.fs = cmd->add_option("--fs", f.fs_value, "Sampling rate in Hz of text and raw input (50 to 10000)")
             ->check(number_in(keloecg::kLowestSamplingRate, keloecg::kHighestSamplingRate,
                               "a sampling rate keloecg analyses (50 to 10000 Hz)"))
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
  o.analysis.beats = *keloecg::parse_beats_mode(f.beats);
}

void add_from(CLI::App* cmd, CommonOptions& o) {
  cmd->add_option("--from", o.analysis.score_from_s,
                  "Score only the beats from this second of the recording on (300: after a 5-minute learning "
                  "period, as EC57 scores)")
      ->check(number_in(0.0, 1e12, "a time in seconds (0 or more)"))
      ->group("Validation");
}

constexpr const char* kAnnotationsOut =
    "Also write the detected beats to this WFDB annotation file (MIT format, sample numbers at the "
    "recording's own rate; normal beats N, the others Q with their label as text)";

constexpr const char* kFooter =
    "Without FILE, a command runs on the bundled recording (5 minutes of MIT-BIH record 100).\n"
    "Formats: WFDB records (.hea with .dat in format 212 or 16; .atr annotations), EDF/EDF+/BDF,\n"
    "CSV/text (one column or --lead), raw little-endian float32/float64 (.f32/.f64, with --fs).\n"
    "Recordings at other rates are resampled to 200 Hz; positions are given at 200 Hz and at the\n"
    "original rate, 0-based in the whole recording.\n"
    "Exit status: 0 done, 2 a problem with the input (one line on standard error names it),\n"
    "128 + the signal's number when batch was interrupted (130 for Ctrl-C) after finishing the\n"
    "recordings under way and writing the summary of those.\n";

}  // namespace

int main(int argc, char** argv) {
  keloecg::keep_memory_reserve();
  // A file-size limit (ulimit -f) then fails the write with EFBIG, which is
  // reported like a full disk, instead of killing the program mid-write.
  std::signal(SIGXFSZ, SIG_IGN);
  CLI::App app{"keloecg: R peaks, heart rate and heart-rate variability of single-lead ECG recordings",
               "keloecg"};
  app.set_version_flag("--version", std::string("keloecg ") + KELOECGSOLVER_VERSION_STRING);
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
  qrs->add_option("--annotations-out", o.annotations_out, kAnnotationsOut)->group("Output");

  auto* hrv = app.add_subcommand("hrv", "As qrs, plus every time- and frequency-domain HRV value: long-term over the "
                                        "whole excerpt, per hour and per 5-minute segment");
  hrv->add_option("FILE", file, "Recording (default: the bundled one)");
  add_common(hrv, o, hrv_flags, true);
  hrv->add_option("-o,--output", o.output, "Write to this file instead of standard output")->group("Output");
  hrv->add_option("--annotations-out", o.annotations_out, kAnnotationsOut)->group("Output");

  hrv->add_flag("--short", o.analysis.short_hrv,
                "The Java bridge's analysis of 3 to 10 minutes (a longer excerpt is cut to its first 10 minutes) "
                "instead of the long-term one")
      ->group("Analysis");

  auto* report = app.add_subcommand("report", "A self-contained HTML page: ECG, beats, grades, tachogram, periodogram");
  report->add_option("FILE", file, "Recording (default: the bundled one)");
  add_common(report, o, report_flags, false);
  report->add_flag("--short", o.analysis.short_hrv, "HRV by the Java bridge's analysis of 3 to 10 minutes")->group("Analysis");
  report->add_option("-o,--output", o.output, "The HTML file to write (default: NAME-report.html here)")->group("Output");
  report->add_option("--annotations-out", o.annotations_out, kAnnotationsOut)->group("Output");
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
  add_from(validate, o);
  validate->add_option("-j,--jobs", jobs, "Recordings analysed at once")->capture_default_str()->check(at_least_one());
  validate->add_option("-o,--output", o.output, "Write to this file instead of standard output")->group("Output");

  auto* batch = app.add_subcommand("batch", "Many recordings: one JSON each, a summary CSV and the validation totals");
  batch->add_option("INPUT", files, "Folders and recordings (default: the bundled one)");
  batch->add_option("--out", out_dir, "Folder for the results")->required();
  batch->add_flag("-r,--recursive", recursive, "Look for recordings in sub-folders too");
  batch->add_option("-j,--jobs", jobs, "Recordings analysed at once")->capture_default_str()->check(at_least_one());
  add_common(batch, o, batch_flags, false);
  batch->add_flag("--short", o.analysis.short_hrv, "HRV by the Java bridge's analysis of 3 to 10 minutes")->group("Analysis");
  add_from(batch, o);

  // A first word that is neither an option nor a command is named as such
  // (the parser would only say that a command is required).
  const std::string first = argc > 1 ? argv[1] : "-";
  if (first[0] != '-' && first != "qrs" && first != "hrv" && first != "report" && first != "validate" &&
      first != "batch") {
    std::fprintf(stderr, "keloecg: error: unknown command \"%s\" (the commands are qrs, hrv, report, validate and batch; "
                 "see keloecg --help)\n", argv[1]);
    return keloecg::kInputErrorExit;
  }
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
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "keloecg: error: %s%sout of memory (the recording needs more memory than is available)\n",
                 file.c_str(), file.empty() ? "" : ": ");
    return keloecg::kInputErrorExit;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "keloecg: internal error: %s\n", e.what());
    return 1;
  }
  return 0;
}
