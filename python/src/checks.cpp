// The library's second look at detected beats: the signal-quality check,
// the RR-interval check, beat classification against the average beat and
// the search for missed beats. Positions cross as 0-based sample numbers
// and become the library's 1-based positions here.
#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <set>

#include "bindings.hpp"
#include "errors.hpp"
#include "keloecgsolver/keloecgsolver.h"
#include "runtime/run_rules.hpp"

namespace keloecg::python {

namespace {

namespace rules = kelo::rules;

using IntArray32 = py::array_t<std::int32_t, py::array::c_style | py::array::forcecast>;

// checkQuality and refineQrsDetection take plain arrays of a fixed length
// (three minutes at 200 Hz): the caller's values, zero-padded.
template <typename T>
std::vector<T> fixed_length(std::span<const T> values, std::size_t length, const char* what) {
  if (values.size() > length) {
    throw InputError("", std::string(what) + " holds " + std::to_string(values.size()) + " values; this check takes at most " +
                             std::to_string(length) + " (three minutes at 200 Hz)");
  }
  std::vector<T> out(length, T{});
  std::copy(values.begin(), values.end(), out.begin());
  return out;
}

int check_quality(const DoubleArray& ecg, const IndexArray& r_peaks, std::optional<double> full_scale) {
  const auto x = elements(ecg, "ecg");
  const auto beats = library_positions(elements(r_peaks, "r_peaks"), "r_peaks", true);
  const auto signal = fixed_length(x, KELO_CHECK_LENGTH, "ecg");
  const auto positions = fixed_length<std::int32_t>(beats, KELO_CHECK_LENGTH, "r_peaks");
  py::gil_scoped_release unlocked;
  return checkQuality(signal.data(), static_cast<std::int32_t>(x.size()),
                      full_scale.value_or(std::numeric_limits<double>::infinity()), positions.data(),
                      static_cast<std::int32_t>(beats.size()));
}

py::dict check_rr(const IndexArray& r_peaks, std::optional<IntArray32> classes) {
  auto positions = library_positions(elements(r_peaks, "r_peaks"), "r_peaks", true);
  const auto n = static_cast<std::int32_t>(positions.size());
  std::vector<std::int32_t> marks(positions.size(), 0);
  if (classes) {
    const auto given = elements(*classes, "classes");
    if (given.size() != positions.size()) {
      throw InputError("", "classes holds " + std::to_string(given.size()) + " values for " +
                               std::to_string(positions.size()) + " R peaks");
    }
    marks.assign(given.begin(), given.end());
  }
  const std::vector<std::int32_t> before = positions;
  std::int32_t count = n;
  {
    py::gil_scoped_release unlocked;
    // The routine compacts both records in place.
    const rules::Int32Record beats(emxCreateWrapper_int32_T(positions.data(), n, 1));
    const rules::Int32Record labels(emxCreateWrapper_int32_T(marks.data(), n, 1));
    checkRRvar(beats.get(), &count, labels.get());
  }
  std::vector<std::int64_t> kept, removed;
  for (std::size_t k = 0, j = 0; k < before.size(); ++k) {
    if (j < static_cast<std::size_t>(count) && positions[j] == before[k]) {
      kept.push_back(before[k] - 1);
      ++j;
    } else {
      removed.push_back(static_cast<std::int64_t>(k));
    }
  }
  marks.resize(static_cast<std::size_t>(count));
  py::dict out;
  out["r_peaks"] = to_numpy(std::move(kept));
  out["classes"] = to_numpy(std::move(marks));
  out["removed"] = to_numpy(std::move(removed));
  return out;
}

py::array_t<std::int32_t> classify(const DoubleArray& ecg, const IndexArray& r_peaks, double rate) {
  const std::int32_t fs = whole_rate(rate);
  const auto x = elements(ecg, "ecg");
  if (x.size() > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
    throw InputError("", "ecg too long for one analysis; classify it in parts");
  }
  auto positions = library_positions(elements(r_peaks, "r_peaks"), "r_peaks", true);
  const auto n = static_cast<std::int32_t>(positions.size());
  std::vector<std::int32_t> classes;
  {
    py::gil_scoped_release unlocked;
    const rules::RealRecord signal(
        emxCreateWrapper_real_T(const_cast<double*>(x.data()), static_cast<std::int32_t>(x.size()), 1));
    const rules::Int32Record beats(emxCreateWrapper_int32_T(positions.data(), n, 1));
    const rules::Int32Record labels(emxCreate_int32_T(0, 1));
    classifyQRSvar(signal.get(), beats.get(), n, fs, labels.get());
    // One entry per sample; the first n belong to the beats.
    const auto all = std::span<const std::int32_t>(labels->data, static_cast<std::size_t>(std::max(labels->size[0], 0)));
    classes.assign(all.begin(), all.begin() + std::min<std::ptrdiff_t>(n, static_cast<std::ptrdiff_t>(all.size())));
    // Beats past the end of the signal have no entry; they are never tested.
    classes.resize(positions.size(), 1);
  }
  return to_numpy(std::move(classes));
}

py::dict refine(const DoubleArray& ecg, const IndexArray& r_peaks, double rate) {
  const std::int32_t fs = whole_rate(rate);
  const auto signal = fixed_length(elements(ecg, "ecg"), KELO_REFINE_LENGTH, "ecg");
  const auto given = library_positions(elements(r_peaks, "r_peaks"), "r_peaks", true);
  const auto beats_in = fixed_length<std::int32_t>(given, KELO_REFINE_LENGTH, "r_peaks");
  std::vector<std::int32_t> beats_out(KELO_REFINE_LENGTH, 0);
  std::int32_t count = 0;
  {
    py::gil_scoped_release unlocked;
    refineQrsDetection(signal.data(), beats_in.data(), static_cast<std::int32_t>(given.size()), fs, beats_out.data(),
                       &count);
  }
  // The list the routine leaves: the first `count` entries are the beats it
  // analyses; found beats it did not move into them lie after them, up to
  // the first unused (zero) slot.
  std::size_t used = static_cast<std::size_t>(count);
  while (used < beats_out.size() && beats_out[used] != 0) ++used;
  std::vector<std::int64_t> listed, all, added;
  const std::set<std::int32_t> before(given.begin(), given.end());
  std::set<std::int32_t> found;
  for (std::size_t k = 0; k < used; ++k) {
    (k < static_cast<std::size_t>(count) ? listed : all).push_back(beats_out[k] - 1);
    if (!before.count(beats_out[k])) found.insert(beats_out[k]);
  }
  all.insert(all.begin(), listed.begin(), listed.end());
  for (auto b : found) added.push_back(b - 1);
  py::dict out;
  out["r_peaks"] = to_numpy(std::move(listed));
  out["list"] = to_numpy(std::move(all));
  out["added"] = to_numpy(std::move(added));
  return out;
}

}  // namespace

void register_checks(py::module_& m) {
  using namespace pybind11::literals;
  m.def("check_quality", &check_quality, "ecg"_a, "r_peaks"_a, "full_scale"_a);
  m.def("check_rr", &check_rr, "r_peaks"_a, "classes"_a);
  m.def("classify", &classify, "ecg"_a, "r_peaks"_a, "fs"_a);
  m.def("refine", &refine, "ecg"_a, "r_peaks"_a, "fs"_a);
}

}  // namespace keloecg::python
