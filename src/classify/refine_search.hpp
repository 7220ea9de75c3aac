// The passes of the missed-beat search (refineQrsDetection): long RR gaps
// are searched for the candidate with the largest peak-to-peak amplitude,
// accepted by amplitude or slope, and the beats found are merged into the
// list, for up to 15 passes.
//
// Every gap starts from cleared candidate arrays and takes the largest
// candidate over all kLength entries of an array, the unused ones being
// zero; and every pass searches every long gap again. The library's form
// (Fast = true) clears and scans only the entries written since the last
// clearing, and searches each gap once per call: what a gap yields depends
// on its two beats and the polarity vote alone, and a pass moves few beats,
// so the next pass meets the same gaps again. The plain form (Fast =
// false), which clears and scans every entry and searches every gap of
// every pass, is kept as the reference the tests compare the library with.
// Both give the same bits: the entries beyond the written ones are zero
// either way, a run of zeros after them changes an extreme as one zero
// does, and a gap's search is the same computation whenever it runs.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <new>
#include <span>
#include <unordered_map>

#include "classify/refine_kernels.hpp"
#include "runtime/numeric.hpp"

namespace kelo::refine {

inline constexpr std::size_t kLen = static_cast<std::size_t>(kLength);
inline constexpr int32_t kMaxPasses = 15;
inline constexpr double kLongGapSds = 1.65;      // a gap longer than mean + 1.65 sd is searched
inline constexpr double kAmplitudeSds = 3.5;     // accepted amplitude band
inline constexpr double kSlopeSds = 3.0;         // accepted slope band
inline constexpr double kMinAmplitudeRatio = 0.5;
inline constexpr double kHalfGapSds = 1.96;      // each half of a split gap must exceed mean - 1.96 sd

// kLength doubles that are all zero after clear(). With Tracked, the
// entries written since are remembered (as the highest index), and
// clearing and the extremes cover only those; the zeros beyond count as
// one zero.
template <bool Tracked>
class WorkArray {
 public:
  void clear() {
    std::fill_n(v_.begin(), Tracked ? used_ : kLength, 0.0);
    used_ = 0;
  }
  // Entry k (1-based).
  void set(int32_t k, double value) {
    at(v_, k) = value;
    used_ = std::max(used_, k);
  }
  std::span<const double> all() const { return v_; }
  // m_c_max / m_b_min over all entries.
  double largest() const { return extreme(m_c_max(written()), [](double v, double best) { return v > best; }); }
  double smallest() const { return extreme(m_b_min(written()), [](double v, double best) { return v < best; }); }

 private:
  std::span<const double> written() const {
    return Tracked ? all().first(static_cast<std::size_t>(used_)) : all();
  }
  // The scan's step for the zeros after the written entries.
  template <class Better>
  double extreme(double best, Better better) const {
    if (Tracked && used_ < kLength && (std::isnan(best) || better(0.0, best))) return 0.0;
    return best;
  }

