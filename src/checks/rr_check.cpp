// RR interval checks: beats that border an implausibly short interval are
// marked 5 (unless their class is 1) and removed from the beat list, for up
// to three iterations (checks/rr_clean.hpp).
#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "checks/rr_clean.hpp"
#include "keloecgsolver/checks.h"
#include "runtime/boundary.hpp"
#include "runtime/emx.hpp"

namespace {

using namespace kelo::checks;

constexpr std::size_t kLongLength = KELO_CHECK_LENGTH;
constexpr std::size_t kShortLength = KELO_CHECK_SHORT_LENGTH;
constexpr int32_t kOutOfMemory = -1;  // the count reported when memory runs out

// The removal's work arrays for short lists, on the stack.
template <std::size_t Length>
struct RemovalArrays {
  std::array<int32_t, Length> positions, classes, inTree, markedTree;
  std::array<bool, Length> in;
  RemovalSpace space() { return {positions, classes, inTree, markedTree, in}; }
};

// The removal's work arrays for n beats, on the heap.
struct RemovalVectors {
  std::vector<int32_t> positions, classes, inTree, markedTree;
  std::unique_ptr<bool[]> in;
  explicit RemovalVectors(int32_t n)
      : positions(n), classes(n), inTree(n), markedTree(n), in(std::make_unique<bool[]>(n)) {}
  RemovalSpace space() { return {positions, classes, inTree, markedTree, {in.get(), positions.size()}}; }
};

// The work arrays of checkRR: each call has its own, on the heap (612 KB
// is too much for the stack of every thread a caller may use).
struct RrWork {
  std::array<double, kLongLength> positions;
  std::array<double, kLongLength> intervals;
  std::array<bool, kLongLength> flags;
};

// checkRRvar's records, sized for n beats.
struct RrRecords {
  kelo::EmxReal intervals{1}, sorted{1};
  kelo::EmxBool flags{1};
  explicit RrRecords(int32_t n) {
    kelo::resize_column(flags.get(), n);
    kelo::resize_column(intervals.get(), n);
    kelo::resize_column(sorted.get(), n - 1);
  }
};

}  // namespace

extern "C" {

KELO_API void checkRR(const int32_t beats[KELO_CHECK_LENGTH], int32_t n,
                      int32_t classes[KELO_CHECK_LENGTH], int32_t cleanBeats[KELO_CHECK_LENGTH],
                      int32_t* cleanCount) {
  if (beats == nullptr || classes == nullptr || cleanBeats == nullptr || cleanCount == nullptr) return;
  // The work arrays are the only memory taken, before anything is written.
  kelo::guarded(
      [&] {
        const auto work = std::make_unique_for_overwrite<RrWork>();
        RemovalVectors removal(std::clamp(n, 0, static_cast<int32_t>(kLongLength)));
        const RrFixedBuffers<kLongLength> buf{work->positions, work->intervals, work->flags, removal.space()};
        check_rr_fixed<true>(buf, beats, n, classes, cleanBeats, cleanCount);
      },
      [&] { *cleanCount = kOutOfMemory; });
}

KELO_API void checkRRshort(const int32_t beats[KELO_CHECK_SHORT_LENGTH], int32_t n,
                           int32_t classes[KELO_CHECK_SHORT_LENGTH],
                           int32_t cleanBeats[KELO_CHECK_SHORT_LENGTH], int32_t* cleanCount) {
  if (beats == nullptr || classes == nullptr || cleanBeats == nullptr || cleanCount == nullptr) return;
  std::array<double, kShortLength> positions;
  std::array<double, kShortLength> intervals;
  std::array<bool, kShortLength> flags;
  RemovalArrays<kShortLength> removal;
  const RrFixedBuffers<kShortLength> buf{positions, intervals, flags, removal.space()};
  check_rr_fixed<true>(buf, beats, n, classes, cleanBeats, cleanCount);
}

KELO_API void checkRRvar(emxArray_int32_T* beats, int32_t* n, emxArray_int32_T* classes) {
  if (beats == nullptr || n == nullptr || classes == nullptr) return;
  const BeatList list{kelo::elements(beats), kelo::elements(classes)};
  const auto available = static_cast<int32_t>(std::min(list.positions.size(), list.classes.size()));
  if (*n > available) *n = available;
  if (*n < 2) return;

  // The work arrays get their largest sizes before anything is changed.
  kelo::guarded(
      [&] {
        RrRecords records(*n);
        RemovalVectors removal(*n);
        const RrRecordWork work{records.intervals.span(), records.sorted.span(), records.flags.span(),
                                removal.space()};
        check_rr_records<true>(work, list, *n);
      },
      [&] { *n = kOutOfMemory; });
}

}  // extern "C"
