// RR series and time-domain statistics on series worked out by hand.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include "hrv/hrv_support.hpp"
#include "support/sum_order.hpp"

namespace {

using namespace kelo::test;
using Results = std::array<double, 7>;

Series series_of(const Beats& intervals) { return rr_series(beats_from_intervals(intervals)); }

Results time_results(const Series& s, int32_t* status = nullptr) {
  Results r;
  r.fill(-99.0);
  calcHrvTime(s.t.data(), s.rr.data(), s.ann.data(), s.n(), r.data(), status);
  return r;
}

std::string text(const Results& r) {  // "%f" of each result, NaN as "nan"
  std::string out;
  for (double v : r) out += (out.empty() ? "" : " ") + (std::isnan(v) ? std::string("nan") : std::to_string(v));
  return out;
}

TEST(HrvTime, AllNormalSeriesByHand) {
  // rr = 0.8 | 0.85 0.75 0.9 0.8 at the interval midpoints; interval 0 is
  // never NN.
  const Series s = series_of({160, 170, 150, 180, 160});
  EXPECT_EQ(s.ann, std::vector<char>(5, 'N'));
  EXPECT_EQ(s.rr, (std::vector<double>{0.8, 0.85, 0.75, 0.9, 0.8}));
  // Each interval time adds the mean of two neighbours to the one before,
  // bit for bit: (t + a / 2) + b / 2 would differ at 257 Hz here.
  const Series odd = rr_series(beats_from_intervals({160, 171, 149, 183, 158, 166, 177, 151}), 257);
  bool apart = false;
  for (std::size_t i = 1; i < odd.t.size(); ++i) {
    const double t = odd.t[i - 1] + (odd.rr[i - 1] + odd.rr[i]) / 2;
    EXPECT_EQ(kelo::test::bits(odd.t[i]), kelo::test::bits(t)) << i;
    apart = apart || kelo::test::bits(t) != kelo::test::bits(odd.t[i - 1] + odd.rr[i - 1] / 2 + odd.rr[i] / 2);
  }
  EXPECT_TRUE(apart) << "the data no longer tell the orders apart";
  int32_t status = -1;
  const Results r = time_results(s, &status);
  EXPECT_EQ(status, 0);
  EXPECT_DOUBLE_EQ(r[KELO_HRV_NN_RR], 4.0 / 5.0);
  EXPECT_NEAR(r[KELO_HRV_AVNN], 0.825, 1e-15);
  EXPECT_NEAR(r[KELO_HRV_SDNN], std::sqrt(0.0125 / 3), 1e-12);
  // Shorter than 300 s: one segment, so SDANN is not formed (0 after the
  // driver, -1 before) and the SDNN index is that segment's SDNN.
  EXPECT_EQ(r[KELO_HRV_SDANN], 0.0);
  EXPECT_DOUBLE_EQ(r[KELO_HRV_SDNNIDX], r[KELO_HRV_SDNN]);
  // n - 2 = 3 differences: -0.1 0.15 -0.1.
  EXPECT_NEAR(r[KELO_HRV_RMSSD], std::sqrt((0.01 + 0.0225 + 0.01) / 3), 1e-12);
  EXPECT_EQ(r[KELO_HRV_PNN50], 1.0);
  Results raw;
  calcStatNN(s.t.data(), s.rr.data(), s.ann.data(), 5, raw.data());
  EXPECT_EQ(raw[KELO_HRV_SDANN], -1.0);
  // The interval saturates instead of wrapping to -1.
  EXPECT_EQ(rr_series({INT32_MIN, INT32_MAX}, 1).rr[0], 2147483647.0);
}

TEST(HrvTime, Pnn50CountsDifferencesAboveFiftyMsByMoreThanTheMargin) {
  // One successive difference, rr[2] - rr[1]: 0.85 - 0.8 is 0.04999999999999993
  // and 0.55 - 0.5 is 0.050000000000000044, neither counts; the margin is 1e-10.
  for (const auto& [first, second, pnn50] : std::vector<std::tuple<double, double, double>>{
           {0.8, 0.85, 0}, {0.5, 0.55, 0}, {0.8, 0.8500000000900000, 0}, {0.8, 0.8500000001100000, 1},
           {0.8, 0.7499999998900000, 1}, {0.8, 0.855, 1}}) {
    const Series s{std::vector<char>(3, 'N'), {0, 1, 2}, {0.8, first, second}};
    EXPECT_EQ(time_results(s)[KELO_HRV_PNN50], pnn50) << first << " " << second;
  }
}

TEST(HrvTime, SegmentBoundaries) {
  // Intervals 0.9 | 1.0 1.2 1.4 at 0 .. 3 s, then 0.5 0.7 0.9 at T .. T + 2 s.
  // T = 300 opens segment 1: means 1.2 and 0.7, sds 0.2 and 0.2. Just below,
  // 0.5 stays in segment 0 (mean 1.025, sd 0.3862; then 0.8, 0.1414).
  // T = 600 closes segment 0, leaves 0.5 alone in segment 1 (not closed:
  // one NN interval) and puts 0.7 0.9 in segment 2 (0.8, 0.1414). Just above
  // 600 segment 1 is skipped without closing segment 0, and is closed with
  // segment 0's counts over empty sums (mean 0, sd 0); segment 2 holds
  // 0.5 0.7 0.9 (0.7, 0.2).
  const double below = std::nextafter(300.0, 0.0), above = std::nextafter(600.0, 700.0);
  for (const auto& [t, sdann, sdnnidx] : std::vector<std::tuple<double, double, double>>{
           {300.0, std::sqrt(0.125), 0.2}, {below, std::sqrt(0.050625 / 2), (0.3862210075418822 + std::sqrt(0.02)) / 2},
           {600.0, std::sqrt(0.08), (0.2 + std::sqrt(0.02)) / 2}, {above, std::sqrt(0.245), 0.1}}) {
    const Series s{std::vector<char>(7, 'N'), {0, 1, 2, 3, t, t + 1, t + 2}, {0.9, 1.0, 1.2, 1.4, 0.5, 0.7, 0.9}};
    const Results r = time_results(s);
    EXPECT_NEAR(r[KELO_HRV_SDANN], sdann, 1e-12) << t;
    EXPECT_NEAR(r[KELO_HRV_SDNNIDX], sdnnidx, 1e-12) << t;
  }
}

TEST(HrvTime, NonNormalBeatsBreakTheNNSeries) {
  // An annotation other than 'N' removes its interval and the next one, and
  // the differences that touch them: NN are intervals 1, 4 and 5.
  Series s = series_of({160, 160, 170, 150, 160, 160});
  s.ann[2] = 'A';
  const Results r = time_results(s);
  EXPECT_DOUBLE_EQ(r[KELO_HRV_NN_RR], 3.0 / 6.0);
  EXPECT_NEAR(r[KELO_HRV_AVNN], 0.8, 1e-15);
  EXPECT_EQ(r[KELO_HRV_RMSSD], 0.0);  // the one difference: 5 - 4
}

TEST(HrvTime, DegenerateSeries) {
  const int32_t beats[] = {100, 260};
  for (int32_t n : {0, 1}) {
    Results r;
    std::array<double, 6> freq{};
    int32_t status = 9;
    calcHrv(beats, n, 200, r.data(), freq.data(), &status);
    EXPECT_EQ(text(r), "0.000000 nan nan 0.000000 -1.000000 nan nan") << n;
    EXPECT_EQ(status, KELO_HRV_STATUS_NO_SPECTRUM);
  }
  calcHrv(nullptr, 3, 200, nullptr, nullptr, nullptr);  // must simply return
  // Beyond the segment buffers (200 hours): all NaN, without hanging.
  for (double late : {720000.0, 720000.5, std::numeric_limits<double>::infinity()}) {
    const Series s{std::vector<char>(4, 'N'), {0, 1, 2, late}, {0.8, 0.8, 0.9, 0.8}};
    EXPECT_EQ(text(time_results(s)) == "nan nan nan nan nan nan nan", late > 720000.0) << late;
  }
}

TEST(HrvTime, StaticBuffersAreResetBetweenCalls) {
  const Series a{std::vector<char>(6, 'N'), {0, 1, 2, 400, 401, 402}, {0.8, 0.9, 0.7, 0.8, 1.0, 0.7}};
  const Series b{std::vector<char>(6, 'N'), {0, 1, 2, 400, 401, 402}, {0.5, 0.6, 0.7, 0.4, 0.5, 0.9}};
  const Results first = time_results(a);
  time_results(b);
  EXPECT_EQ(time_results(a), first);
  // The first segment holds one NN interval only and is never closed; the
  // segment that call a closed there must not count now: one segment, so
  // SDANN 0 and SDNN index the SD of 0.8, 1.0, 0.7.
  const Series late{std::vector<char>(5, 'N'), {0, 1, 400, 401, 402}, {0.8, 0.9, 0.8, 1.0, 0.7}};
  const Results r = time_results(late);
  EXPECT_EQ(r[3], 0.0);
  EXPECT_NEAR(r[4], std::sqrt(0.0466666666666667 / 2.0), 1e-12);
}

}  // namespace
