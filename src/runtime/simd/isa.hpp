// Instruction-set paths of the vectorised kernels. The same kernel source
// is compiled once per path (AVX-512, AVX2 and the x86-64 baseline on x86,
// the portable build elsewhere); every path computes each output with
// exactly the operations, in exactly the order, of the plain routine, one
// output per vector lane, so every path gives the same bits. The path is
// chosen per call from what the processor supports; tests force each one.
#pragma once

#include <cstddef>
#include <span>

namespace kelo::simd {

enum class Isa : int {
  Baseline = 0,  // x86-64 SSE2 (two lanes), or the portable build elsewhere
  Avx2 = 1,      // four lanes
  Avx512 = 2,    // eight lanes
};

// The widest path this processor (and its operating system) can run.
Isa best_isa() noexcept;

// Every path this processor can run, narrowest first.
std::span<const Isa> runnable_isas() noexcept;

const char* isa_name(Isa isa) noexcept;

// The vectorised kernels of one path. Windows are given by their first
// element; every kernel writes `count` outputs.
struct Kernels {
  // out[k] = the moving-average sum of x over the centred window k - h ..
  // k + h, taken as x(k+h) + x(k+h-1) + ... + x(k-h), divided by 2h + 1,
  // for k in [first, last). The caller keeps every window inside x.
  void (*window_means)(const double* x, std::size_t h, std::size_t first, std::size_t last,
                       double* out);
  // out[k] = standard deviation of x[k .. k+len) with divisor len - 1
  // (len for len < 2): the mean summed from x[k] on, then the squared
  // deviations summed in order.
  void (*window_std)(const double* x, std::size_t len, std::size_t count, double* out);
  // out[k] = largest (smallest) non-NaN value of x[k .. k+len), the first
  // of equal values winning (which decides the sign of a zero); `nan` when
  // the window holds only NaNs (len >= 2). scratch holds 2 * (count + len)
  // doubles.
  void (*window_max)(const double* x, std::size_t len, std::size_t count, double* out,
                     double* scratch, double nan);
  void (*window_min)(const double* x, std::size_t len, std::size_t count, double* out,
                     double* scratch, double nan);
  // out[k] = window_max - window_min of x[k .. k+len); scratch holds
  // 3 * (count + len) doubles.
  void (*window_range)(const double* x, std::size_t len, std::size_t count, double* out,
                       double* scratch, double nan);
  // out[k] = (a[k] * b[k]) * b[k].
  void (*times_square)(const double* a, const double* b, std::size_t count, double* out);
  // Pearson correlation of a template of len >= 2 samples with the windows
  // y[k .. k+len): centred[j] = template[j] - its mean, templateStd its
  // standard deviation. The window mean is summed from 0.0 on.
  void (*window_corr)(const double* y, std::size_t len, std::size_t count, const double* centred,
                      double templateStd, double* out);
  // Bounds on what the plain arithmetic gives for the windows
  // x[k .. k+len), k < count, of finite samples known through prefix sums
  // (prefix[j] for the samples before j, the difference of two prefixes
  // within `error` of the exact window sum, apart from its own rounding):
  // mean_bounds brackets half the window's mean as the smoother computes it
  // (non-negative samples); spread_bounds brackets window_std, from the
  // prefixes of the samples and of their rounded squares. lo = hi = -2
  // where no safe bound exists. (The derivations are beside the detector's
  // use of them.)
  void (*mean_bounds)(const double* prefix, std::size_t len, std::size_t count, double error,
                      double* lo, double* hi);
  void (*spread_bounds)(const double* prefix, const double* squarePrefix, std::size_t len,
                        std::size_t count, double error, double squareError, double* lo,
                        double* hi);
};

// The kernels of a path; a path this processor cannot run falls back to
// the baseline.
const Kernels& kernels(Isa isa) noexcept;

inline const Kernels& best_kernels() noexcept { return kernels(best_isa()); }

}  // namespace kelo::simd
