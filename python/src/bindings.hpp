// Shared pieces of the extension module: numpy arrays in and out, the
// lock of the library routines that keep static state, and the functions
// that register each group of bindings.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "analysis.hpp"
#include "errors.hpp"

namespace keloecg::python {

namespace py = pybind11;

// Arrays as the functions take them: C-contiguous of the element type. A
// caller's array that already is one is used in place (pybind11 converts,
// and so copies, only arrays of another type or layout).
using DoubleArray = py::array_t<double, py::array::c_style | py::array::forcecast>;
using IndexArray = py::array_t<std::int64_t, py::array::c_style | py::array::forcecast>;

// The elements of a one-dimensional array; throws InputError naming `what`
// for any other shape.
template <typename T>
std::span<const T> elements(const py::array_t<T, py::array::c_style | py::array::forcecast>& a, const char* what) {
  if (a.ndim() != 1) {
    throw InputError("", std::string(what) + " must be one-dimensional, not of " + std::to_string(a.ndim()) +
                                " dimensions");
  }
  return {a.data(), static_cast<std::size_t>(a.shape(0))};
}

// A vector handed to numpy without copying: the array owns it.
template <typename T>
py::array_t<T> to_numpy(std::vector<T>&& v) {
  auto* owned = new std::vector<T>(std::move(v));
  py::capsule owner(owned, [](void* p) { delete static_cast<std::vector<T>*>(p); });
  return py::array_t<T>(static_cast<py::ssize_t>(owned->size()), owned->data(), owner);
}

// 0-based sample numbers as the library's 1-based positions. Throws
// InputError naming `what` when one is negative, out of the
// library's 32-bit range, or (with `ascending`) not above the one before.
std::vector<std::int32_t> library_positions(std::span<const std::int64_t> samples, const char* what, bool ascending);

// A sampling rate as the library's routines that take whole hertz want it.
// Throws InputError for anything but a whole number of Hz above 0.
std::int32_t whole_rate(double fs);

void register_analysis(py::module_& m);
void register_checks(py::module_& m);
void register_files(py::module_& m);

}  // namespace keloecg::python
