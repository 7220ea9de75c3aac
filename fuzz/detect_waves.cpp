// detectWaves and kelo_detectBeats on one recording: the R peaks ascend
// inside the recording, every grade is one the routine defines, the number
// of windows is as documented, and the beats labelled normal are exactly
// detectWaves' R peaks.
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
  static const std::int32_t kRates[] = {200, 200, 200, 200, 125, 250, 360, 500, 100, 50, 7, 1, 0, -200};
  static const double kFullScales[] = {5.12, 10.0, 1.0, 0.5, INFINITY, 0.0, -1.0, NAN};
  const std::int32_t fs = in.pick(kRates);
  const double full_scale = in.pick(kFullScales);
  const std::int32_t window = in.byte() % 40 - 2;
  Column<emxArray_real_T, double> ecg(in.samples(200 * 60));
  const auto n = static_cast<std::int32_t>(ecg.data.size());

  emxArray_int32_T* peaks = emxCreate_int32_T(0, 0);
  emxArray_int32_T* windows = emxCreate_int32_T(0, 0);
  std::int32_t quality = -1;
  detectWaves(&ecg.rec, full_scale, fs, window, peaks, &quality, windows);
  FUZZ_CHECK(quality >= 1 && quality <= 3);
  const std::int32_t count = peaks->size[0];
  for (std::int32_t i = 0; i < count; ++i) {
    FUZZ_CHECK(peaks->data[i] >= 1 && peaks->data[i] <= n);
    FUZZ_CHECK(i == 0 || peaks->data[i] > peaks->data[i - 1]);
  }
  const std::int32_t graded = windows->size[0] * windows->size[1];
  FUZZ_CHECK(graded >= 1);
  if (fs > 0 && window >= 5 && n >= fs * window) FUZZ_CHECK(graded == n / fs / window);
  for (std::int32_t i = 0; i < graded; ++i) {
    const std::int32_t g = windows->data[i];
    FUZZ_CHECK(g == 0 || g == 3 || g == 5 || g == 6);
  }

  emxArray_int32_T* positions = emxCreate_int32_T(0, 0);
  emxArray_int32_T* labels = emxCreate_int32_T(0, 0);
  const std::int32_t result = kelo_detectBeats(&ecg.rec, fs, positions, labels);
  FUZZ_CHECK(result == KELO_BEATS_OK || (result == KELO_BEATS_BAD_RATE && fs <= 0));
  if (result == KELO_BEATS_OK) {
    FUZZ_CHECK(positions->size[0] == labels->size[0]);
    std::int32_t normal = 0;
    for (std::int32_t i = 0; i < positions->size[0]; ++i) {
      FUZZ_CHECK(positions->data[i] >= 1 && positions->data[i] <= n);
      FUZZ_CHECK(i == 0 || positions->data[i] > positions->data[i - 1]);
      FUZZ_CHECK(kelo_beatLabelName(labels->data[i]) != nullptr);
      if (labels->data[i] == KELO_BEAT_NORMAL) {
        FUZZ_CHECK(normal < count && positions->data[i] == peaks->data[normal]);
        ++normal;
      }
    }
    FUZZ_CHECK(normal == count);
  }
  for (auto* r : {peaks, windows, positions, labels}) emxDestroyArray_int32_T(r);
  return 0;
}
