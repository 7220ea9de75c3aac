// The iterations of the RR interval checks (checkRR, checkRRshort,
// checkRRvar): beats that border an implausibly short interval are marked
// 5 (unless their class is 1) and removed from the beat list, for up to
// three iterations.
//
// After every flagged interval a removal sweep walks the list, shifting
// the later beats down over each beat marked 5 and stepping over the beat
// that moved into its place. Done that way (Fast = false, the plain form
// the tests compare with), every sweep costs the length of the list, and an
// iteration as many sweeps as it has flagged intervals: quadratic. (It also
// sorts the intervals for their median, where the library selects the two
// middle ones.) The
// library (Fast = true) keeps an iteration's list as its beats at the
// start, which ones are still in and which are marked, in two Fenwick
// trees: a sweep jumps from marked beat to marked beat, and a beat is
// found by its place in the list, in O(log n). The places beyond the
// current count hold what the shifts leave there (each place, when the
// count drops below it, keeps the beat that was last then), and a sweep
// may read one of them; those places are written as the shifts would have
// written them, so the arrays end bit for bit as the plain form leaves
// them.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <span>

#include "checks/interval_stats.hpp"
#include "keloecgsolver/rt_nonfinite.h"

namespace kelo::checks {

inline constexpr int32_t kMaxIterations = 3;
inline constexpr int32_t kProtectedClass = 1;  // never marked
inline constexpr int32_t kRemoveClass = 5;     // marks a beat for removal
// The intervals are examined only when their spread is large against the
// median interval.
inline constexpr double kSpreadFraction = 0.1;
// An interval shorter than mean - kShortSds * sd is implausible.
inline constexpr double kShortSds = 2.0;

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

// ---- the plain removal -------------------------------------------------------

// One removal sweep over the first count beats: each beat with class 5 is
// removed by shifting the later positions and classes down by one. The
// element shifted into the removed one's place is stepped over, not
// examined (a later sweep or iteration finds it). Returns the new count.
inline int32_t remove_marked(const BeatList& list, int32_t count) {
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
inline bool mark_interval(const BeatList& list, int32_t k) {
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

// ---- the library's removal -------------------------------------------------------

// Counts over 1 .. n with prefix sums and the search for the k-th counted
// element, each in O(log n). tree holds n entries.
class Fenwick {
 public:
  // Every element of 1 .. n counted once, or none.
  Fenwick(std::span<int32_t> tree, int32_t n, bool counted) : t_(tree.first(static_cast<std::size_t>(n))), n_(n) {
    for (int32_t i = 1; i <= n; ++i) t_[i - 1] = counted ? (i & -i) : 0;
    while (top_ * 2 <= n) top_ *= 2;
  }
  void add(int32_t i, int32_t delta) {
    for (; i <= n_; i += i & -i) t_[i - 1] += delta;
  }
  int32_t prefix(int32_t i) const {
    int32_t s = 0;
    for (; i > 0; i -= i & -i) s += t_[i - 1];
    return s;
  }
  // The element with prefix(i) = k (1 <= k <= the count).
  int32_t kth(int32_t k) const {
    int32_t i = 0;
    for (int32_t step = top_; step > 0; step /= 2) {
      if (i + step <= n_ && t_[i + step - 1] < k) {
        i += step;
        k -= t_[i - 1];
      }
    }
    return i + 1;
  }

 private:
  std::span<int32_t> t_;
  int32_t n_;
  int32_t top_ = 1;
};

// Work room of the library's removal: five arrays of at least as many
// entries as the list has beats.
struct RemovalSpace {
  std::span<int32_t> positions, classes, inTree, markedTree;
  std::span<bool> in;
};

// One iteration's list, as its beats at the start (by number 1 .. n0) and
// which are still in and marked. Place p <= count is the p-th beat still
// in; places beyond count are read and written in the caller's arrays.
class SweptList {
 public:
  SweptList(const BeatList& list, int32_t count, const RemovalSpace& space)
      : list_(list),
        space_(space),
        n0_(count),
        count_(count),
        in_(space.inTree, count, true),
        marked_(space.markedTree, count, false) {
    std::copy_n(list.positions.begin(), count, space.positions.begin());
    std::copy_n(list.classes.begin(), count, space.classes.begin());
    std::fill_n(space.in.begin(), count, true);
    for (int32_t b = 1; b <= count; ++b)
      if (at(space.classes, b) == kRemoveClass) marked_.add(b, 1);
  }

  int32_t count() const { return count_; }

  // mark_interval on places k and k + 1.
  bool mark(int32_t k) {
    bool marked = false;
    for (const int32_t place : {k, k + 1}) {
      int32_t& cls = place <= count_ ? at(space_.classes, in_.kth(place)) : at(list_.classes, place);
      if (cls == kProtectedClass) continue;
      if (place <= count_ && cls != kRemoveClass) marked_.add(in_.kth(place), 1);
      cls = kRemoveClass;
      marked = true;
    }
    return marked;
  }

  // remove_marked: from place j, the next marked beat still in is removed
  // and the one after it stepped over; once past the count, the place
  // after the last (when the sweep removed something) is read once more,
  // and a 5 there lowers the count without a shift.
  void sweep() {
    const int32_t before = count_;
    int32_t j = 1;
    while (j <= count_) {
      const int32_t r = next_marked(j);
      if (r == 0) {
        j = count_ + 1;
        break;
      }
      drop(r);
      if (r > count_) return;
      j = r + 1;
    }
    if (j <= before && at(list_.classes, j) == kRemoveClass) drop(count_);
  }

  // Writes the beats still in to places 1 .. count; returns the count.
  int32_t finish() {
    int32_t place = 0;
    for (int32_t b = 1; b <= n0_; ++b) {
      if (!at(space_.in, b)) continue;
      ++place;
      at(list_.positions, place) = at(space_.positions, b);
      at(list_.classes, place) = at(space_.classes, b);
    }
    return count_;
  }

 private:
  // The place of the first marked beat still in at place j or later, or 0.
  int32_t next_marked(int32_t j) const {
    const int32_t before = marked_.prefix(in_.kth(j) - 1);
    if (before == marked_.prefix(n0_)) return 0;
    return in_.prefix(marked_.kth(before + 1));
  }

  // Takes the beat at place r out of the list. The place of the last beat,
  // now beyond the count, keeps that beat (the shift leaves it there).
  void drop(int32_t r) {
    const int32_t last = in_.kth(count_);
    at(list_.positions, count_) = at(space_.positions, last);
    at(list_.classes, count_) = at(space_.classes, last);
    const int32_t b = in_.kth(r);
    in_.add(b, -1);
    at(space_.in, b) = false;
    if (at(space_.classes, b) == kRemoveClass) marked_.add(b, -1);
    --count_;
  }

  BeatList list_;
  RemovalSpace space_;
  int32_t n0_;
  int32_t count_;
  Fenwick in_;
  Fenwick marked_;
};

// ---- the iterations ---------------------------------------------------------------

// The iterations shared by all variants. count is the caller's beat count
// (cleanCount or *n), updated after every removal; it must not exceed the
// list's arrays or flags (or, for Fast, the removal space). summarise(N)
// computes the intervals of the first N beats and their statistics.
template <bool Fast, class Summarise>
void clean_beats(const BeatList& list, int32_t& count, std::span<bool> flags, const RemovalSpace& space,
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
    // The flags keep their places while the list shifts under them.
    if constexpr (Fast) {
      SweptList swept(list, count, space);
      for (int32_t k = 1; k <= beats - 2; ++k) {
        if (!at(flags, k)) continue;
        if (swept.mark(k)) changed = true;
        swept.sweep();
      }
      count = swept.finish();
    } else {
      for (int32_t k = 1; k <= beats - 2; ++k) {
        if (!at(flags, k)) continue;
        if (mark_interval(list, k)) changed = true;
        count = remove_marked(list, count);
      }
    }
  }
}

// ---- the variants ------------------------------------------------------------------

// Work arrays of the fixed-length variants.
template <std::size_t Length>
struct RrFixedBuffers {
  std::span<double, Length> positions;  // positions as doubles, then the median's sorted copy
  std::span<double, Length> intervals;
  std::span<bool, Length> flags;
  RemovalSpace removal;  // Length entries each (Fast only)
};

// Intervals of the first N positions with the fixed-length kernels. Once
// the intervals exist the position copy is free and holds the sorted copy
// for the median, so the intervals keep their order.
template <bool Fast, std::size_t Length>
IntervalSummary summarise_fixed(const RrFixedBuffers<Length>& buf, std::span<const int32_t> positions,
                                int32_t beats) {
  std::copy_n(positions.begin(), beats, buf.positions.begin());  // as doubles
  m_calcDiff<double>(buf.positions, beats, buf.intervals);
  const int32_t m = beats - 1;
  const std::span<const double> intervals = buf.intervals;
  const double mean = m_calcMean(intervals, 1.0, m);
  const double sd = m_calcSd(intervals, 1.0, m, mean);
  std::copy_n(intervals.begin(), m, buf.positions.begin());
  const double median = Fast ? median_by_selection(buf.positions, m) : m_calcMedian(buf.positions, m);
  return {intervals.first(static_cast<std::size_t>(m)), mean, sd, median};
}

// checkRR and checkRRshort on their arrays.
template <bool Fast, std::size_t Length>
void check_rr_fixed(const RrFixedBuffers<Length>& buf, const int32_t* beats, int32_t n, int32_t* classes,
                    int32_t* cleanBeats, int32_t* cleanCount) {
  // A fixed-length list cannot hold more beats than its length.
  *cleanCount = std::min(n, static_cast<int32_t>(Length));
  std::copy_n(beats, Length, cleanBeats);
  const BeatList list{{cleanBeats, Length}, {classes, Length}};
  clean_beats<Fast>(list, *cleanCount, buf.flags, buf.removal,
                    [&](int32_t count) { return summarise_fixed<Fast>(buf, list.positions, count); });
}

// Work records of checkRRvar, sized before anything is changed; later
// iterations only shrink them.
struct RrRecordWork {
  std::span<double> intervals;  // positions as doubles, differenced in place
  std::span<double> sorted;     // sorted copy of the intervals, for the median
  std::span<bool> flags;
  RemovalSpace removal;  // Fast only
};

// Intervals of the first N positions computed inline: mean = sum / m,
// sd = sqrt((1 / (m - 1)) * sum of squared deviations). Same bits as the
// fixed-length kernels for every count the list can hold.
template <bool Fast>
IntervalSummary summarise_records(const RrRecordWork& work, std::span<const int32_t> positions,
                                         int32_t beats) {
  const int32_t m = beats - 1;
  const std::span<double> d = work.intervals.first(static_cast<std::size_t>(beats));
  std::copy_n(positions.begin(), beats, d.begin());  // as doubles
  for (int32_t k = 1; k <= m; ++k) at(d, k) = at(d, k + 1) - at(d, k);
  double sum = 0.0;
  for (int32_t k = 1; k <= m; ++k) sum += at(d, k);
  const double mean = sum / static_cast<double>(m);
  double squares = 0.0;
  for (int32_t k = 1; k <= m; ++k) squares += rt_pow_snf(at(d, k) - mean, 2.0);
  const double sd = std::sqrt(1.0 / static_cast<double>(m - 1) * squares);

  const std::span<double> sorted = work.sorted.first(static_cast<std::size_t>(m));
  std::copy_n(d.begin(), m, sorted.begin());
  const double median = Fast ? median_by_selection(sorted, m) : m_calcMedian(sorted, m);
  return {d.first(static_cast<std::size_t>(m)), mean, sd, median};
}

// checkRRvar on a list of n >= 2 beats that fits both records.
template <bool Fast>
void check_rr_records(const RrRecordWork& work, const BeatList& list, int32_t& n) {
  clean_beats<Fast>(list, n, work.flags.first(static_cast<std::size_t>(n)), work.removal,
                    [&](int32_t count) { return summarise_records<Fast>(work, list.positions, count); });
}

}  // namespace kelo::checks
