// Missed-beat search: long RR gaps are searched for the candidate with the
// largest peak-to-peak amplitude, accepted by amplitude or slope, and the
// beats found are merged into the list, for up to 15 passes.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <span>

#include "classify/refine_kernels.hpp"
#include "keloecgsolver/classify.h"
#include "runtime/boundary.hpp"
#include "runtime/numeric.hpp"

namespace {

using namespace kelo::refine;

constexpr std::size_t kLen = static_cast<std::size_t>(kLength);
constexpr int32_t kMaxPasses = 15;
constexpr double kLongGapSds = 1.65;      // a gap longer than mean + 1.65 sd is searched
constexpr double kAmplitudeSds = 3.5;     // accepted amplitude band
constexpr double kSlopeSds = 3.0;         // accepted slope band
constexpr double kMinAmplitudeRatio = 0.5;
constexpr double kHalfGapSds = 1.96;      // each half of a split gap must exceed mean - 1.96 sd

// The work arrays of the search. Each call has its own, on the heap (1.3 MB
// is too much for the stack of every thread a caller may use).
struct RefineWork {
  std::array<double, kLen> rr;
  std::array<double, kLen> amplitude;  // beat amplitudes, then a gap's candidate amplitudes
  std::array<double, kLen> slope_max;  // beat slopes, then a gap's candidate slopes
  std::array<double, kLen> slope_min;
  std::array<int32_t, kLen> merge_copy;
};

constexpr int32_t kOutOfMemory = -1;  // the count reported when memory runs out

struct SlopeRange {
  double max;
  double min;
};

// Largest and smallest first difference x[j+1] - x[j] over j = first ..
// last (from -10000 and 10000). Differences that would need a sample
// outside the signal are not formed.
SlopeRange slopes(std::span<const double> x, int64_t first, int64_t last) {
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

double amplitude(std::span<const double> x, int64_t first, int64_t last) {
  return m_findMax(x, first, last) - m_findMin(x, first, last);
}

BeatStats beat_stats(std::span<const double> x, std::span<const int32_t> r, int32_t n, int32_t w,
                     RefineWork& work) {
  BeatStats st{};
  for (int32_t i = 1; i <= n - 1; ++i) {
    at(work.rr, i) = kelo::sat_sub(at(r, i + 1), at(r, i));
  }
  st.mRR = m_calcMean(work.rr, 1, n - 1);
  st.sRR = m_calcSd(work.rr, 1, n - 1, st.mRR);

  // Beats without a full window keep amplitude 0 and still count.
  work.amplitude.fill(0.0);
  for (int32_t k = 1; k <= n; ++k) {
    const int32_t rk = at(r, k);
    if (kelo::sat_sub(rk, w) > 0 && kelo::sat_add(rk, w) <= m_length()) {
      const int32_t lo = m_max(1.0, kelo::sat_sub(rk, w));
      const int32_t hi = m_min(kelo::sat_add(rk, w), static_cast<double>(m_length()));
      at(work.amplitude, k) = amplitude(x, lo, hi);
    }
  }
  st.mA = m_calcMean(work.amplitude, 1, n);
  st.sA = m_calcSd(work.amplitude, 1, n, st.mA);

  work.slope_max.fill(0.0);
  work.slope_min.fill(0.0);
  for (int32_t k = 1; k <= n; ++k) {
    const int32_t rk = at(r, k);
    if (kelo::sat_sub(rk, w) <= 0) continue;
    const SlopeRange s = slopes(x, kelo::sat_sub(rk, w), rk);
    at(work.slope_max, k) = s.max;
    at(work.slope_min, k) = s.min;
    st.vote += m_b_max(std::fabs(s.max), std::fabs(s.min)).index == 1 ? 1 : -1;
  }
  // Downward complexes still take the maximum slopes, from the second beat
  // on: that is the reference the search has always used.
  const int32_t first = st.vote >= 0 ? 1 : 2;
  st.mS = m_calcMean(work.slope_max, first, n);
  st.sS = m_calcSd(work.slope_max, first, n, st.mS);
  return st;
}

// The best candidate of the gap between beats ri and rnext.
struct Candidate {
  double amplitude;
  int32_t index;  // 1-based number of the candidate; its centre is ri + 2w + index - 1
  double slope;
};

Candidate search_gap(std::span<const double> x, int32_t ri, int32_t rnext, int32_t w, int32_t vote,
                     RefineWork& work) {
  work.amplitude.fill(0.0);
  work.slope_max.fill(0.0);
  work.slope_min.fill(0.0);
  const int32_t w2 = kelo::sat_add(w, w);
  const int32_t start = kelo::sat_add(ri, w2);

  // Candidate amplitudes; at most one per array entry.
  int32_t m = 0;
  for (int64_t p = start; p <= kelo::sat_sub(rnext, w2) && m < kLength; ++p) {
    ++m;
    at(work.amplitude, m) = amplitude(x, p - w, p + w);
  }
  const double best = m_c_max(work.amplitude);
  const int32_t idx = m_findIdx(work.amplitude, 1, m, best);

  // Candidate slopes run to rnext - w, further than the amplitudes.
  int32_t s = 0;
  for (int64_t p = start; p <= kelo::sat_sub(rnext, w) && s < kLength; ++p) {
    const SlopeRange range = slopes(x, p - w, p);
    ++s;
    at(work.slope_max, s) = range.max;
    at(work.slope_min, s) = range.min;
  }
  const double slope = vote >= 0 ? m_c_max(work.slope_max) : m_b_min(work.slope_min);
  return {best, idx, slope};
}

bool accepted(const Candidate& c, const BeatStats& st) {
  if (st.mA - kAmplitudeSds * st.sA < c.amplitude && c.amplitude < st.mA + kAmplitudeSds * st.sA) {
    return true;
  }
  return st.mS - kSlopeSds * st.sS < c.slope && c.slope < st.mS + kSlopeSds * st.sS &&
         c.amplitude > kMinAmplitudeRatio * st.mA;
}

// One pass over the first n beats: beats found are appended after entry n.
// Returns the number appended.
int32_t refine_pass(std::span<const double> x, std::span<int32_t> beats, int32_t n, int32_t w,
                    RefineWork& work) {
  const BeatStats st = beat_stats(x, beats, n, w, work);
  const double minHalf = st.mRR - kHalfGapSds * st.sRR;
  int32_t added = 0;
  for (int32_t i = 1; i <= n - 1; ++i) {
    if (!(at(work.rr, i) > st.mRR + kLongGapSds * st.sRR)) continue;
    const int32_t ri = at(beats, i);
    const int32_t rnext = at(beats, i + 1);
    const Candidate c = search_gap(x, ri, rnext, w, st.vote, work);
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

}  // namespace

kelo::refine::BeatStats kelo::refine::beat_statistics(std::span<const double> x,
                                                      std::span<const int32_t> beats, int32_t n,
                                                      int32_t w) {
  const auto work = std::make_unique_for_overwrite<RefineWork>();
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
  // The work arrays are the only memory taken, before anything is written.
  kelo::guarded(
      [&] {
        const auto work = std::make_unique_for_overwrite<RefineWork>();
        n = std::min(n, kLength);
        *count = n;
        std::copy_n(beatsIn, kLen, beatsOut);
        const int32_t w = m_mrdivide(kelo::round_to_int32(0.12 * static_cast<double>(fs)), 2.0);

        const std::span<const double> signal(x, kLen);
        const std::span<int32_t> beats(beatsOut, kLen);
        int32_t added = 1;
        for (int32_t pass = 0; added > 0 && pass < kMaxPasses; ++pass) {
          added = refine_pass(signal, beats, n, w, *work);
          std::copy(beats.begin(), beats.end(), work->merge_copy.begin());
          m_sortData(work->merge_copy, n, added, beats);
        }
      },
      [&] { *count = kOutOfMemory; });
}

}  // extern "C"
