// The RR interval checks in their plain form: every removal sweep shifts
// the list down over each beat it removes.
#include <memory>
#include <vector>

#include "checks/rr_clean.hpp"
#include "keloecgsolver/checks.h"
#include "reference/routines.hpp"
#include "runtime/emx.hpp"

namespace kelo::ref {
namespace {

template <std::size_t Length>
void check_rr_fixed(const int32_t* beats, int32_t n, int32_t* classes, int32_t* cleanBeats, int32_t* cleanCount) {
  std::vector<double> positions(Length), intervals(Length);
  const auto flags = std::make_unique<bool[]>(Length);
  const checks::RrFixedBuffers<Length> buf{std::span<double, Length>(positions.data(), Length),
                                           std::span<double, Length>(intervals.data(), Length),
                                           std::span<bool, Length>(flags.get(), Length),
                                           {}};
  checks::check_rr_fixed<false>(buf, beats, n, classes, cleanBeats, cleanCount);
}

}  // namespace

void check_rr(const int32_t* beats, int32_t n, int32_t* classes, int32_t* cleanBeats, int32_t* cleanCount) {
  check_rr_fixed<KELO_CHECK_LENGTH>(beats, n, classes, cleanBeats, cleanCount);
}

void check_rr_short(const int32_t* beats, int32_t n, int32_t* classes, int32_t* cleanBeats,
                    int32_t* cleanCount) {
  check_rr_fixed<KELO_CHECK_SHORT_LENGTH>(beats, n, classes, cleanBeats, cleanCount);
}

void check_rr_var(emxArray_int32_T* beats, int32_t* n, emxArray_int32_T* classes) {
  const checks::BeatList list{elements(beats), elements(classes)};
  const auto available = static_cast<int32_t>(std::min(list.positions.size(), list.classes.size()));
  if (*n > available) *n = available;
  if (*n < 2) return;
  std::vector<double> intervals(*n), sorted(*n - 1);
  const auto flags = std::make_unique<bool[]>(*n);
  const checks::RrRecordWork work{intervals, sorted, {flags.get(), static_cast<std::size_t>(*n)}, {}};
  checks::check_rr_records<false>(work, list, *n);
}

}  // namespace kelo::ref
