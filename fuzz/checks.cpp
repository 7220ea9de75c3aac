// The signal and rhythm checks: grades are 1, 2 or 3; the RR check keeps
// a subsequence of the beats in order, never drops a beat of class 1, and
// the fixed-length and record forms keep the same beats.
#include <algorithm>

#include "fuzz/fuzz_input.hpp"
#include "keloecgsolver/keloecgsolver.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  checkQualityShort_initialize();
  checkRRshort_initialize();
  checkRRvar_initialize();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kelo::fuzz;
  constexpr std::size_t kLen = KELO_CHECK_SHORT_LENGTH;
  Input in(data, size);
  static const double kFullScales[] = {5.12, 1.0, 0.1, 0.0, -1.0, INFINITY, NAN};
  const double full_scale = in.pick(kFullScales);
  const std::int32_t n_beats = in.byte() % 120;
  const std::vector<std::int32_t> beats = ascending(in, static_cast<std::size_t>(n_beats), 0, in.byte() % 2 ? 300 : 30);
  std::vector<std::int32_t> classes(kLen, 0);
  static const std::int32_t kClasses[] = {0, 0, 0, 1, 5};
  for (std::size_t i = 0; i < beats.size(); ++i) classes[i] = in.pick(kClasses);
  std::vector<double> ecg = in.samples(kLen);
  const auto n = static_cast<std::int32_t>(ecg.size());
  ecg.resize(kLen, 0.0);
  std::vector<std::int32_t> fixed_beats(kLen, 0);
  std::copy(beats.begin(), beats.end(), fixed_beats.begin());
  const auto count = static_cast<std::int32_t>(beats.size());

  const std::int32_t grade = checkQualityShort(ecg.data(), n, full_scale, fixed_beats.data(), count);
  FUZZ_CHECK(grade >= 1 && grade <= 3);

  std::vector<std::int32_t> fixed_classes = classes, clean(kLen, -7);
  std::int32_t kept = -2;
  checkRRshort(fixed_beats.data(), count, fixed_classes.data(), clean.data(), &kept);
  FUZZ_CHECK(kept >= 0 && kept <= std::max(count, 0));
  if (count <= 2) FUZZ_CHECK(kept == count);
  std::size_t from = 0;  // a subsequence, in order, with every class-1 beat
  for (std::int32_t i = 0; i < kept; ++i) {
    while (from < beats.size() && beats[from] != clean[static_cast<std::size_t>(i)]) {
      FUZZ_CHECK(classes[from] != 1);
      ++from;
    }
    FUZZ_CHECK(from < beats.size());
    ++from;
  }
  for (; from < beats.size(); ++from) FUZZ_CHECK(classes[from] != 1);

  Column<emxArray_int32_T, std::int32_t> var_beats(beats);
  Column<emxArray_int32_T, std::int32_t> var_classes(std::vector<std::int32_t>(classes.begin(), classes.begin() + count));
  std::int32_t var_n = count;
  checkRRvar(&var_beats.rec, &var_n, &var_classes.rec);
  FUZZ_CHECK(var_n == kept);
  FUZZ_CHECK(std::equal(clean.begin(), clean.begin() + kept, var_beats.data.begin()));
  FUZZ_CHECK(std::equal(fixed_classes.begin(), fixed_classes.begin() + kept, var_classes.data.begin()));
  return 0;
}
