// The missed-beat search in its plain form: every gap clears its candidate
// arrays whole and takes their extremes over every entry.
#include <algorithm>
#include <memory>

#include "classify/refine_search.hpp"
#include "reference/routines.hpp"

namespace kelo::ref {

void refine_qrs_detection(const double* x, const int32_t* beatsIn, int32_t n, int32_t fs, int32_t* beatsOut,
                          int32_t* count) {
  const auto work = std::make_unique_for_overwrite<refine::RefineWork<false>>();
  n = std::min(n, refine::kLength);
  *count = n;
  refine::refine(std::span<const double>(x, refine::kLen), beatsIn, n, fs, beatsOut, *work);
}

}  // namespace kelo::ref
