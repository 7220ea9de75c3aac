// Beat classification: beats whose QRS complex does not correlate with the
// average of the normal beats become 0, over up to five passes.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <span>

#include "classify/template_correlation.hpp"
#include "keloecgsolver/classify.h"
#include "runtime/boundary.hpp"
#include "runtime/emx.hpp"
#include "runtime/numeric.hpp"

namespace {

using kelo::classify::PreparedTemplate;
using kelo::classify::Window;

constexpr std::size_t kLongLength = KELO_CLASSIFY_LENGTH;
constexpr std::size_t kShortLength = KELO_CLASSIFY_SHORT_LENGTH;

constexpr int32_t kNormal = 1;
constexpr int32_t kAbnormal = 0;
constexpr int32_t kMaxPasses = 5;
constexpr double kMinCorrelation = 0.7;
constexpr int32_t kNoVerdict = -1;  // every class entry when memory runs out
// Half window and shift range of the fixed variants (200 Hz).
constexpr Window kFixedWindow{12, 12};

// The signal read directly (classifyQRSshort, classifyQRSvar).
struct DirectSignal {
  std::span<const double> signal;
  std::span<const double> for_template() const { return signal; }
  std::span<const double> for_correlation() const { return signal; }
};

// classifyQRS reads the signal through two whole copies, refreshed before
// every beat is added to the template and before every beat is correlated:
// the routine has always worked this way (and paid for it), and the results
// equal those of reading the signal directly. Each call has its own copies,
// on the heap.
struct ClassifyWork {
  std::array<double, kLongLength> template_copy;
  std::array<double, kLongLength> correlation_copy;
};

struct CopiedSignal {
  std::span<const double, kLongLength> signal;
  ClassifyWork& work;
  std::span<const double> for_template() const {
    std::copy(signal.begin(), signal.end(), work.template_copy.begin());
    return work.template_copy;
  }
  std::span<const double> for_correlation() const {
    std::copy(signal.begin(), signal.end(), work.correlation_copy.begin());
    return work.correlation_copy;
  }
};

// Whether r - h .. r + h lies inside a signal of `length` samples.
bool has_window(int32_t r, int32_t half, int32_t length) {
  return kelo::sat_sub(r, half) > 0 && kelo::sat_add(r, half) <= length;
}

// Template = mean of the windows of the beats still normal (all zero when
// none has a full window). tmpl holds 2h + 1 entries whenever a window fits
// the signal at all.
template <class Source>
void build_template(const Source& source, int32_t length, std::span<const int32_t> rpeaks,
                    std::span<const int32_t> classes, Window win, std::span<double> tmpl) {
  std::fill(tmpl.begin(), tmpl.end(), 0.0);
  int32_t used = 0;
  for (std::size_t k = 0; k < rpeaks.size(); ++k) {
    const int32_t r = rpeaks[k];
    if (classes[k] != kNormal || !has_window(r, win.half, length)) continue;
    const std::span<const double> x = source.for_template();
    const auto first = static_cast<std::size_t>(int64_t{r} - win.half - 1);
    for (std::size_t i = 0; i < tmpl.size(); ++i) tmpl[i] += x[first + i];
    ++used;
  }
  if (used > 0) {
    for (double& v : tmpl) v /= static_cast<double>(used);
  }
}

// Correlation of beat r with the template: unshifted, and if that is below
// the threshold and the shifted windows fit, the largest over the shifts
// (a shift replaces the value only when strictly greater, so NaN stays).
// The search stops at the first shift that reaches the threshold: the
// largest value could only be larger, and the beat is normal either way.
// (Each shift costs a pass over the window, so a beat that is abnormal at
// every shift costs about (0.12 fs)^2 steps.)
template <class Source>
double beat_correlation(const Source& source, int32_t length, int32_t r, Window win,
                        const PreparedTemplate& tmpl) {
  const std::span<const double> x = source.for_correlation();
  const int32_t a = kelo::sat_sub(r, win.half);
  const int32_t b = kelo::sat_add(r, win.half);
  double c = tmpl.correlate(x, a, b);
  if (c < kMinCorrelation && kelo::sat_sub(a, win.shift) > 0 && kelo::sat_add(b, win.shift) <= length) {
    for (int32_t d = -win.shift; d <= win.shift && c < kMinCorrelation; ++d) {
      const double shifted = tmpl.correlate(x, a + d, b + d);
      if (shifted > c) c = shifted;
    }
  }
  return c;
}

// The passes shared by every variant. classes has at least rpeaks.size()
// entries; all of them are set to 1 first. centred is work room of the
// template's size.
template <class Source>
void classify_beats(const Source& source, int32_t length, std::span<const int32_t> rpeaks,
                    std::span<int32_t> classes, Window win, std::span<double> tmpl,
                    std::span<double> centred) {
  std::fill(classes.begin(), classes.end(), kNormal);
  bool changed = true;
  for (int32_t pass = 0; changed && pass < kMaxPasses; ++pass) {
    changed = false;
    build_template(source, length, rpeaks, classes, win, tmpl);
    const PreparedTemplate prepared(tmpl, centred);
    // Class tests see the marks made earlier in this pass; the template
    // stays as built.
    for (std::size_t k = 0; k < rpeaks.size(); ++k) {
      const int32_t r = rpeaks[k];
      if (classes[k] != kNormal || !has_window(r, win.half, length)) continue;
      const double c = beat_correlation(source, length, r, win, prepared);
      if (std::isnan(c) || c < kMinCorrelation) {
        classes[k] = kAbnormal;
        changed = true;
      }
    }
  }
}

// Template length of a window geometry: 2h + 1, or 0 when no window can
// fit the signal (h < 0, or 2h + 1 longer than the signal), in which case
// the template is never added to or correlated with a real window.
int32_t template_length(Window win, int32_t length) {
  if (win.half < 0 || win.half > (length - 1) / 2) return 0;
  return 2 * win.half + 1;
}

template <std::size_t Length, class Source>
void classify_fixed(const Source& source, const int32_t* rpeaks, int32_t nbeats, int32_t* classes) {
  // The class array has one entry per sample, so it cannot describe more
  // beats than that: further beats are ignored rather than written past its
  // end. Positions outside the signal need no check, they never have a full
  // window.
  const auto count = static_cast<std::size_t>(std::clamp(nbeats, 0, static_cast<int32_t>(Length)));
  std::array<double, 2 * kFixedWindow.half + 1> tmpl, centred;
  classify_beats(source, static_cast<int32_t>(Length), {rpeaks, count}, {classes, Length}, kFixedWindow,
                 tmpl, centred);
}

void classify_var(const emxArray_real_T* signal, const emxArray_int32_T* rpeaks, int32_t nbeats,
                  int32_t fs, emxArray_int32_T* classes) {
  if (fs > KELO_CLASSIFY_MAX_RATE) {  // refused: see the header
    kelo::empty(classes);
    return;
  }
  const std::span<const double> samples = kelo::elements(signal);
  const auto length = std::min(kelo::vector_length(signal), static_cast<int32_t>(samples.size()));
  if (!kelo::resize_column(classes, length)) return;

  const int32_t wide = kelo::round_to_int32(0.12 * static_cast<double>(fs));
  const Window win{kelo::round_to_int32(static_cast<double>(wide) / 2.0),
                   kelo::round_to_int32(0.06 * static_cast<double>(fs))};
  kelo::EmxReal tmpl(1), centred(1);
  kelo::resize_column(tmpl.get(), template_length(win, length));
  kelo::resize_column(centred.get(), template_length(win, length));

  const std::span<const int32_t> peaks = kelo::elements(rpeaks);
  const auto available = std::min<int64_t>(static_cast<int64_t>(peaks.size()), length);
  const auto count = static_cast<std::size_t>(std::clamp<int64_t>(nbeats, 0, available));
  const DirectSignal source{samples.first(static_cast<std::size_t>(length))};
  classify_beats(source, length, peaks.first(count), kelo::elements(classes), win, tmpl.span(),
                 centred.span());
}

}  // namespace

