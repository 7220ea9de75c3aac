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

std::span<const std::int32_t> record_elements(const emxArray_int32_T& a) {
  std::size_t n = a.numDimensions > 0 ? 1 : 0;
  for (int d = 0; d < a.numDimensions; ++d) n *= static_cast<std::size_t>(std::max(a.size[d], 0));
  return {a.data, n};
}

// A read-only column record over the caller's samples (detectWaves only
// reads its signal), so that they are not copied.
rules::RealRecord wrap(std::span<const double> x) {
  return rules::RealRecord(
      emxCreateWrapper_real_T(const_cast<double*>(x.data()), static_cast<std::int32_t>(x.size()), 1));
}

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

struct Detection {
  std::vector<std::int64_t> peaks;  // 0-based, 200 Hz
  std::vector<std::int32_t> windows;
  std::int32_t grade = KELO_EXCERPT_USABLE;
  std::int32_t status = KELO_STATUS_NO_USABLE_BEATS;
  std::optional<double> heart_rate, rejected_rate;
};

// One detectWaves run over samples at 200 Hz, and the heart rate and
// status of its R peaks (the bridge's QRS run, keloecg qrs).
Detection detect_at_analysis_rate(std::span<const double> x, double full_scale, std::int32_t window_s) {
  const auto n = static_cast<std::int64_t>(x.size());
  if (n < rules::kQrsMinSamples) {
    throw InputError("", "recording too short: " + clock_text(static_cast<double>(n) / kFs) +
                             ", R-peak detection needs at least 15 s");
  }
  if (n > std::numeric_limits<std::int32_t>::max()) {
    throw InputError("", "recording too long for one analysis; analyse it in parts");
  }
  Detection d;
  const rules::RealRecord ecg = wrap(x);
  const rules::Int32Record peaks(emxCreate_int32_T(0, 1));
  const rules::Int32Record windows(emxCreate_int32_T(1, 1));
  detectWaves(ecg.get(), full_scale, kFs, window_s, peaks.get(), &d.grade, windows.get());
  const auto found = record_elements(*peaks);
  d.peaks.assign(found.begin(), found.end());
  for (auto& p : d.peaks) --p;  // 1-based positions become 0-based sample numbers
  const auto grades = record_elements(*windows);
  d.windows.assign(grades.begin(), grades.end());
  const auto count = static_cast<std::int32_t>(found.size());
  if (count > 1) {
    const double rate = calcHRvar(peaks.get(), count, kFs);
    if (rules::heart_rate_accepted(rate)) {
      d.heart_rate = rate;
      d.status = KELO_STATUS_SUCCESS;
    } else {
      d.rejected_rate = rate;
    }
  }
  d.status = rules::status_after_grade(d.status, d.grade);
  return d;
}

py::object optional_number(const std::optional<double>& v) { return v ? py::object(py::float_(*v)) : py::none(); }

py::dict detect(const DoubleArray& ecg, double fs, std::optional<double> full_scale, int window) {
  const auto x = elements(ecg, "ecg");
  if (!(fs > 0.0) || !std::isfinite(fs)) throw InputError("", "fs must be a sampling rate above 0 Hz");
  if (full_scale && !(*full_scale > 0.0 && std::isfinite(*full_scale))) {
    throw InputError("", "full_scale must be above 0 (or None: clipping not tested)");
  }
  if (window < 1 || window > 86400) throw InputError("", "window must be 1 to 86400 seconds");
  // Without a full scale the clipping test is switched off: nothing exceeds
  // 0.97 times infinity.
  const double scale = full_scale.value_or(std::numeric_limits<double>::infinity());

  Detection d;
  std::vector<std::int64_t> at_fs;
  std::int64_t analysed = 0;
  {
    py::gil_scoped_release unlocked;
    require_finite(x, fs);
    if (fs == kFs) {
      d = detect_at_analysis_rate(x, scale, window);
      analysed = static_cast<std::int64_t>(x.size());
    } else {
      // keloecg's resampling to 200 Hz; positions go back to the caller's
      // rate as keloecg maps them.
      Recording r;
      r.fs = fs;
      r.samples.assign(x.begin(), x.end());
      const Prepared p = prepare(std::move(r));
      d = detect_at_analysis_rate(p.samples, scale, window);
      analysed = static_cast<std::int64_t>(p.samples.size());
      at_fs.reserve(d.peaks.size());
      for (auto s : d.peaks) at_fs.push_back(p.map.to_original(s));
    }
  }
  py::dict out;
  auto peaks = to_numpy(std::move(d.peaks));
  out["r_peaks_200hz"] = peaks;
  out["r_peaks"] = fs == kFs ? py::object(peaks) : py::object(to_numpy(std::move(at_fs)));
  out["samples_200hz"] = analysed;
  out["window_grades"] = to_numpy(std::move(d.windows));
  out["excerpt_grade"] = d.grade;
  out["status"] = d.status;
  out["heart_rate"] = optional_number(d.heart_rate);
  out["rejected_heart_rate"] = optional_number(d.rejected_rate);
  out["full_scale"] = optional_number(full_scale);
  return out;
}

py::dict hrv(const IndexArray& r_peaks, double sampling_rate, int excerpt_grade) {
  const std::int32_t fs = whole_rate(sampling_rate);
  const auto samples = elements(r_peaks, "r_peaks");
  std::vector<std::int32_t> positions = library_positions(samples, "r_peaks", true);
  const auto count = static_cast<std::int32_t>(positions.size());

  std::optional<double> rate, rejected;
  std::string not_computed;
  std::array<double, KELO_HRV_TIME_RESULTS> time{};
  std::array<double, KELO_HRV_FREQ_RESULTS> freq{};
  std::int32_t status = KELO_STATUS_NO_USABLE_BEATS;
  {
    py::gil_scoped_release unlocked;
    if (count > 1) {
      const rules::Int32Record beats(emxCreateWrapper_int32_T(positions.data(), count, 1));
      const double r = calcHRvar(beats.get(), count, fs);
      (rules::heart_rate_accepted(r) ? rate : rejected) = r;
    }
    if (rate) {
      std::lock_guard guard(static_routines_lock().mutex);
      calcHrv(positions.data(), count - 1, fs, time.data(), freq.data(), &status);
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
  out["time"] = time;
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
  m.def("detect", &detect, "ecg"_a, "fs"_a, "full_scale"_a, "window"_a);
  m.def("hrv", &hrv, "r_peaks"_a, "fs"_a, "excerpt_grade"_a);
  m.def("status_text", &status_text);
  m.def("excerpt_grade_text", &excerpt_grade_text);
  m.def("window_grade_text", &window_grade_text);
  m.attr("TIME_FIELDS") = names(kTimeFields);
  m.attr("TIME_UNITS") = names(kTimeUnits);
  m.attr("FREQ_FIELDS") = names(kFreqFields);
  m.attr("FREQ_UNITS") = names(kFreqUnits);
}

}  // namespace keloecg::python
