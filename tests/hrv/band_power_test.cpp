// Band powers: the 0.4 Hz limit, inclusive band edges, the failure status
// that replaces the process terminations, and where modulated RR series put
// their power.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>
#include <vector>

#include "hrv/hrv_support.hpp"

namespace {

using namespace kelo::test;
using Freq = std::array<double, 6>;
constexpr std::array<double, 8> kEdges{0.0, 0.0033, 0.0033, 0.04, 0.04, 0.15, 0.15, 0.4};

TEST(HrvBands, LineAtTheLimitIsKeptAndCountedInHf) {
  std::vector<double> f{0.0033, 0.04, 0.1, 0.15, 0.4, std::nextafter(0.4, 1.0), NAN, 0.0};
  std::vector<double> a{1, 2, 3, 4, 5, 6, 7, 0};
  uint32_t count = 0;
  limitFreq(f.data(), a.data(), 8, 0.4, &count);
  EXPECT_EQ(count, 6u);  // the zeroed lines are not counted, the trailing 0 Hz line is
  EXPECT_EQ(f, (std::vector<double>{0.0033, 0.04, 0.1, 0.15, 0.4, 0.0, 0.0, 0.0}));
  EXPECT_EQ(a, (std::vector<double>{1, 2, 3, 4, 5, 0, 0, 0}));
  // Lines on the shared edges 0.0033, 0.04 and 0.15 count in both bands:
  // total, ULF, VLF, LF, HF and LF / HF.
  Freq r{};
  calcPWR(8, kEdges.data(), f.data(), a.data(), 6, r.data());
  EXPECT_EQ(r, (Freq{55.0, 1.0, 1.0 + 4.0, 4.0 + 9.0 + 16.0, 16.0 + 25.0, 29.0 / 41.0}));
}

TEST(HrvBands, BadTablesAndTooFewLinesWriteNothing) {
  const std::vector<double> f{0.01, 0.05, 0.1, 0.2}, a{1, 1, 1, 1}, many(22, 0.1);
  std::array<double, 13> r;
  r.fill(-7.0);
  // Fewer than 3 edges, an odd number, 11 bands, only 2 lines.
  for (const auto& [nedges, count] : {std::pair{2, 4}, {7, 4}, {22, 4}, {8, 2}})
    calcPWR(nedges, nedges == 22 ? many.data() : kEdges.data(), f.data(), a.data(), count, r.data());
  EXPECT_EQ(std::count(r.begin(), r.end(), -7.0), 13);
}

TEST(HrvBands, Status4WhereNoBandPowersCanBeFormed) {
  // Two intervals: one analysed point. Intervals of 50 ms: the whole series
  // spans 0.15 s, so the first line lies above 0.4 Hz and only the two
  // trailing zero lines are left. Six ordinary intervals: powers formed,
  // the status is written only on failure.
  for (const Beats& intervals : {Beats{160, 160}, Beats{10, 10, 10, 10, 10}, Beats{160, 150, 170, 165, 155, 160}}) {
    const Series s = rr_series(beats_from_intervals(intervals));
    Freq r;
    r.fill(-7.0);
    int32_t status = 123;
    calcHrvFreq(s.t.data(), s.rr.data(), s.n(), r.data(), &status);
    const bool formed = intervals.size() == 6;
    EXPECT_EQ(status, formed ? 123 : KELO_HRV_STATUS_NO_SPECTRUM) << intervals.size();
    EXPECT_EQ(std::count(r.begin(), r.end(), -7.0), formed ? 0 : 6) << intervals.size();
    EXPECT_EQ(r[KELO_HRV_TOT_PWR] > 0.0, formed) << intervals.size();
  }
}

TEST(HrvBands, ModulatedSeriesPutTheirPowerInTheRightBand) {
  for (const auto& [f, band] : {std::pair{0.25, KELO_HRV_HF_PWR}, {0.1, KELO_HRV_LF_PWR}, {0.02, KELO_HRV_VLF_PWR}}) {
    const Beats beats = modulated_beats(f, 0.05, 300.0, 1000);
    std::array<double, 7> time{};
    Freq freq{};
    int32_t status = -1;
    calcHrv(beats.data(), static_cast<int32_t>(beats.size()) - 1, 1000, time.data(), freq.data(), &status);
    EXPECT_EQ(status, 0);
    EXPECT_GT(freq[band] / freq[KELO_HRV_TOT_PWR], 0.9) << f;  // measured: 0.999, 0.994, 0.990
    // The amplitudes are normalised so that the power sums to about the
    // variance of the analysed intervals (nearly all of it lies below 0.4 Hz
    // here); a divisor of nout / 2 instead of nout would double it.
    const double variance = time[KELO_HRV_SDNN] * time[KELO_HRV_SDNN];
    EXPECT_NEAR(freq[KELO_HRV_TOT_PWR], variance, 0.05 * variance) << f;
  }
}

}  // namespace
