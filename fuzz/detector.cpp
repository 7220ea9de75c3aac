// The offline detector at any rate, finite or not: the recording is
// centred, the envelope and threshold have one value per sample (zeros when
// no detection runs), and every R-peak slot is a sample position, 0 or
// -Inf, with the accepted positions inside the recording.
#include <algorithm>
#include <cmath>

#include "fuzz/fuzz_input.hpp"
#include "keloecgsolver/keloecgsolver.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  detectWaves_initialize();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kelo::fuzz;
  Input in(data, size);
  static const double kRates[] = {200, 200, 200, 200, 125, 250, 360, 500, 100, 50, 1.5, 0.5, 0, -200, NAN, INFINITY};
  const double fs = in.pick(kRates);
  Column<emxArray_real_T, double> ecg(in.samples(200 * 60));
  const auto n = static_cast<std::int32_t>(ecg.data.size());

  emxArray_real_T* peaks = emxCreate_real_T(0, 0);
  emxArray_real_T* feature = emxCreate_real_T(0, 0);
  emxArray_real_T* threshold = emxCreate_real_T(0, 0);
  m_analyze_ecg_offline_r(&ecg.rec, fs, peaks, feature, threshold);
  FUZZ_CHECK(feature->size[0] * feature->size[1] == n && threshold->size[0] * threshold->size[1] == n);
  const bool runs = std::isfinite(fs) && fs > 0 && !(fs >= 1 && n < fs + 1);
  if (!runs) {
    FUZZ_CHECK(peaks->size[0] * peaks->size[1] == 0);
    FUZZ_CHECK(std::all_of(feature->data, feature->data + n, [](double v) { return v == 0.0; }));
  }
  for (std::int32_t i = 0; i < peaks->size[0] * peaks->size[1]; ++i) {
    const double p = peaks->data[i];
    FUZZ_CHECK(p == 0.0 || p == -INFINITY || (p >= 1 && p <= n && p == std::floor(p)));
  }
  if (n > 0) {  // centred: the median of what remains is 0
    std::vector<double> c = ecg.data;
    std::nth_element(c.begin(), c.begin() + (n - 1) / 2, c.end());
    FUZZ_CHECK(c[static_cast<std::size_t>((n - 1) / 2)] <= 0.0);
  }
  for (auto* r : {peaks, feature, threshold}) emxDestroyArray_real_T(r);
  return 0;
}
