// Frequency-domain HRV results: the Lomb amplitudes limited to 0.4 Hz and
// summed as squared amplitudes into the total power and four bands.
#include <array>

#include "hrv/hrv_internal.hpp"
#include "keloecgsolver/hrv.h"
#include "runtime/boundary.hpp"

namespace kelo::hrv {
namespace {

constexpr double kMaxFrequency = 0.4;  // Hz
// ULF, VLF, LF, HF as (lower, upper) pairs in Hz; both edges are inclusive,
// so a line on a shared edge counts in both neighbouring bands.
constexpr std::array<double, 8> kBandEdges{0.0, 0.0033, 0.0033, 0.04, 0.04, 0.15, 0.15, 0.4};
// 4.0 * n must fit the unsigned 32-bit grid length.
constexpr int64_t kMaxIntervals = 1073741823;
constexpr uint32_t kMinLines = 3;

}  // namespace

uint32_t limit_freq(std::span<double> freq, std::span<double> amp, double fmax) {
  uint32_t count = 0;
  for (std::size_t i = 0; i < freq.size(); ++i) {
    if (fmax >= freq[i]) {
      ++count;
    } else {  // above the limit, or NaN
      freq[i] = 0.0;
      amp[i] = 0.0;
    }
  }
  return count;
}

// Nothing here ends the process: a band table that is not 2 to 10 pairs,
// or fewer than three lines, leaves the results untouched and reports false.
bool band_powers(std::span<const double> edges, std::span<const double> freq,
                 std::span<const double> amp, std::span<double> results) {
  const std::size_t nedges = edges.size();
  if (nedges <= 2 || nedges % 2 != 0 || nedges / 2 > kMaxBands) return false;
  if (freq.size() < kMinLines) return false;
  const std::size_t nb = nedges / 2;
  std::array<double, kMaxBands> lo{}, hi{}, band{};
  for (std::size_t b = 0; b < nb; ++b) {
    lo[b] = edges[2 * b];
    hi[b] = edges[2 * b + 1];
  }
  double total = 0.0;
  for (std::size_t j = 0; j < freq.size(); ++j) {
    const double p = amp[j] * amp[j];
    total += p;
    for (std::size_t b = 0; b < nb; ++b)
      if (freq[j] >= lo[b] && hi[b] >= freq[j]) band[b] += p;
  }
  results[0] = total;
  for (std::size_t b = 0; b < nb; ++b) results[1 + b] = band[b];
  results[nb + 1] = band[nb - 2] / band[nb - 1];
  return true;
}

bool hrv_freq(std::span<const double> t, std::span<const double> rr, std::span<double, 6> results) {
  const auto n = static_cast<int64_t>(t.size());
  // Fewer than two analysed points give no frequency grid.
  if (n < 3 || n > kMaxIntervals) return false;
  const uint32_t len = static_cast<uint32_t>(4.0 * static_cast<double>(n)) >> 1;
  const auto freq = CArray<double>::zeroed(len);
  const auto amp = CArray<double>::zeroed(len);
  // The Lomb grid fills 2 (n - 1) lines; the last two stay 0 and always
  // count as kept lines of frequency 0 (they add nothing to any band).
  if (!lomb_amplitudes(t, rr, freq.span(), amp.span())) return false;
  const uint32_t count = limit_freq(freq.span(), amp.span(), kMaxFrequency);
  // Fewer than three kept lines (a series spanning less than 0.625 s): no
  // band powers, the results stay as they were and the caller reports
  // status 4, rather than ending the process over it.
  if (count < kMinLines) return false;
  return band_powers(kBandEdges, freq.span().first(count), amp.span().first(count), results);
}

}  // namespace kelo::hrv

extern "C" {

KELO_API void calcHrvFreq(const double* t, const double* rr, int32_t n, double* freqResults,
                          int32_t* status) {
  if (t == nullptr || rr == nullptr || freqResults == nullptr || status == nullptr) return;
  const std::size_t m = n > 0 ? static_cast<std::size_t>(n) : 0;
  *status = kelo::guarded(
      [&] {
        const bool formed = kelo::hrv::hrv_freq({t, m}, {rr, m}, std::span<double, 6>(freqResults, 6));
        return formed ? *status : KELO_HRV_STATUS_NO_SPECTRUM;
      },
      [] { return KELO_HRV_STATUS_NO_MEMORY; });
}

KELO_API void limitFreq(double* freq, double* amp, uint32_t len, double fmax, uint32_t* count) {
  if (count == nullptr) return;
  if (freq == nullptr || amp == nullptr) {
    *count = 0;
    return;
  }
  *count = kelo::hrv::limit_freq({freq, len}, {amp, len}, fmax);
}

KELO_API void calcPWR(int32_t nedges, const double* edges, const double* freq, const double* amp,
                      int32_t count, double* results) {
  if (edges == nullptr || freq == nullptr || amp == nullptr || results == nullptr || nedges < 0 ||
      count < 0)
    return;
  const auto ne = static_cast<std::size_t>(nedges);
  const auto c = static_cast<std::size_t>(count);
  const std::size_t nresults = ne / 2 + 2;
  kelo::hrv::band_powers({edges, ne}, {freq, c}, {amp, c}, {results, nresults});
}

}  // extern "C"