  std::array<double, kLen> v_;
  int32_t used_ = kLength;  // nothing known: the first clearing clears all
};

// What the search of a gap yields: the largest candidate amplitude, the
// 1-based number of the first candidate that has it (its centre is
// ri + 2w + index - 1), and the extreme candidate slopes.
struct GapSearch {
  double amplitude;
  int32_t index;
  double slopeMax;  // for upward complexes (vote >= 0)
  double slopeMin;  // for downward ones
};

template <bool Fast>
struct RefineWork {
  std::array<double, kLen> rr;
  WorkArray<Fast> amplitude;  // beat amplitudes, then a gap's candidate amplitudes
  WorkArray<Fast> slope_max;  // beat slopes, then a gap's candidate slopes
  WorkArray<Fast> slope_min;
  std::array<int32_t, kLen> merge_copy;
  std::unordered_map<uint64_t, GapSearch> gaps;  // Fast: the gaps searched, by their two beats
};

struct SlopeRange {
  double max;
  double min;
};

// Largest and smallest first difference x[j+1] - x[j] over j = first ..
// last (from -10000 and 10000). Differences that would need a sample
// outside the signal are not formed.
inline SlopeRange slopes(std::span<const double> x, int64_t first, int64_t last) {
  SlopeRange s{-10000.0, 10000.0};
  const int64_t lo = std::max<int64_t>(first, 1);
  const int64_t hi = std::min<int64_t>(last, static_cast<int64_t>(x.size()) - 1);
  for (int64_t j = lo; j <= hi; ++j) {
    const double d = at(x, j + 1) - at(x, j);
    if (d > s.max) s.max = d;
    if (d < s.min) s.min = d;
  }
  return s;
}

inline double amplitude(std::span<const double> x, int64_t first, int64_t last) {
  return m_findMax(x, first, last) - m_findMin(x, first, last);
}

template <bool Fast>
BeatStats beat_stats(std::span<const double> x, std::span<const int32_t> r, int32_t n, int32_t w,
                     RefineWork<Fast>& work) {
  BeatStats st{};
  for (int32_t i = 1; i <= n - 1; ++i) {
    at(work.rr, i) = kelo::sat_sub(at(r, i + 1), at(r, i));
  }
  st.mRR = m_calcMean(work.rr, 1, n - 1);
  st.sRR = m_calcSd(work.rr, 1, n - 1, st.mRR);

  // Beats without a full window keep amplitude 0 and still count.
  work.amplitude.clear();
  for (int32_t k = 1; k <= n; ++k) {
    const int32_t rk = at(r, k);
    if (kelo::sat_sub(rk, w) > 0 && kelo::sat_add(rk, w) <= m_length()) {
      const int32_t lo = m_max(1.0, kelo::sat_sub(rk, w));
      const int32_t hi = m_min(kelo::sat_add(rk, w), static_cast<double>(m_length()));
      work.amplitude.set(k, amplitude(x, lo, hi));
    }
  }
  st.mA = m_calcMean(work.amplitude.all(), 1, n);
  st.sA = m_calcSd(work.amplitude.all(), 1, n, st.mA);

  work.slope_max.clear();
  work.slope_min.clear();
  for (int32_t k = 1; k <= n; ++k) {
    const int32_t rk = at(r, k);
    if (kelo::sat_sub(rk, w) <= 0) continue;
    const SlopeRange s = slopes(x, kelo::sat_sub(rk, w), rk);
    work.slope_max.set(k, s.max);
    work.slope_min.set(k, s.min);
    st.vote += m_b_max(std::fabs(s.max), std::fabs(s.min)).index == 1 ? 1 : -1;
  }
  // Downward complexes still take the maximum slopes, from the second beat
  // on: that is the reference the search has always used.
  const int32_t first = st.vote >= 0 ? 1 : 2;
  st.mS = m_calcMean(work.slope_max.all(), first, n);
  st.sS = m_calcSd(work.slope_max.all(), first, n, st.mS);
  return st;
}

// The search of the gap between beats ri and rnext.
template <bool Fast>
GapSearch search_gap(std::span<const double> x, int32_t ri, int32_t rnext, int32_t w, RefineWork<Fast>& work) {
  work.amplitude.clear();
  work.slope_max.clear();
  work.slope_min.clear();
  const int32_t w2 = kelo::sat_add(w, w);
  const int32_t start = kelo::sat_add(ri, w2);

  // Candidate amplitudes; at most one per array entry.
  int32_t m = 0;
  for (int64_t p = start; p <= kelo::sat_sub(rnext, w2) && m < kLength; ++p) {
    ++m;
    work.amplitude.set(m, amplitude(x, p - w, p + w));
  }
  const double best = work.amplitude.largest();
  const int32_t idx = m_findIdx(work.amplitude.all(), 1, m, best);

  // Candidate slopes run to rnext - w, further than the amplitudes.
  int32_t s = 0;
  for (int64_t p = start; p <= kelo::sat_sub(rnext, w) && s < kLength; ++p) {
    const SlopeRange range = slopes(x, p - w, p);
    ++s;
    work.slope_max.set(s, range.max);
    work.slope_min.set(s, range.min);
  }
  return {best, idx, work.slope_max.largest(), work.slope_min.smallest()};
}

// The best candidate of a gap and the slope that goes with the vote.
struct Candidate {
  double amplitude;
  int32_t index;
  double slope;
};

template <bool Fast>
Candidate gap_candidate(std::span<const double> x, int32_t ri, int32_t rnext, int32_t w, int32_t vote,
                        RefineWork<Fast>& work) {
  GapSearch g;
  if constexpr (Fast) {
    const uint64_t key = (uint64_t{static_cast<uint32_t>(ri)} << 32) | static_cast<uint32_t>(rnext);
    if (const auto it = work.gaps.find(key); it != work.gaps.end()) {
      g = it->second;
    } else {
      g = search_gap(x, ri, rnext, w, work);
      // Remembering the gap only saves time: when memory runs short the
      // search goes on without it (a failed insertion leaves the map as
      // it was).
      try {
        work.gaps.emplace(key, g);
      } catch (const std::bad_alloc&) {
      }
    }
  } else {
    g = search_gap(x, ri, rnext, w, work);
  }
  return {g.amplitude, g.index, vote >= 0 ? g.slopeMax : g.slopeMin};
}

inline bool accepted(const Candidate& c, const BeatStats& st) {
  if (st.mA - kAmplitudeSds * st.sA < c.amplitude && c.amplitude < st.mA + kAmplitudeSds * st.sA) {
    return true;
  }
  return st.mS - kSlopeSds * st.sS < c.slope && c.slope < st.mS + kSlopeSds * st.sS &&
         c.amplitude > kMinAmplitudeRatio * st.mA;
}

// One pass over the first n beats: beats found are appended after entry n.
// Returns the number appended.
template <bool Fast>
int32_t refine_pass(std::span<const double> x, std::span<int32_t> beats, int32_t n, int32_t w,
                    RefineWork<Fast>& work) {
  const BeatStats st = beat_stats(x, beats, n, w, work);
  const double minHalf = st.mRR - kHalfGapSds * st.sRR;
  int32_t added = 0;
  for (int32_t i = 1; i <= n - 1; ++i) {
    if (!(at(work.rr, i) > st.mRR + kLongGapSds * st.sRR)) continue;
    const int32_t ri = at(beats, i);
    const int32_t rnext = at(beats, i + 1);
    const Candidate c = gap_candidate(x, ri, rnext, w, st.vote, work);
    if (!accepted(c, st)) continue;
    // The beat goes to the largest sample of the window that ends at the
    // candidate's centre (pos - w .. pos + w with pos = ri + w + idx - 1).
    const int32_t pos = kelo::sat_add(kelo::sat_add(ri, w), c.index - 1);
    const int32_t pstar = m_b_findMax(x, int64_t{pos} - w, int64_t{pos} + w).index;
    if (kelo::sat_sub(pstar, ri) > minHalf && kelo::sat_sub(rnext, pstar) > minHalf) {
      if (n + added >= kLength) continue;  // no slot left: the beat is dropped
      ++added;
      at(beats, n + added) = pstar;
    }
  }
  return added;
}

// The whole search on x and beatsOut (kLength entries each), beatsIn copied
// into beatsOut first; n is clamped to kLength by the caller and is what
// *count reports.
template <bool Fast>
void refine(std::span<const double> x, const int32_t* beatsIn, int32_t n, int32_t fs, int32_t* beatsOut,
            RefineWork<Fast>& work) {
  std::copy_n(beatsIn, kLen, beatsOut);
  const int32_t w = m_mrdivide(kelo::round_to_int32(0.12 * static_cast<double>(fs)), 2.0);
  const std::span<int32_t> beats(beatsOut, kLen);
  int32_t added = 1;
  for (int32_t pass = 0; added > 0 && pass < kMaxPasses; ++pass) {
    added = refine_pass(x, beats, n, w, work);
    std::copy(beats.begin(), beats.end(), work.merge_copy.begin());
    m_sortData(work.merge_copy, n, added, beats);
  }
}

}  // namespace kelo::refine
