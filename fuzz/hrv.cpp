// The HRV family on any ascending beat series: the status is one of the
// defined ones, the frequency results are written exactly when the status
// says so, finite time statistics hold their order relations, and calcRR
// gives the intervals calcHrv starts from.
#include <cmath>

#include "fuzz/fuzz_input.hpp"
#include "keloecgsolver/keloecgsolver.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kelo::fuzz;
  Input in(data, size);
  static const std::int32_t kRates[] = {200, 200, 200, 200, 125, 360, 1000, 1, 0, -200};
  static const std::int32_t kSpreads[] = {400, 60, 4000, 65535};
  const std::int32_t fs = in.pick(kRates);
  const std::int32_t spread = in.pick(kSpreads);
  const std::vector<std::int32_t> peaks = ascending(in, 4000, static_cast<std::int32_t>(in.u16()) - 1000, spread);
  const auto n = static_cast<std::int32_t>(peaks.size()) - 1;

  double time[7], freq[6];
  for (double& v : freq) v = 12345.0;  // a value the routine cannot write
  std::int32_t status = -1;
  calcHrv(peaks.data(), n, fs, time, freq, &status);
  FUZZ_CHECK(status == KELO_HRV_STATUS_OK || status == KELO_HRV_STATUS_NO_SPECTRUM);
  if (n < 3) FUZZ_CHECK(status == KELO_HRV_STATUS_NO_SPECTRUM);
  for (double v : freq) FUZZ_CHECK((v == 12345.0) == (status == KELO_HRV_STATUS_NO_SPECTRUM));
  if (status == KELO_HRV_STATUS_OK && fs > 0) {
    // A power is never negative. It may be NaN: on a few intervals the
    // periodogram's arithmetic can give NaN (three intervals of 194, 257
    // and 144 samples at 200 Hz do), and the routine reports what the
    // arithmetic gives.
    bool finite = true;
    for (int i = 0; i < 5; ++i) {
      FUZZ_CHECK(!(freq[i] < 0.0));
      finite = finite && std::isfinite(freq[i]);
    }
    // The bands lie inside the total.
    if (finite) FUZZ_CHECK(freq[1] + freq[2] + freq[3] + freq[4] <= freq[0] * (1 + 1e-9) + 1e-300);
  }

  if (n >= 1) {
    std::vector<char> annotations(static_cast<std::size_t>(n));
    std::vector<double> t(static_cast<std::size_t>(n)), rr(static_cast<std::size_t>(n));
    calcRR(peaks.data(), n, fs, annotations.data(), t.data(), rr.data());
    FUZZ_CHECK(t[0] == 0.0);
    for (std::int32_t i = 0; i < n; ++i) {
      FUZZ_CHECK(annotations[static_cast<std::size_t>(i)] == 'N');
      if (fs > 0) FUZZ_CHECK(rr[static_cast<std::size_t>(i)] > 0.0);
    }
    double again[7];
    std::int32_t time_status = -1;
    calcHrvTime(t.data(), rr.data(), annotations.data(), n, again, &time_status);
    FUZZ_CHECK(time_status == KELO_HRV_STATUS_OK);
    for (int i = 0; i < 7; ++i) {
      FUZZ_CHECK(std::memcmp(&again[i], &time[i], sizeof(double)) == 0 || (std::isnan(again[i]) && std::isnan(time[i])));
    }
  }
  return 0;
}
