// Missed-beat search: the exported entry point over the passes of
// classify/refine_search.hpp, with the candidate arrays cleared and scanned
// only as far as they were written.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>

#include "classify/refine_search.hpp"
#include "keloecgsolver/classify.h"
#include "runtime/boundary.hpp"

namespace {

constexpr int32_t kOutOfMemory = -1;  // the count reported when memory runs out

}  // namespace

kelo::refine::BeatStats kelo::refine::beat_statistics(std::span<const double> x,
                                                      std::span<const int32_t> beats, int32_t n,
                                                      int32_t w) {
  const auto work = std::make_unique_for_overwrite<RefineWork<true>>();
  return beat_stats(x, beats, std::min(n, kLength), w, *work);
}

extern "C" {

KELO_API void refineQrsDetection(const double x[KELO_REFINE_LENGTH],
                                 const int32_t beatsIn[KELO_REFINE_LENGTH], int32_t n, int32_t fs,
                                 int32_t beatsOut[KELO_REFINE_LENGTH], int32_t* count) {
  if (x == nullptr || beatsIn == nullptr || beatsOut == nullptr || count == nullptr) return;
  // The list cannot hold more beats than its length. *count only ever
  // reports the input count: the beats found are the entries of beatsOut
  // that beatsIn does not have (the header says so to callers).
  // The work arrays (1.3 MB, too much for the stack of every thread a
  // caller may use) are taken before anything is written; the memory of
  // the gaps already searched may fail later without harm (the search
  // then goes on without it).
  kelo::guarded(
      [&] {
        const auto work = std::make_unique_for_overwrite<kelo::refine::RefineWork<true>>();
        n = std::min(n, kelo::refine::kLength);
        *count = n;
        kelo::refine::refine(std::span<const double>(x, kelo::refine::kLen), beatsIn, n, fs, beatsOut, *work);
      },
      [&] { *count = kOutOfMemory; });
}

}  // extern "C"
