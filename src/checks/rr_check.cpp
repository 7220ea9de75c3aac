// RR interval checks: beats that border an implausibly short interval are
// marked 5 (unless their class is 1) and removed from the beat list, for up
// to three iterations.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <span>

#include "checks/interval_stats.hpp"
#include "keloecgsolver/checks.h"
#include "keloecgsolver/rt_nonfinite.h"
#include "runtime/boundary.hpp"
#include "runtime/emx.hpp"

namespace {

using kelo::checks::at;

constexpr std::size_t kLongLength = KELO_CHECK_LENGTH;
constexpr std::size_t kShortLength = KELO_CHECK_SHORT_LENGTH;

constexpr int32_t kMaxIterations = 3;
constexpr int32_t kProtectedClass = 1;  // never marked
constexpr int32_t kRemoveClass = 5;     // marks a beat for removal
// The intervals are examined only when their spread is large against the
// median interval.
constexpr double kSpreadFraction = 0.1;
// An interval shorter than mean - kShortSds * sd is implausible.
constexpr double kShortSds = 2.0;
constexpr int32_t kOutOfMemory = -1;  // the count reported when memory runs out

// The list being cleaned: positions and class codes, compacted together.
struct BeatList {
  std::span<int32_t> positions;
  std::span<int32_t> classes;
};

// The intervals d(1 .. m) of the current list and their statistics.
struct IntervalSummary {
  std::span<const double> intervals;
  double mean;
  double sd;
  double median;
};

// One removal sweep over the first count beats: each beat with class 5 is
// removed by shifting the later positions and classes down by one. The
// element shifted into the removed one's place is stepped over, not
// examined (a later sweep or iteration finds it). Returns the new count.
int32_t remove_marked(const BeatList& list, int32_t count) {
  const int32_t before = count;
  int32_t j = 1;
  while (j <= before) {
    if (at(list.classes, j) == kRemoveClass) {
      --count;
      for (int32_t i = j; i <= count; ++i) {
        at(list.positions, i) = at(list.positions, i + 1);
        at(list.classes, i) = at(list.classes, i + 1);
      }
    }
    if (j > count) break;
    ++j;
  }
  return count;
}

// Marks both beats of interval k (1-based) unless they have class 1.
// Returns whether a class was written.
bool mark_interval(const BeatList& list, int32_t k) {
  bool marked = false;
  for (const int32_t beat : {k, k + 1}) {
    int32_t& cls = at(list.classes, beat);
    if (cls != kProtectedClass) {
      cls = kRemoveClass;
      marked = true;
    }
  }
  return marked;
}

// The iterations shared by all variants. count is the caller's beat count
// (cleanCount or *n), updated after every removal; it must not exceed the
// list's arrays or flags. summarise(N) computes the intervals of the first
// N beats and their statistics.
template <class Summarise>
void clean_beats(const BeatList& list, int32_t& count, std::span<bool> flags,
                 Summarise&& summarise) {
  bool changed = true;
  for (int32_t iteration = 0; changed && iteration < kMaxIterations; ++iteration) {
    changed = false;
    const int32_t beats = count;
    if (beats < 2) break;
    std::fill(flags.begin(), flags.end(), false);
    const IntervalSummary s = summarise(beats);
    if (!(s.sd > kSpreadFraction * s.median)) continue;

    // All flags from this iteration's intervals, before anything moves. The
    // last interval is never flagged.
    for (int32_t k = 1; k <= beats - 2; ++k) {
      at(flags, k) = s.mean - kShortSds * s.sd > at(s.intervals, k);
    }
    // The flags keep their indices while the list shifts under them.
    for (int32_t k = 1; k <= beats - 2; ++k) {
      if (!at(flags, k)) continue;
      if (mark_interval(list, k)) changed = true;
      count = remove_marked(list, count);
    }
  }
}

// ---- fixed-length variants -------------------------------------------------

// The work arrays of checkRR: each call has its own, on the heap (612 KB is
// too much for the stack of every thread a caller may use).
struct RrWork {
  std::array<double, kLongLength> positions;
  std::array<double, kLongLength> intervals;
  std::array<bool, kLongLength> flags;
};

template <std::size_t Length>
struct RrFixedBuffers {
  std::span<double, Length> positions;  // positions as doubles, then the median's sorted copy
  std::span<double, Length> intervals;
  std::span<bool, Length> flags;
};

// Intervals of the first N positions with the fixed-length kernels. Once
// the intervals exist the position copy is free and holds the sorted copy
// for the median, so the intervals keep their order.
template <std::size_t Length>
IntervalSummary summarise_fixed(const RrFixedBuffers<Length>& buf, std::span<const int32_t> positions,
                                int32_t beats) {
  using namespace kelo::checks;
  std::copy_n(positions.begin(), beats, buf.positions.begin());  // as doubles
  m_calcDiff<double>(buf.positions, beats, buf.intervals);
  const int32_t m = beats - 1;
  const std::span<const double> intervals = buf.intervals;
  const double mean = m_calcMean(intervals, 1.0, m);
  const double sd = m_calcSd(intervals, 1.0, m, mean);
  std::copy_n(intervals.begin(), m, buf.positions.begin());
  const double median = m_calcMedian(buf.positions, m);
  return {intervals.first(static_cast<std::size_t>(m)), mean, sd, median};
}

template <std::size_t Length>
void check_rr_fixed(const RrFixedBuffers<Length>& buf, const int32_t* beats, int32_t n,
                    int32_t* classes, int32_t* cleanBeats, int32_t* cleanCount) {
  // A fixed-length list cannot hold more beats than its length.
  *cleanCount = std::min(n, static_cast<int32_t>(Length));
  std::copy_n(beats, Length, cleanBeats);
  const BeatList list{{cleanBeats, Length}, {classes, Length}};
  clean_beats(list, *cleanCount, buf.flags, [&](int32_t count) {
    return summarise_fixed(buf, list.positions, count);
  });
}

// ---- record variant --------------------------------------------------------

// Work records of checkRRvar, made at entry and freed on return.
struct RrRecordWork {
  kelo::EmxReal intervals{1};  // positions as doubles, differenced in place
  kelo::EmxReal sorted{1};     // sorted copy of the intervals, for the median
  kelo::EmxBool flags{1};
};

// Intervals of the first N positions computed inline on the records: mean
// = sum / m, sd = sqrt((1 / (m - 1)) * sum of squared deviations). Same
// bits as the fixed-length kernels for every count the list can hold.
IntervalSummary summarise_records(RrRecordWork& work, std::span<const int32_t> positions,
                                  int32_t beats) {
  const int32_t m = beats - 1;
  kelo::resize_column(work.intervals.get(), beats);
  const std::span<double> d = work.intervals.span();
  std::copy_n(positions.begin(), beats, d.begin());  // as doubles
  for (int32_t k = 1; k <= m; ++k) at(d, k) = at(d, k + 1) - at(d, k);
  double sum = 0.0;
  for (int32_t k = 1; k <= m; ++k) sum += at(d, k);
  const double mean = sum / static_cast<double>(m);
  double squares = 0.0;
  for (int32_t k = 1; k <= m; ++k) squares += rt_pow_snf(at(d, k) - mean, 2.0);
  const double sd = std::sqrt(1.0 / static_cast<double>(m - 1) * squares);

  kelo::resize_column(work.sorted.get(), m);
  const std::span<double> sorted = work.sorted.span();
  std::copy_n(d.begin(), m, sorted.begin());
  const double median = kelo::checks::m_calcMedian(sorted, m);
  return {d.first(static_cast<std::size_t>(m)), mean, sd, median};
}

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
        const RrFixedBuffers<kLongLength> buf{work->positions, work->intervals, work->flags};
        check_rr_fixed(buf, beats, n, classes, cleanBeats, cleanCount);
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
  const RrFixedBuffers<kShortLength> buf{positions, intervals, flags};
  check_rr_fixed(buf, beats, n, classes, cleanBeats, cleanCount);
}

KELO_API void checkRRvar(emxArray_int32_T* beats, int32_t* n, emxArray_int32_T* classes) {
  if (beats == nullptr || n == nullptr || classes == nullptr) return;
  const BeatList list{kelo::elements(beats), kelo::elements(classes)};
  const auto available = static_cast<int32_t>(std::min(list.positions.size(), list.classes.size()));
  if (*n > available) *n = available;
  if (*n < 2) return;

  // The work records get their largest sizes before anything is changed;
  // later iterations only shrink them, so they never allocate.
  kelo::guarded(
      [&] {
        RrRecordWork work;
        kelo::resize_column(work.flags.get(), *n);
        kelo::resize_column(work.intervals.get(), *n);
        kelo::resize_column(work.sorted.get(), *n - 1);
        clean_beats(list, *n, work.flags.span(), [&](int32_t count) {
          return summarise_records(work, list.positions, count);
        });
      },
      [&] { *n = kOutOfMemory; });
}

}  // extern "C"
