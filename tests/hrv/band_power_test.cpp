// Band powers: the 0.4 Hz limit, inclusive band edges, the failure status
// that replaces the process terminations, and where modulated RR series put
// their power.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <numeric>
#include <utility>
#include <vector>

#include "hrv/hrv_support.hpp"
#include "keloecgsolver/hrv.h"

namespace {

constexpr std::array<double, 8> kEdges{0.0, 0.0033, 0.0033, 0.04, 0.04, 0.15, 0.15, 0.4};

TEST(HrvBands, LineAtTheLimitIsKeptAndCountedInHf) {
  std::vector<double> f{0.0033, 0.04, 0.1, 0.15, 0.4, std::nextafter(0.4, 1.0), NAN, 0.0};
  std::vector<double> a{1, 2, 3, 4, 5, 6, 7, 0};
  uint32_t count = 0;
  limitFreq(f.data(), a.data(), 8, 0.4, &count);
  EXPECT_EQ(count, 6u);  // the zeroed lines are not counted, the trailing 0 Hz line is
  EXPECT_EQ(f, (std::vector<double>{0.0033, 0.04, 0.1, 0.15, 0.4, 0.0, 0.0, 0.0}));
  EXPECT_EQ(a, (std::vector<double>{1, 2, 3, 4, 5, 0, 0, 0}));

  // Lines on the shared edges 0.0033, 0.04 and 0.15 count in both bands.
  std::array<double, 6> r{};
  calcPWR(8, kEdges.data(), f.data(), a.data(), 6, r.data());
  EXPECT_EQ(r[KELO_HRV_TOT_PWR], 55.0);
  EXPECT_EQ(r[KELO_HRV_ULF_PWR], 1.0);
  EXPECT_EQ(r[KELO_HRV_VLF_PWR], 1.0 + 4.0);
  EXPECT_EQ(r[KELO_HRV_LF_PWR], 4.0 + 9.0 + 16.0);
  EXPECT_EQ(r[KELO_HRV_HF_PWR], 16.0 + 25.0);
  EXPECT_EQ(r[KELO_HRV_LF_HF], 29.0 / 41.0);
}

TEST(HrvBands, BadTablesAndTooFewLinesWriteNothing) {
  const std::vector<double> f{0.01, 0.05, 0.1, 0.2}, a{1, 1, 1, 1}, many(22, 0.1);
  std::array<double, 13> r;
  r.fill(-7.0);
  // Fewer than 3 edges, an odd number, 11 bands, only 2 lines.
  for (const auto& [nedges, count] : {std::pair{2, 4}, {7, 4}, {22, 4}, {8, 2}})
    calcPWR(nedges, nedges == 22 ? many.data() : kEdges.data(), f.data(), a.data(), count, r.data());
  for (double v : r) EXPECT_EQ(v, -7.0);
}

std::array<double, 6> freq_results(const std::vector<int32_t>& beats, int32_t fs, int32_t& status) {
  const auto n = static_cast<int32_t>(beats.size()) - 1;
  std::vector<double> t(n), rr(n);
  std::vector<char> ann(n);
  calcRR(beats.data(), n, fs, ann.data(), t.data(), rr.data());
  std::array<double, 6> r;
  r.fill(-7.0);
  calcHrvFreq(t.data(), rr.data(), n, r.data(), &status);
  return r;
}

TEST(HrvBands, Status4WhereNoBandPowersCanBeFormed) {
  // Two intervals: one analysed point. Intervals of 50 ms: the whole series
  // spans 0.15 s, so the first line lies above 0.4 Hz and only the two
  // trailing zero lines are left.
  for (const auto& beats : {kelo::test::beats_from_intervals({160, 160}),
                            kelo::test::beats_from_intervals({10, 10, 10, 10, 10})}) {
    int32_t status = 0;
    const auto r = freq_results(beats, 200, status);
    EXPECT_EQ(status, KELO_HRV_STATUS_NO_SPECTRUM);
    for (double v : r) EXPECT_EQ(v, -7.0);
  }
  int32_t status = 123;  // written only on failure
  const auto r = freq_results(kelo::test::beats_from_intervals({160, 150, 170, 165, 155, 160}), 200, status);
  EXPECT_EQ(status, 123);
  EXPECT_GT(r[KELO_HRV_TOT_PWR], 0.0);
}

TEST(HrvBands, ModulatedSeriesPutTheirPowerInTheRightBand) {
  struct Case {
    double f;
    int band;
  };
  for (const Case c : {Case{0.25, KELO_HRV_HF_PWR}, Case{0.1, KELO_HRV_LF_PWR}, Case{0.02, KELO_HRV_VLF_PWR}}) {
    const std::vector<int32_t> beats = kelo::test::modulated_beats(c.f, 0.05, 300.0, 1000);
    const auto n = static_cast<int32_t>(beats.size()) - 1;
    std::array<double, 7> time{};
    std::array<double, 6> freq{};
    int32_t status = -1;
    calcHrv(beats.data(), n, 1000, time.data(), freq.data(), &status);
    EXPECT_EQ(status, 0);
    const double share = freq[c.band] / freq[KELO_HRV_TOT_PWR];
    EXPECT_GT(share, 0.9) << c.f;  // measured: 0.999, 0.994, 0.990
    // The amplitudes are normalised so that the power sums to about the
    // variance of the analysed intervals (nearly all of it lies below 0.4 Hz
    // here); a divisor of nout / 2 instead of nout would double it.
    EXPECT_NEAR(freq[KELO_HRV_TOT_PWR], time[KELO_HRV_SDNN] * time[KELO_HRV_SDNN],
                0.05 * time[KELO_HRV_SDNN] * time[KELO_HRV_SDNN]);
  }
}

}  // namespace
