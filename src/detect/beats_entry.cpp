// kelo_detectBeats: the C entry point of the labelled beats.
#include <vector>

#include "detect/labelled_beats.hpp"
#include "keloecgsolver/beats.h"
#include "keloecgsolver/rt_nonfinite.h"
#include "runtime/boundary.hpp"
#include "runtime/emx.hpp"
#include "runtime/numeric.hpp"

namespace {

using namespace kelo;

void empty(emxArray_int32_T* r) {
  if (r != nullptr) resize_column(r, 0);
}

// Resizes both records to n elements; false when either could not take
// them (out of memory or a malformed record).
bool make_room(emxArray_int32_T* positions, emxArray_int32_T* labels, std::size_t n) {
  if (n > static_cast<std::size_t>(kInt32Max)) return false;
  const auto count = static_cast<int32_t>(n);
  return resize_column(positions, count) && resize_column(labels, count) &&
         elements(positions).size() == n && elements(labels).size() == n;
}

}  // namespace

extern "C" {

KELO_API int32_t kelo_detectBeats(const emxArray_real_T* ecg, int32_t fs,
                                  emxArray_int32_T* positions, emxArray_int32_T* labels) {
  if (ecg == nullptr || positions == nullptr || labels == nullptr) {
    empty(positions);
    empty(labels);
    return KELO_BEATS_NULL_ARGUMENT;
  }
  if (fs <= 0) {
    empty(positions);
    empty(labels);
    return KELO_BEATS_BAD_RATE;
  }
  rt_InitInfAndNaN(8U);
  return guarded(
      [&]() -> int32_t {
        const std::vector<beats::Beat> found = beats::labelled_beats(elements(ecg), static_cast<double>(fs));
        if (!make_room(positions, labels, found.size())) {
          empty(positions);
          empty(labels);
          return KELO_BEATS_NO_MEMORY;
        }
        const auto p = elements(positions);
        const auto l = elements(labels);
        for (std::size_t i = 0; i < found.size(); ++i) {
          p[i] = clamp_to_int32(found[i].index + 1);
          l[i] = static_cast<int32_t>(found[i].label);
        }
        return KELO_BEATS_OK;
      },
      [&]() -> int32_t {  // only allocations throw here
        empty(positions);
        empty(labels);
        return KELO_BEATS_NO_MEMORY;
      });
}

KELO_API const char* kelo_beatLabelName(int32_t label) {
  switch (label) {
    case KELO_BEAT_NORMAL: return "normal";
    case KELO_BEAT_WIDE: return "wide";
    case KELO_BEAT_PREMATURE: return "premature";
    case KELO_BEAT_UNKNOWN: return "unknown";
    default: return nullptr;
  }
}

}  // extern "C"
