// All HRV results of five minutes of a real recording (MIT-BIH record 100,
// reference beats at 200 Hz: 371 beats, 370 intervals), frozen bit for bit:
// any change of arithmetic or summation order shows up here.
//
// The values were checked independently when they were frozen: the
// time-domain ones against a plain two-pass computation, the band powers
// against a direct double-precision Lomb-Scargle evaluation on the same grid
// (agreement within 1e-4 relative in every band).
#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "hrv/hrv_support.hpp"
#include "keloecgsolver/hrv.h"

namespace {

TEST(HrvGolden, Mitdb100FirstFiveMinutes) {
  const std::vector<int32_t> beats = kelo::test::read_beats("hrv/mitdb100_5min.beats.txt");
  ASSERT_EQ(beats.size(), 371u);
  std::array<double, 7> time{};
  std::array<double, 6> freq{};
  int32_t status = -1;
  calcHrv(beats.data(), static_cast<int32_t>(beats.size()) - 1, 200, time.data(), freq.data(), &status);

  EXPECT_EQ(status, 0);
  // The series spans 298 s: one segment, so SDANN is 0 and SDNN index = SDNN.
  const std::array<double, 7> want_time{0.99729729729729732, 0.80833333333333302, 0.038495835460805733, 0.0,
                                        0.038495835460805733, 0.055320828100627044, 0.0625};
  const std::array<double, 6> want_freq{0.00088485070362778002, 2.4382063239534304e-06, 6.1715496865112409e-05,
                                        6.8563817606037683e-05, 0.00075213318283267694, 0.09115914464485303};
  EXPECT_EQ(time, want_time);
  EXPECT_EQ(freq, want_freq);
  EXPECT_EQ(pwr, 0.00148192921f);  // variance of the 369 analysed intervals
}

}  // namespace
