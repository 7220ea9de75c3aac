// Signal and RR checks. Grading: clipping by the raw maximum, irregular
// rhythm, clamped counts, both lengths agreeing, the rounding of the
// kernels. RR cleaning: worked examples of the removal sweep through all
// three variants. Both: bad counts and pointers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

#include "checks/interval_stats.hpp"
#include "keloecgsolver/checks.h"
#include "keloecgsolver/lifecycle.h"
#include "support/emx_builders.hpp"
#include "support/sum_order.hpp"

namespace {

using Ints = std::vector<int32_t>;
constexpr int32_t kLong = KELO_CHECK_LENGTH;
constexpr int32_t kShort = KELO_CHECK_SHORT_LENGTH;

// Grades samples and beats zero-padded to the arrays; `length` picks the
// variant. A short excerpt whose counts fit gets the same grade from both.
int32_t grade(int32_t length, std::vector<double> ecg, Ints beats, int32_t n, double fullScale,
              int32_t nBeats) {
  ecg.resize(kLong, 0.0);
  beats.resize(kLong, 0);
  checkQuality_initialize();
  const int32_t longer = checkQuality(ecg.data(), n, fullScale, beats.data(), nBeats);
  if (length == kLong) return longer;
  const int32_t shorter = checkQualityShort(ecg.data(), n, fullScale, beats.data(), nBeats);
  if (n <= kShort && nBeats <= kShort) {
    EXPECT_EQ(longer, shorter) << "both lengths agree";
  }
  return shorter;
}

// Zero samples but one.
std::vector<double> spike(int32_t at, double value) {
  std::vector<double> x(kLong, 0.0);
  x[static_cast<std::size_t>(at)] = value;
  return x;
}

TEST(CheckQuality, GradesAtTheirBoundaries) {
  Ints ramp(kShort);  // a full short list, then with one long last interval
  for (int32_t k = 0; k < kShort; ++k) ramp[k] = 10 * k;
  Ints stretched = ramp;
  stretched.back() += 20000;
  const double limit = 0.97 * 1000.0, above = std::nextafter(limit, 2.0 * limit);
  const Ints irregular{0, 100, 200, 360}, regular{0, 100, 200, 300};
  struct Case {
    int32_t length, spikeAt;
    double spike;
    int32_t n;  // samples examined
    double fullScale;
    Ints beats;
    int32_t nBeats, grade;
    const char* why;
  };
  for (const Case& c : std::vector<Case>{
           {kShort, 0, 0.0, kShort, 10.0, {0, 90, 240, 360}, 4, 1, "sd 30 is a quarter of the mean 120"},
           {kShort, 0, 0.0, kShort, 10.0, {0, 89, 240, 360}, 4, 3, "sd 31 is more"},
           {kLong, 0, 0.0, kLong, 10.0, {INT32_MIN, 0, INT32_MAX}, 3, 1, "both intervals saturate: sd 0"},
           {kShort, 0, 0.0, kShort, 1.0, ramp, kShort + 50, 1, "a count beyond the array counts the array"},
           {kShort, 0, 0.0, kShort, 1.0, stretched, INT32_MAX, 3, "the last interval counts"},
           {kShort, 0, 0.0, kShort, 1.0, stretched, kShort - 1, 1, "and one beat less leaves it out"},
           {kShort, 500, limit, kShort, 1000.0, irregular, 4, 3, "at the limit: not clipped"},
           {kShort, 500, above, kShort, 1000.0, irregular, 4, 2, "clipping wins over rhythm"},
           {kShort, 500, above, 500, 1000.0, irregular, 4, 3, "sample 501 is not examined"},
           {kLong, 700, -5000.0, kLong, 1000.0, regular, 4, 1, "negative swings do not clip"},
           {kLong, kLong - 1, 2000.0, kLong + 1000, 1000.0, regular, 4, 2, "n clamped to the array"},
           {kLong, 0, 0.0, 0, -10309.0, regular, 4, 1, "nothing examined: -10000 is not above -9999.73"},
           {kLong, 0, 0.0, 0, -10310.0, regular, 4, 2, "but above -10000.7"}})
    EXPECT_EQ(grade(c.length, spike(c.spikeAt, c.spike), c.beats, c.n, c.fullScale, c.nBeats), c.grade) << c.why;
  // Fewer than three beats never give a verdict (NaN statistics).
  for (int32_t count : {-3, 0, 1, 2}) EXPECT_EQ(grade(kLong, {}, {0, 5000}, kLong, 10.0, count), 1) << count;
  EXPECT_EQ(checkQuality(nullptr, kLong, 1.0, ramp.data(), 3), 0);
  EXPECT_EQ(checkQualityShort(spike(0, 0.0).data(), kShort, 1.0, nullptr, 3), 0);
}

TEST(CheckKernels, ReciprocalDeviationAndMedian) {
  // Mean and deviation sum from the first element to the last; the deviation
  // multiplies by the reciprocal of the index span (sum / 39 differs here).
  const std::vector<double> v = kelo::test::scattered(40, 3);
  double total = 0.0, sum = 0.0;
  for (double e : v) total += e;
  const double mean = total / 40.0;
  for (double e : v) sum += (e - mean) * (e - mean);
  ASSERT_NE(sum * (1.0 / 39.0), sum / 39.0) << "test data no longer tell the two apart";
  EXPECT_EQ(kelo::checks::m_calcMean<double>(v, 1.0, 40), mean);
  EXPECT_EQ(kelo::checks::m_calcSd<double>(v, 1.0, 40, mean), std::sqrt(sum * (1.0 / 39.0)));
  // The median sorts its prefix in place, as a bubble sort would.
  std::mt19937 rng(11);
  std::uniform_int_distribution<int32_t> value(-40, 40);
  for (int32_t n = 1; n < 60; ++n) {
    std::vector<double> x(static_cast<std::size_t>(n) + 3, 99.0);
    for (int32_t k = 0; k < n; ++k) x[k] = value(rng);
    std::vector<double> b = x;
    for (int32_t pass = 1; pass < n; ++pass)
      for (int32_t k = 0; k + 1 < n; ++k)
        if (b[k] > b[k + 1]) std::swap(b[k], b[k + 1]);
    EXPECT_EQ(kelo::checks::m_calcMedian(x, n), n % 2 == 1 ? b[n / 2] : (b[n / 2 - 1] + b[n / 2]) / 2.0);
    EXPECT_EQ(x, b) << "sorted prefix and untouched tail";
  }
}

// The count, then the first count positions and classes.
using Cleaned = std::tuple<int32_t, Ints, Ints>;
using FixedCheck = void (*)(const int32_t*, int32_t, int32_t*, int32_t*, int32_t*);

template <int32_t Length>
Cleaned run_fixed(FixedCheck check, const Ints& beats, const Ints& classes, int32_t n) {
  Ints in(Length, 0), cls(Length, 0), out(Length, -1);
  std::copy(beats.begin(), beats.end(), in.begin());
  std::copy(classes.begin(), classes.end(), cls.begin());
  int32_t count = -99;
  check(in.data(), n, cls.data(), out.data(), &count);
  const auto kept = std::clamp(count, 0, Length);
  return {count, {out.begin(), out.begin() + kept}, {cls.begin(), cls.begin() + kept}};
}

Cleaned run_var(const Ints& beats, const Ints& classes, int32_t n) {
  auto b = kelo::test::int_column(beats), c = kelo::test::int_column(classes);
  checkRRvar(b, &n, c);
  EXPECT_EQ(b->size[0], static_cast<int32_t>(beats.size())) << "extents unchanged";
  const auto bv = kelo::test::values(b), cv = kelo::test::values(c);
  const auto kept = std::max(n, 0);  // *n never exceeds either record
  return {n, {bv.begin(), bv.begin() + kept}, {cv.begin(), cv.begin() + kept}};
}

// Runs all three variants and expects the same answer from each.
Cleaned check_all(const Ints& beats, const Ints& classes, std::optional<int32_t> n = std::nullopt) {
  const int32_t count = n.value_or(static_cast<int32_t>(beats.size()));
  checkRR_initialize();
  const Cleaned l = run_fixed<kLong>(checkRR, beats, classes, count);
  EXPECT_EQ(run_fixed<kShort>(checkRRshort, beats, classes, count), l);
  EXPECT_EQ(run_var(beats, classes, count), l);
  return l;
}

void expect_unchanged(const Ints& beats, const Ints& classes) {
  EXPECT_EQ(check_all(beats, classes), (Cleaned{static_cast<int32_t>(beats.size()), beats, classes}));
}

TEST(CheckRR, WorkedExamples) {
  const Ints regular{0, 200, 400, 600, 800, 1000, 1200, 1400, 1600};
  const Ints extra{0, 200, 400, 600, 800, 1000, 1200, 1230, 1400, 1600};
  // Interval 30 marks 1200 and 1230; the sweep removes 1200 and steps over
  // 1230, moved into its place; then sd 16 against median 200 stops it.
  EXPECT_EQ(check_all(extra, Ints(10)),
            (Cleaned{9, {0, 200, 400, 600, 800, 1000, 1230, 1400, 1600}, {0, 0, 0, 0, 0, 0, 5, 0, 0}}));
  // Class 1 is never marked.
  expect_unchanged(extra, {0, 0, 0, 0, 0, 0, 1, 1, 0, 0});
  EXPECT_EQ(check_all(extra, {0, 0, 0, 0, 0, 0, 1, 0, 0, 0}), (Cleaned{9, regular, {0, 0, 0, 0, 0, 0, 1, 0, 0}}));
  // Regular beats: sd 0 is not above a tenth of the median, and a beat
  // marked on entry goes only with the sweep after a flagged interval.
  expect_unchanged(regular, {0, 0, 5, 0, 3, 0, 0, 0, 0});
  EXPECT_EQ(check_all(extra, {0, 0, 5, 0, 0, 0, 0, 0, 0, 0}),
            (Cleaned{8, {0, 200, 600, 800, 1000, 1230, 1400, 1600}, {0, 0, 0, 0, 0, 5, 0, 0}}));
  // Interval 30 at the very end is below mean - 2 sd = 67.8, but the last
  // interval is not tested.
  expect_unchanged({0, 200, 400, 600, 800, 1000, 1200, 1400, 1600, 1630}, Ints(10));
  // A burst of extra beats after 600 loses one beat per iteration; a fourth
  // iteration would still remove 653.
  const Ints burst{0, 200, 400, 600, 608, 610, 653, 800, 1000, 1200, 1400, 1600, 1800, 2000, 2200};
  EXPECT_EQ(check_all(burst, Ints(15)),
            (Cleaned{12, {0, 200, 400, 653, 800, 1000, 1200, 1400, 1600, 1800, 2000, 2200},
                     {0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0, 0}}));
}

// Intervals (samples) of ten beats of class 0 whose second interval is
// short; the second beat goes when that interval is flagged.
TEST(CheckRR, SpreadAndShortIntervalAtTheirBoundaries) {
  for (const auto& [intervals, removed, why] : std::vector<std::tuple<Ints, bool, const char*>>{
           {{200, 139, 200, 200, 200, 200, 200, 188, 192}, false, "sd 20 is a tenth of the median 200"},
           {{200, 139, 200, 200, 200, 200, 200, 185, 188}, true, "sd 20.09 is more"},
           {{200, 116, 200, 200, 200, 200, 200, 156, 256}, false, "116 is mean 192 - 2 sd 38"},
           {{200, 107, 200, 200, 200, 200, 200, 150, 260}, true, "107 is below 190.78 - 2 * 41.81"}}) {
    Ints beats{0};
    for (int32_t d : intervals) beats.push_back(beats.back() + d);
    Ints kept = beats, classes(beats.size() - 1, 0);
    if (!removed) {
      expect_unchanged(beats, Ints(beats.size(), 0));
      continue;
    }
    kept.erase(kept.begin() + 1);
    classes[1] = 5;  // the beat after the removed one, stepped over by the sweep
    EXPECT_EQ(check_all(beats, Ints(beats.size(), 0)), (Cleaned{9, kept, classes})) << why;
  }
  // The last two beats carry 5 on entry. The sweep after the flagged second
  // interval removes the second last, steps on to one entry past the
  // shortened list, finds there the stale copy of the last beat (5) and
  // removes it too: the last beat goes with it.
  const Ints beats{0, 200, 307, 507, 707, 907, 1107, 1307, 1457, 1717};
  EXPECT_EQ(check_all(beats, {0, 0, 0, 0, 0, 0, 0, 0, 5, 5}),
            (Cleaned{7, {0, 307, 507, 707, 907, 1107, 1307}, {0, 5, 0, 0, 0, 0, 0}}));
}

TEST(CheckRR, BadCountsAndPointers) {
  const Ints beats{0, 30, 400};
  for (int32_t n : {-4, 0, 1, 2}) {
    const auto kept = static_cast<std::size_t>(std::max(n, 0));
    EXPECT_EQ(check_all(beats, {0, 0, 0}, n), (Cleaned{n, {beats.begin(), beats.begin() + kept}, Ints(kept, 0)}));
  }
  // A full short list, intervals alternating 150 and 250 (sd 50), with one
  // doublet: an n beyond the array counts as the array.
  Ints full(kShort);
  for (int32_t k = 1; k < kShort; ++k) full[k] = full[k - 1] + (k % 2 == 0 ? 150 : 250);
  full[1500] = full[1499] + 20;
  EXPECT_EQ(std::get<0>(run_fixed<kShort>(checkRRshort, full, Ints(kShort, 0), kShort + 500)), kShort - 1);
  // The record variant lowers *n to what both records hold.
  EXPECT_EQ(run_var({0, 200, 400, 600}, {0, 0, 0}, 4), (Cleaned{3, {0, 200, 400}, {0, 0, 0}}));
  // NULL pointers: nothing is read or written.
  auto records = kelo::test::int_column(beats);
  checkRRvar(records, nullptr, records);
  Ints out(kShort, 7);
  int32_t count = 42;
  checkRRshort(nullptr, 10, full.data(), out.data(), &count);
  checkRRshort(full.data(), 10, full.data(), out.data(), nullptr);
  EXPECT_EQ(count, 42);
  EXPECT_EQ(out[0], 7);
}

}  // namespace
