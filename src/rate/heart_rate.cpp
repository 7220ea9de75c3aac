// Heart rate from the median beat-to-beat interval.
#include "keloecgsolver/heart_rate.h"

#include <algorithm>
#include <array>
#include <span>
#include <vector>

#include "keloecgsolver/rt_nonfinite.h"
#include "runtime/boundary.hpp"
#include "runtime/emx.hpp"
#include "runtime/numeric.hpp"

namespace {

using kelo::round_half_away;
using kelo::round_to_int32;

// work holds at least n beat positions (n >= 2). The first n - 1 elements
// become the intervals (saturating subtraction), which are sorted; the
// median interval is converted to beats per minute and rounded half away
// from zero.
double rate_from_beats(std::span<int32_t> work, int32_t n, int32_t fs) {
  const int32_t m = kelo::sat_sub(n, 1);
  for (int32_t k = 0; k < m; ++k) work[k] = kelo::sat_sub(work[k + 1], work[k]);

  // Any correct sort yields the same ascending values as the reference
  // bubble sort (m - 1 full passes); the tests compare the two.
  std::sort(work.begin(), work.begin() + m);

  double median;
  if (m % 2 == 1) {
    median = work[round_to_int32(static_cast<double>(m + 1) / 2.0) - 1];
  } else {
    const int32_t lower = round_to_int32(static_cast<double>(m) / 2.0);
    median = (static_cast<double>(work[lower - 1]) + static_cast<double>(work[lower])) / 2.0;
  }
  return round_half_away(60.0 / (median / static_cast<double>(fs)));
}

template <std::size_t Length>
double rate_from_fixed(const int32_t* beats, int32_t n, int32_t fs) {
  if (beats == nullptr || n < 2 || n > static_cast<int32_t>(Length)) return rtNaN;
  std::array<int32_t, Length> work;  // on the call's stack: no allocation
  std::copy_n(beats, Length, work.begin());
  return rate_from_beats(work, n, fs);
}

}  // namespace

extern "C" {

KELO_API double calcHRvar(const emxArray_int32_T* beats, int32_t n, int32_t fs) {
  if (beats == nullptr || beats->numDimensions < 1 || n < 2) return rtNaN;
  auto all = kelo::elements(beats);
  const auto available = std::min<std::size_t>(all.size(), beats->size[0] < 0 ? 0 : beats->size[0]);
  if (static_cast<std::size_t>(n) > available) return rtNaN;
  return kelo::guarded(
      [&] {
        std::vector<int32_t> work(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(available));
        return rate_from_beats(work, n, fs);
      },
      [] { return rtNaN; });
}

KELO_API double calcHR(const int32_t beats[KELO_CALCHR_LENGTH], int32_t n, int32_t fs) {
  return rate_from_fixed<KELO_CALCHR_LENGTH>(beats, n, fs);
}

KELO_API double calcHRshort(const int32_t beats[KELO_CALCHR_SHORT_LENGTH], int32_t n, int32_t fs) {
  return rate_from_fixed<KELO_CALCHR_SHORT_LENGTH>(beats, n, fs);
}

}  // extern "C"
