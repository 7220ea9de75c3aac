// Signal quality of an excerpt: clipping of the raw samples, then
// irregularity of the beat-to-beat intervals.
#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <span>

#include "checks/interval_stats.hpp"
#include "keloecgsolver/checks.h"
#include "keloecgsolver/grades.h"
#include "runtime/boundary.hpp"
#include "runtime/numeric.hpp"
#include "runtime/run_rules.hpp"

namespace {

constexpr std::size_t kLongLength = KELO_CHECK_LENGTH;
constexpr std::size_t kShortLength = KELO_CHECK_SHORT_LENGTH;

constexpr int32_t kUsable = KELO_EXCERPT_USABLE;
constexpr int32_t kClipped = KELO_EXCERPT_CLIPPED;
constexpr int32_t kIrregular = KELO_EXCERPT_IRREGULAR;
constexpr int32_t kNotGraded = KELO_EXCERPT_NOT_GRADED;  // a required array is missing, or memory ran out

// Clipping: a raw sample (not its magnitude) above this fraction of full
// scale. Irregular rhythm: interval standard deviation above this fraction
// of the mean interval.
using kelo::rules::kClipFraction;
using kelo::rules::kIrregularFraction;

// Work copies of one grading: the samples, the beats and their intervals.
template <std::size_t Length>
struct QualityBuffers {
  std::span<double, Length> samples;
  std::span<int32_t, Length> beats;
  std::span<int32_t, Length> intervals;
};

// The work copies of checkQuality: each call has its own, on the heap
// (576 KB is too much for the stack of every thread a caller may use).
struct QualityWork {
  std::array<double, kLongLength> samples;
  std::array<int32_t, kLongLength> beats;
  std::array<int32_t, kLongLength> intervals;
};

template <std::size_t Length>
int32_t grade_excerpt(const QualityBuffers<Length>& buf, const double* ecg, int32_t n,
                      double fullScale, const int32_t* beats, int32_t nBeats) {
  using namespace kelo::checks;
  int32_t grade = kUsable;
  std::copy_n(ecg, Length, buf.samples.begin());
  // The raw maximum, not the largest magnitude.
  if (m_findMax(buf.samples, n).value > kClipFraction * fullScale) grade = kClipped;

  if (grade == kUsable) {
    std::copy_n(beats, Length, buf.beats.begin());
    // More beats than the array holds cannot exist: count the array.
    const int32_t count = std::min(nBeats, static_cast<int32_t>(Length));
    m_calcDiff<int32_t>(buf.beats, count, buf.intervals);
    const int32_t m = kelo::sat_sub(count, 1);
    const std::span<const int32_t> intervals = buf.intervals;
    const double mean = m_calcMean(intervals, 1.0, m);
    const double sd = m_calcSd(intervals, 1.0, m, mean);
    // With fewer than three beats sd or mean is NaN and this is false.
    if (sd > kIrregularFraction * mean) return kIrregular;
  }
  return grade;
}

}  // namespace

extern "C" {

KELO_API int32_t checkQuality(const double ecg[KELO_CHECK_LENGTH], int32_t n, double fullScale,
                              const int32_t beats[KELO_CHECK_LENGTH], int32_t nBeats) {
  if (ecg == nullptr || beats == nullptr) return kNotGraded;
  return kelo::guarded(
      [&] {
        const auto work = std::make_unique_for_overwrite<QualityWork>();
        const QualityBuffers<kLongLength> buf{work->samples, work->beats, work->intervals};
        return grade_excerpt(buf, ecg, n, fullScale, beats, nBeats);
      },
      [] { return kNotGraded; });
}

KELO_API int32_t checkQualityShort(const double ecg[KELO_CHECK_SHORT_LENGTH], int32_t n,
                                   double fullScale,
                                   const int32_t beats[KELO_CHECK_SHORT_LENGTH], int32_t nBeats) {
  if (ecg == nullptr || beats == nullptr) return kNotGraded;
  std::array<double, kShortLength> samples;
  std::array<int32_t, kShortLength> beatCopy;
  std::array<int32_t, kShortLength> intervals;
  const QualityBuffers<kShortLength> buf{samples, beatCopy, intervals};
  return grade_excerpt(buf, ecg, n, fullScale, beats, nBeats);
}

}  // extern "C"
