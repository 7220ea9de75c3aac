// Test helpers that build owned dynamic array records from literal values.
#pragma once

#include <algorithm>
#include <vector>

#include "runtime/emx.hpp"

namespace kelo::test {

inline EmxReal column(const std::vector<double>& values) {
  EmxReal r(1);
  resize_column(r.get(), static_cast<int32_t>(values.size()));
  std::copy(values.begin(), values.end(), r.span().begin());
  return r;
}

inline EmxReal row(const std::vector<double>& values) {
  EmxReal r(2);
  resize_row(r.get(), static_cast<int32_t>(values.size()));
  std::copy(values.begin(), values.end(), r.span().begin());
  return r;
}

inline EmxInt32 int_column(const std::vector<int32_t>& values) {
  EmxInt32 r(1);
  resize_column(r.get(), static_cast<int32_t>(values.size()));
  std::copy(values.begin(), values.end(), r.span().begin());
  return r;
}

inline EmxBool mask(const std::vector<bool>& values) {
  EmxBool r(1);
  resize_column(r.get(), static_cast<int32_t>(values.size()));
  std::copy(values.begin(), values.end(), r.span().begin());
  return r;
}

template <class Rec>
auto values(const Rec& r) {
  auto s = r.span();
  return std::vector<std::remove_cv_t<typename decltype(s)::element_type>>(s.begin(), s.end());
}

}  // namespace kelo::test
