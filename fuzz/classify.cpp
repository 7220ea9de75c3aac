// Beat classification and the missed-beat search. Classes are 0 or 1
// (entries past the beats stay 1) and the record form at 200 Hz equals the
// fixed-length form; the search returns n and its list holds only the
// beats it was given and positions inside the signal.
#include <algorithm>

#include "fuzz/fuzz_input.hpp"
#include "keloecgsolver/keloecgsolver.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  classifyQRSshort_initialize();
  classifyQRSvar_initialize();
  refineQrsDetection_initialize();
  return 0;
}

namespace {

void classification(kelo::fuzz::Input& in) {
  using namespace kelo::fuzz;
  constexpr std::size_t kLen = KELO_CLASSIFY_SHORT_LENGTH;
  const std::int32_t nbeats = in.byte() % 40;
  std::vector<std::int32_t> peaks = ascending(in, static_cast<std::size_t>(nbeats), in.byte() - 30, 200);
  std::vector<double> signal = in.samples(kLen);
  signal.resize(kLen, 0.0);
  const auto count = static_cast<std::int32_t>(peaks.size());
  std::vector<std::int32_t> fixed(kLen, -9);
  classifyQRSshort(signal.data(), peaks.data(), count, fixed.data());
  for (std::size_t i = 0; i < kLen; ++i) {
    FUZZ_CHECK(fixed[i] == 0 || fixed[i] == 1);
    if (i >= peaks.size()) FUZZ_CHECK(fixed[i] == 1);
  }
  Column<emxArray_real_T, double> sig(signal);
  Column<emxArray_int32_T, std::int32_t> beats(peaks);
  emxArray_int32_T* classes = emxCreate_int32_T(0, 0);
  classifyQRSvar(&sig.rec, &beats.rec, count, 200, classes);
  FUZZ_CHECK(classes->size[0] == static_cast<std::int32_t>(kLen));
  FUZZ_CHECK(std::equal(fixed.begin(), fixed.end(), classes->data));
  emxDestroyArray_int32_T(classes);
}

void refinement(kelo::fuzz::Input& in) {
  using namespace kelo::fuzz;
  constexpr std::size_t kLen = KELO_REFINE_LENGTH;
  static const std::int32_t kRates[] = {200, 200, 200, 125, 360, 50, 1, 0, -200};
  const std::int32_t fs = in.pick(kRates);
  const std::int32_t nbeats = in.byte() % 80;
  std::vector<std::int32_t> beats_in = ascending(in, static_cast<std::size_t>(nbeats), in.byte() - 30, 600);
  const auto n = static_cast<std::int32_t>(beats_in.size());
  std::vector<double> x = in.samples(kLen);
  const std::size_t filled = x.size();
  // Repeat what the input gave over the whole signal, so that short
  // inputs still have beats to find.
  x.resize(kLen, 0.0);
  for (std::size_t i = filled; filled > 0 && i < kLen; ++i) x[i] = x[i % filled];
  beats_in.resize(kLen, 0);
  std::vector<std::int32_t> beats_out(kLen, -9);
  std::int32_t count = -2;
  refineQrsDetection(x.data(), beats_in.data(), n, fs, beats_out.data(), &count);
  FUZZ_CHECK(count == n);
  // Every entry is a given beat (moved along by insertions), a copied
  // unused slot, or a beat found inside the signal.
  std::vector<std::int32_t> given(beats_in.begin(), beats_in.begin() + n);
  std::sort(given.begin(), given.end());
  for (const std::int32_t b : beats_out) {
    FUZZ_CHECK(std::binary_search(given.begin(), given.end(), b) || b == 0 ||
               (b >= 1 && b <= static_cast<std::int32_t>(kLen)));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kelo::fuzz::Input in(data, size);
  if (in.byte() % 2 == 0) {
    classification(in);
  } else {
    refinement(in);
  }
  return 0;
}