extern "C" {

KELO_API void classifyQRS(const double signal[KELO_CLASSIFY_LENGTH], const int32_t* rpeaks,
                          int32_t nbeats, int32_t classes[KELO_CLASSIFY_LENGTH]) {
  if (signal == nullptr || rpeaks == nullptr || classes == nullptr) return;
  kelo::guarded(
      [&] {
        const auto work = std::make_unique_for_overwrite<ClassifyWork>();
        const CopiedSignal source{std::span<const double, kLongLength>(signal, kLongLength), *work};
        classify_fixed<kLongLength>(source, rpeaks, nbeats, classes);
      },
      [&] { std::fill_n(classes, kLongLength, kNoVerdict); });
}

KELO_API void classifyQRSshort(const double signal[KELO_CLASSIFY_SHORT_LENGTH],
                               const int32_t* rpeaks, int32_t nbeats,
                               int32_t classes[KELO_CLASSIFY_SHORT_LENGTH]) {
  if (signal == nullptr || rpeaks == nullptr || classes == nullptr) return;
  const DirectSignal source{{signal, kShortLength}};
  classify_fixed<kShortLength>(source, rpeaks, nbeats, classes);
}

KELO_API void classifyQRSvar(const emxArray_real_T* signal, const emxArray_int32_T* rpeaks,
                             int32_t nbeats, int32_t fs, emxArray_int32_T* classes) {
  if (signal == nullptr || rpeaks == nullptr || classes == nullptr) return;
  kelo::guarded([&] { classify_var(signal, rpeaks, nbeats, fs, classes); },
                [&] { kelo::empty(classes); });
}

}  // extern "C"
