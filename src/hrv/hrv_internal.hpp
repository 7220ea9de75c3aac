// Internal interface of the heart-rate-variability unit: buffer helpers
// and the span-based cores behind the exported routines. Everything here has hidden visibility; the library
// calls these cores directly, never its own exported names, so that no
// other definition of a name such as error or four1 can be reached by
// symbol interposition.
#pragma once

#include <array>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <span>

#include "runtime/simd/isa.hpp"

namespace kelo::hrv {

// ---- buffers -------------------------------------------------------------

// View of elements 1..n of a buffer of n + 1 values, for the routines that
// are written with 1-based indices. Element 0 is never touched.
template <class T>
class OneBased {
 public:
  OneBased(T* storage, std::size_t n) : storage_(storage), n_(n) {}
  T& operator[](std::size_t k) const {
    assert(k >= 1 && k <= n_);
    return storage_[k];
  }
  std::size_t size() const { return n_; }
  // The same buffer restricted to elements 1..n (n <= size()).
  OneBased first(std::size_t n) const {
    assert(n <= n_);
    return OneBased(storage_, n);
  }

 private:
  T* storage_;
  std::size_t n_;
};

struct FreeDeleter {
  void operator()(void* p) const noexcept { std::free(p); }
};

// A zero-filled, calloc-obtained array that frees itself. A failed
// allocation throws std::bad_alloc, which the exported routine that was
// called turns into its failure result (runtime/boundary.hpp).
template <class T>
class CArray {
 public:
  static CArray zeroed(std::size_t n) {
    CArray a;
    a.n_ = n;
    if (n > 0) a.p_.reset(static_cast<T*>(std::calloc(n, sizeof(T))));
    if (n > 0 && a.p_ == nullptr) throw std::bad_alloc();
    return a;
  }
  std::span<T> span() const { return n_ > 0 ? std::span<T>(p_.get(), n_) : std::span<T>(); }
  // The array as a 1-based buffer: elements 1..size() - 1 (size() >= 1).
  OneBased<T> one_based() const { return OneBased<T>(p_.get(), n_ - 1); }

 private:
  std::unique_ptr<T[], FreeDeleter> p_;
  std::size_t n_ = 0;
};

// ---- state -------------------------------------------------------------------
// The unit keeps no state between calls: work buffers belong to the call
// that uses them, so calls on several threads never meet. The one exception
// is the exported global pwr, which receives the variance of every analysed
// series for callers who read it; nothing in the library reads it back.

inline constexpr int32_t kMaxSegments = 2400;  // 300 s each: 200 hours

// Stores the variance of an analysed series in pwr (an atomic store, so
// that calls on several threads do not race; which call's value a reader
// sees is then undefined).
void publish_variance(float var) noexcept;

// Diagnostic sink of the Lomb code (the exported error() forwards here).
void report(const char* message);

// ---- time domain -------------------------------------------------------------

// Interval series of rpeaks.size() - 1 intervals into ann, t and rr (each of
// that many elements).
void interval_series(std::span<const int32_t> rpeaks, int32_t fs, std::span<char> ann,
                     std::span<double> t, std::span<double> rr);

// The 7 statistics of the series (t, rr, ann of equal length). Returns false,
// with all results NaN, when an interval time lies beyond kMaxSegments
// segments.
bool stat_nn(std::span<const double> t, std::span<const double> rr, std::span<const char> ann,
             std::span<double, 7> results);

// ---- Lomb periodogram --------------------------------------------------------

inline constexpr int kMacc = 4;  // extirpolation order

struct FasperResult {
  std::size_t nout = 0;
  std::size_t jmax = 0;
  float prob = 1.0f;
  float variance = 0.0f;  // of y, as avevar computed it
};

// Fast Lomb periodogram of x[1..n], y[1..n] into wk1[1..nwk], wk2[1..nwk].
// Returns false (after reporting) when the workspaces are too small.
// The forward real FFT of fasper's two grids. Empty: the library's own
// transform on the best instruction-set path (the tests hand in each path,
// and the plain transform).
using GridFft = std::function<void(OneBased<float>, OneBased<float>)>;

bool fasper(OneBased<const float> x, OneBased<const float> y, float ofac, float hifac,
            OneBased<float> wk1, OneBased<float> wk2, FasperResult& result, const GridFft& fft = {});
void spread(float y, OneBased<float> yy, float x, int m);
void avevar(OneBased<const float> data, float& ave, float& var);
void zeromean(std::span<float> y);

// The real FFT (n a power of two >= 2) and the complex FFT (n = 2 * a
// power of two) of each array of n floats (indexed from 0 here), the
// arrays transformed together so that they share the twiddle factors.
void realft(std::span<float* const> arrays, std::size_t n, int isign, kelo::simd::Isa isa);
void four1(std::span<float* const> arrays, std::size_t n, int isign, kelo::simd::Isa isa);

// Frequencies and amplitudes of the n - 1 intervals rr[1..n-1] (n >= 3) into
// the first 2 (n - 1) entries of freq and amp (each at least that long).
// Returns false, writing nothing, when the workspaces turn out too small;
// throws std::bad_alloc, writing nothing, when they cannot be allocated.
bool lomb_amplitudes(std::span<const double> t, std::span<const double> rr, std::span<double> freq,
                     std::span<double> amp, const GridFft& fft = {});

// ---- band powers ---------------------------------------------------------------

inline constexpr int32_t kMaxBands = 10;

// Frequency-domain results of the series; false when they cannot be formed
// (the caller reports status 4). Results are written only at the end.
bool hrv_freq(std::span<const double> t, std::span<const double> rr, std::span<double, 6> results);
uint32_t limit_freq(std::span<double> freq, std::span<double> amp, double fmax);
// False, writing nothing, for a bad band table or fewer than three lines;
// results must hold edges.size() / 2 + 2 values.
bool band_powers(std::span<const double> edges, std::span<const double> freq,
                 std::span<const double> amp, std::span<double> results);

}  // namespace kelo::hrv
