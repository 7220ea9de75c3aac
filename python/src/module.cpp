// The extension module keloecg._keloecg. The package's Python modules wrap
// what it returns in result objects; see keloecg/__init__.py.
#include <cmath>
#include <limits>
#include <stdexcept>

#include "bindings.hpp"
#include "errors.hpp"
#include "keloecgsolver/keloecgsolver.h"
#include "keloecgsolver/version.h"

namespace keloecg::python {

std::vector<std::int32_t> library_positions(std::span<const std::int64_t> samples, const char* what, bool ascending) {
  std::vector<std::int32_t> positions;
  positions.reserve(samples.size());
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const std::int64_t s = samples[i];
    const std::string at = std::string(what) + "[" + std::to_string(i) + "] = " + std::to_string(s);
    if (s < 0) throw InputError("", at + ": sample numbers are 0-based, 0 or more");
    if (s >= std::numeric_limits<std::int32_t>::max()) {
      throw InputError("", at + " lies beyond the library's 32-bit sample positions");
    }
    if (ascending && i > 0 && s <= samples[i - 1]) {
      throw InputError("", at + " does not follow " + std::to_string(samples[i - 1]) +
                                  ": sample numbers must be in strictly ascending order");
    }
    positions.push_back(static_cast<std::int32_t>(s + 1));
  }
  return positions;
}

std::int32_t whole_rate(double fs) {
  if (!(fs >= 1.0 && fs <= std::numeric_limits<std::int32_t>::max()) || fs != std::floor(fs)) {
    throw InputError("", "fs must be a whole number of Hz above 0 for this routine");
  }
  return static_cast<std::int32_t>(fs);
}

namespace {

// keloecg.InputError (a ValueError): a problem with a file or an argument,
// with the message keloecg prints ("FILE: problem"), and the file and the
// problem apart as attributes.
void register_errors(py::module_& m) {
  // Kept for the life of the process: the translator may run at any time.
  static auto* input_error = new py::object(
      py::reinterpret_steal<py::object>(PyErr_NewExceptionWithDoc(
          "keloecg._keloecg.InputError",
          "A problem with a recording or an argument; str() is the message keloecg prints. "
          "Attributes: file (may be empty) and problem.",
          PyExc_ValueError, nullptr)));
  if (!input_error->ptr()) throw py::error_already_set();
  m.attr("InputError") = *input_error;
  py::register_exception_translator([](std::exception_ptr p) {
    try {
      if (p) std::rethrow_exception(p);
    } catch (const InputError& e) {
      py::object error = (*input_error)(e.what());
      error.attr("file") = e.file();
      error.attr("problem") = e.problem();
      PyErr_SetObject(input_error->ptr(), error.ptr());
    }
  });
}

}  // namespace

}  // namespace keloecg::python

PYBIND11_MODULE(_keloecg, m) {
  using namespace keloecg::python;
  m.doc() = "libkeloecgsolver and keloecg's readers for Python (use the keloecg package)";
  m.attr("__version__") = KELOECGSOLVER_VERSION_STRING;
  // Every routine's initialiser sets the library's non-finite constants.
  // Done here, once, so that no analysis on one thread rewrites them while
  // another reads them.
  detectWaves_initialize();
  calcHRvar_initialize();
  checkQuality_initialize();
  checkRRvar_initialize();
  classifyQRSvar_initialize();
  refineQrsDetection_initialize();
  register_errors(m);
  register_analysis(m);
  register_checks(m);
  register_files(m);
}
