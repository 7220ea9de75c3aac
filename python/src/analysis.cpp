// detect and hrv: R peaks, grades and heart rate of an ECG array, and the
// HRV statistics of a beat series, by the rules of the library's Java
// bridge and keloecg (the statuses, the accepted heart-rate band, the
// excerpt grade overriding the status).
#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>

#include "bindings.hpp"
#include "errors.hpp"
#include "keloecgsolver/keloecgsolver.h"
#include "runtime/run_rules.hpp"
#include "text_util.hpp"

namespace keloecg::python {

namespace {

namespace rules = kelo::rules;

constexpr std::int32_t kFs = rules::kAnalysisRate;

// Samples that are not numbers are refused as keloecg's readers refuse
// them: the detector would find no beat in a recording holding one.
void require_finite(std::span<const double> x, double fs) {
  for (std::size_t i = 0; i < x.size(); ++i) {
    if (!std::isfinite(x[i])) {
      throw InputError("", "sample " + std::to_string(i) + " (at " + short_number(static_cast<double>(i) / fs) +
                               " s) is " + (std::isnan(x[i]) ? "not a number (NaN)" : "infinite"));
    }
  }
}

// The checks of keloecg's QRS run on what the detector is given.
void require_detectable(std::int64_t n) {
  if (n < rules::kQrsMinSamples) {
    throw InputError("", "recording too short: " + clock_text(static_cast<double>(n) / kFs) +
                             ", R-peak detection needs at least 15 s");
  }
  if (n > std::numeric_limits<std::int32_t>::max()) {
    throw InputError("", "recording too long for one analysis; analyse it in parts");
  }
}

py::object optional_number(const std::optional<double>& v) { return v ? py::object(py::float_(*v)) : py::none(); }

py::dict detect(const DoubleArray& ecg, double fs, std::optional<double> full_scale, int window,
              const std::string& beats) {
  const auto x = elements(ecg, "ecg");
  if (!(fs > 0.0) || !std::isfinite(fs)) throw InputError("", "fs must be a sampling rate above 0 Hz");
  if (full_scale && !(*full_scale > 0.0 && std::isfinite(*full_scale))) {
    throw InputError("", "full_scale must be above 0 (or None: clipping not tested)");
  }
  if (window < 1 || window > 86400) throw InputError("", "window must be 1 to 86400 seconds");
  AnalysisSettings settings;
  settings.window_s = window;
  const auto mode = parse_beats_mode(beats);
  if (!mode) throw InputError("", "beats must be \"all\" or \"normal\", not \"" + beats + "\"");
  settings.beats = *mode;

  QrsResult d;
  std::vector<std::int64_t> at_fs;
  std::int64_t analysed = 0;
  {
    py::gil_scoped_release unlocked;
    require_finite(x, fs);
    if (fs == kFs) {
      // The caller's samples, analysed in place.
      require_detectable(static_cast<std::int64_t>(x.size()));
      d = qrs_over(x, 0, full_scale, settings);
      analysed = static_cast<std::int64_t>(x.size());
    } else {
      // keloecg's resampling to 200 Hz; positions go back to the caller's
      // rate as keloecg maps them.
      Recording r;
      r.fs = fs;
      r.samples.assign(x.begin(), x.end());
      r.total_samples = static_cast<std::int64_t>(r.samples.size());
      const Prepared p = prepare(std::move(r), AnalysisSettings{});  // the whole array
      require_detectable(static_cast<std::int64_t>(p.samples.size()));
      d = qrs_over(p.samples, 0, full_scale, settings);
      analysed = static_cast<std::int64_t>(p.samples.size());
      at_fs.reserve(d.r_peaks.size());
      for (auto s : d.r_peaks) at_fs.push_back(p.map.to_original(s));
    }
  }
  py::dict out;
  auto peaks = to_numpy(std::move(d.r_peaks));
  out["r_peaks_200hz"] = peaks;
  out["r_peaks"] = fs == kFs ? py::object(peaks) : py::object(to_numpy(std::move(at_fs)));
  // One label per R peak (1 normal, 2 wide, 3 premature, 4 unknown); with
  // the normal-shaped beats alone, every one is normal.
  if (d.beats == BeatsMode::Normal) d.labels.assign(static_cast<std::size_t>(py::len(peaks)), kNormalBeat);
  std::vector<std::int32_t> labels(d.labels.begin(), d.labels.end());
  out["labels"] = to_numpy(std::move(labels));
  out["beats"] = beats_mode_name(d.beats);
  out["samples_200hz"] = analysed;
  out["window_grades"] = to_numpy(std::vector<std::int32_t>(d.window_grades.begin(), d.window_grades.end()));
  out["excerpt_grade"] = d.excerpt_grade;
  out["status"] = d.status;
  out["heart_rate"] = optional_number(d.heart_rate);
  out["rejected_heart_rate"] = optional_number(d.rejected_rate);
  out["full_scale"] = optional_number(full_scale);
  return out;
}

// labels: none, or one per R peak (1 normal): then the statistics cover
// the NN intervals alone, as keloecg's runs over every beat compute them.
py::dict hrv(const IndexArray& r_peaks, double sampling_rate, int excerpt_grade,
             const std::optional<py::array_t<std::int32_t, py::array::c_style | py::array::forcecast>>& labels) {
  const std::int32_t fs = whole_rate(sampling_rate);
  const auto samples = elements(r_peaks, "r_peaks");
  std::vector<std::int32_t> positions = library_positions(samples, "r_peaks", true);
  const auto count = static_cast<std::int32_t>(positions.size());
  std::vector<int> beat_labels;
  if (labels) {
    const auto given = elements(*labels, "labels");
    if (given.size() != samples.size()) {
      throw InputError("", "labels must hold one label per R peak: " + std::to_string(given.size()) + " for " +
                               std::to_string(samples.size()));
    }
    if (fs != kFs) throw InputError("", "HRV over labelled beats needs R peaks at 200 Hz");
    beat_labels.assign(given.begin(), given.end());
  }
  std::optional<NnSeries> series;

  std::optional<double> rate, rejected;
  std::string not_computed;
  std::array<double, KELO_HRV_TIME_RESULTS> time{};
  std::array<double, KELO_HRV_FREQ_RESULTS> freq{};
  std::int32_t status = KELO_STATUS_NO_USABLE_BEATS;
  // calcStatNN's own figures mark SDANN and the SDNN index -1 when they
  // cannot be formed (calcHrv reports such an SDANN as 0): those are None,
  // as keloecg leaves them out.
  std::array<double, KELO_HRV_TIME_RESULTS> raw{};
  {
    py::gil_scoped_release unlocked;
    if (count > 1) {
      const rules::Int32Record beats(emxCreateWrapper_int32_T(positions.data(), count, 1));
      const double r = calcHRvar(beats.get(), count, fs);
      (rules::heart_rate_accepted(r) ? rate : rejected) = r;
    }
    if (rate && labels) {
      series = nn_series(samples, beat_labels);
      const NnHrv h = hrv_over_nn(*series);
      time = h.time;
      freq = h.freq;
      status = h.status;
      calcStatNN(series->t.data(), series->rr.data(), series->annotations.data(),
                 static_cast<std::int32_t>(series->intervals), raw.data());
    } else if (rate) {
      const std::int32_t n = count - 1;
      calcHrv(positions.data(), n, fs, time.data(), freq.data(), &status);
      std::vector<char> annotations(static_cast<std::size_t>(n));
      std::vector<double> t(static_cast<std::size_t>(n)), rr(static_cast<std::size_t>(n));
      calcRR(positions.data(), n, fs, annotations.data(), t.data(), rr.data());
      calcStatNN(t.data(), rr.data(), annotations.data(), n, raw.data());
    } else {
      not_computed = count < 2 ? "fewer than two R peaks" : "heart rate outside 30-220 bpm";
    }
  }
  py::dict out;
  out["status"] = rules::status_after_grade(status, excerpt_grade);
  out["computed"] = rate.has_value();
  out["spectrum"] = rate.has_value() && status == KELO_STATUS_SUCCESS;
  out["not_computed"] = not_computed.empty() ? py::object(py::none()) : py::object(py::str(not_computed));
  out["heart_rate"] = optional_number(rate);
  out["rejected_heart_rate"] = optional_number(rejected);
  out["r_peaks"] = count;
  out["intervals"] = series ? py::object(py::int_(series->intervals)) : py::object(py::none());
  out["excluded_intervals"] = series ? py::object(py::int_(series->excluded)) : py::object(py::none());
  py::list time_out;
  for (std::size_t i = 0; i < time.size(); ++i) {
    const bool unformed = rate && ((i == 3 && raw[3] == -1.0) || (i == 4 && raw[4] == -1.0));
    time_out.append(unformed ? py::object(py::none()) : py::object(py::float_(time[i])));
  }
  out["time"] = time_out;
  out["freq"] = freq;
  return out;
}

template <std::size_t N>
py::tuple names(const std::array<const char*, N>& a) {
  py::tuple t(N);
  for (std::size_t i = 0; i < N; ++i) t[i] = a[i];
  return t;
}

}  // namespace

void register_analysis(py::module_& m) {
  using namespace pybind11::literals;
  m.def("detect", &detect, "ecg"_a, "fs"_a, "full_scale"_a, "window"_a, "beats"_a);
  m.def("hrv", &hrv, "r_peaks"_a, "fs"_a, "excerpt_grade"_a, "labels"_a = py::none());
  m.def("status_text", &status_text);
  m.def("excerpt_grade_text", &excerpt_grade_text);
  m.def("window_grade_text", &window_grade_text);
  m.attr("TIME_FIELDS") = names(kTimeFields);
  m.attr("TIME_UNITS") = names(kTimeUnits);
  m.attr("FREQ_FIELDS") = names(kFreqFields);
  m.attr("FREQ_UNITS") = names(kFreqUnits);
}

}  // namespace keloecg::python
