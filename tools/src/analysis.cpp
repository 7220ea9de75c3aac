// The analysis runs, through the library's public C interface only.
#include "analysis.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <span>

#include "keloecgsolver/grades.h"
#include "keloecgsolver/keloecgsolver.h"
#include "runtime/run_rules.hpp"

namespace keloecg {

namespace {

using RealArray = kelo::rules::RealRecord;
using IntArray = kelo::rules::Int32Record;

// The library reports running out of memory through its failure results
// (a NULL record, a grade or count the routine never gives otherwise); the
// program turns them back into std::bad_alloc, which main() reports.
template <class T>
T* must(T* p) {
  if (p == nullptr) throw std::bad_alloc();
  return p;
}

void must(bool ok) {
  if (!ok) throw std::bad_alloc();
}

std::span<const std::int32_t> elements(const emxArray_int32_T& a) {
  std::size_t n = a.numDimensions > 0 ? 1 : 0;
  for (int d = 0; d < a.numDimensions; ++d) n *= static_cast<std::size_t>(std::max(a.size[d], 0));
  return {a.data, n};
}

// The analysis rate as the library's integer argument.
constexpr std::int32_t kFs = kelo::rules::kAnalysisRate;

// Each entry point's _initialize routine (re)writes the library's shared
// non-finite constants, and its _terminate routine does nothing. Runs on
// several threads must not write those constants while another thread
// reads them, so the routines used here are initialised once, before the
// first analysis, for the whole process.
void initialize_library() {
  static std::once_flag once;
  std::call_once(once, [] {
    detectWaves_initialize();
    calcHRvar_initialize();
    classifyQRSvar_initialize();
    checkRRvar_initialize();
  });
}

}  // namespace

QrsResult run_qrs(const Prepared& p, const Excerpt& excerpt, const AnalysisSettings& settings) {
  const std::span<const double> samples(p.samples.data() + excerpt.start, static_cast<std::size_t>(excerpt.length));
  QrsResult r = qrs_over(samples, excerpt.start, settings.full_scale ? settings.full_scale : p.recording.full_scale,
                         settings);
  r.excerpt = excerpt;
  return r;
}

QrsResult qrs_over(std::span<const double> samples, std::int64_t start, std::optional<double> full_scale_used,
                   const AnalysisSettings& settings) {
  QrsResult r;
  r.excerpt = Excerpt{start, static_cast<std::int64_t>(samples.size())};
  r.window_s = settings.window_s;
  r.full_scale = full_scale_used;
  // Without a known full scale the clipping test is switched off: nothing
  // exceeds 0.97 times infinity.
  const double full_scale = r.full_scale.value_or(std::numeric_limits<double>::infinity());

  const auto length = static_cast<std::int32_t>(samples.size());
  // detectWaves only reads the samples it is given.
  RealArray ecg(must(emxCreateWrapper_real_T(const_cast<double*>(samples.data()), length, 1)));
  IntArray peaks(must(emxCreate_int32_T(length, 1)));
  IntArray windows(must(emxCreate_int32_T(1, 1)));
  std::int32_t grade = KELO_EXCERPT_USABLE;
  initialize_library();
  detectWaves(ecg.get(), full_scale, kFs, settings.window_s, peaks.get(), &grade, windows.get());
  must(grade != KELO_EXCERPT_NOT_GRADED);
  r.excerpt_grade = grade;

  const auto found = elements(*peaks);
  r.r_peaks.reserve(found.size());
  // 1-based positions in the excerpt become 0-based sample numbers of the
  // whole recording.
  for (auto pos : found) r.r_peaks.push_back(static_cast<std::int64_t>(pos) - 1 + start);
  const auto grades = elements(*windows);
  r.window_grades.assign(grades.begin(), grades.end());
  // Every beat: the same normal ones, the others added with their labels.
  // The grades stay those of detectWaves; the heart rate counts every beat.
  if (settings.beats == BeatsMode::All) {
    LabelledBeats all = detect_labelled(samples, start);
    r.r_peaks = std::move(all.samples);
    r.labels = std::move(all.labels);
    r.beats = BeatsMode::All;
  }
  std::vector<std::int32_t> positions;  // 1-based in the excerpt, as calcHRvar takes them
  for (auto s : r.r_peaks) positions.push_back(static_cast<std::int32_t>(s - start + 1));

  r.status = KELO_STATUS_NO_USABLE_BEATS;
  const auto count = static_cast<std::int32_t>(positions.size());
  if (count > 1) {
    IntArray beats(must(emxCreateWrapper_int32_T(positions.data(), count, 1)));
    const double rate = calcHRvar(beats.get(), count, kFs);
    must(!std::isnan(rate));  // two or more beats give a number or infinity
    if (kelo::rules::heart_rate_accepted(rate)) {
      r.heart_rate = rate;
      r.status = KELO_STATUS_SUCCESS;
    } else {
      r.rejected_rate = rate;
    }
  }
  r.status = kelo::rules::status_after_grade(r.status, grade);
  return r;
}

namespace {

// The Lomb amplitudes of an interval series that calcHrvFreq sums, kept up
// to the 0.4 Hz limit.
Periodogram periodogram_of(std::span<const double> t, std::span<const double> rr) {
  const auto n = static_cast<std::int32_t>(rr.size());
  if (n < 3) return {};  // fewer than two analysed points: no grid
  const auto len = static_cast<std::size_t>(2 * n);
  std::vector<double> freq(len), amp(len);
  calcLomb(t.data(), rr.data(), n, freq.data(), amp.data(), static_cast<std::int32_t>(len));
  const std::size_t lines = 2 * static_cast<std::size_t>(n - 1);
  must(freq[0] != 0.0);  // the first line lies above 0 Hz: nothing was written
  Periodogram out;
  for (std::size_t i = 0; i < lines && freq[i] <= 0.4; ++i) {
    out.frequency_hz.push_back(freq[i]);
    out.amplitude.push_back(amp[i]);
  }
  return out;
}

// The periodogram behind calcHrv's band powers: the interval series of the
// R peaks (1-based positions).
Periodogram periodogram(std::span<const std::int32_t> peaks) {
  const auto n = static_cast<std::int32_t>(peaks.size() - 1);
  if (n < 3) return {};
  std::vector<char> annotations(static_cast<std::size_t>(n));
  std::vector<double> t(static_cast<std::size_t>(n)), rr(static_cast<std::size_t>(n));
  calcRR(peaks.data(), n, kFs, annotations.data(), t.data(), rr.data());
  return periodogram_of(t, rr);
}

// The HRV status: the statistics' own, then a clipped or irregular excerpt
// as the bridge reports it.
HrvResult graded(HrvResult r, int status) {
  r.computed = true;
  r.spectrum = status == KELO_STATUS_SUCCESS;
  r.status = kelo::rules::status_after_grade(status, r.qrs.excerpt_grade);
  return r;
}

}  // namespace

HrvResult run_hrv(QrsResult qrs, bool with_periodogram) {
  HrvResult r;
  r.qrs = std::move(qrs);
  const QrsResult& q = r.qrs;
  r.status = q.status;
  if (!q.heart_rate) {
    r.not_computed = q.r_peaks.size() < 2 ? "fewer than two R peaks" : "heart rate outside 30-220 bpm";
    return r;
  }
  if (q.beats == BeatsMode::All) {
    // Every beat: NN intervals only.
    const NnSeries series = nn_series(q.r_peaks, q.labels);
    const NnHrv h = hrv_over_nn(series);
    must(h.status != KELO_HRV_STATUS_NO_MEMORY);
    if (with_periodogram) r.periodogram = periodogram_of(series.nn_t, series.nn_rr);
    r.time = h.time;
    r.freq = h.freq;
    r.intervals = series.intervals;
    r.excluded_intervals = series.excluded;
    return graded(std::move(r), h.status);
  }
  // calcHrv takes the 1-based positions within the excerpt, as detectWaves
  // gave them.
  std::vector<std::int32_t> peaks;
  peaks.reserve(q.r_peaks.size());
  for (auto s : q.r_peaks) peaks.push_back(static_cast<std::int32_t>(s - q.excerpt.start + 1));
  std::int32_t status = 0;
  calcHrv(peaks.data(), static_cast<std::int32_t>(peaks.size() - 1), kFs, r.time.data(), r.freq.data(), &status);
  must(status != KELO_HRV_STATUS_NO_MEMORY);
  if (with_periodogram) r.periodogram = periodogram(peaks);
  return graded(std::move(r), status);
}

BeatReview review_beats(const Prepared& p, const QrsResult& q) {
  BeatReview review;
  const auto n = static_cast<std::int32_t>(q.r_peaks.size());
  if (n == 0) return review;
  std::vector<double> excerpt(p.samples.begin() + q.excerpt.start, p.samples.begin() + q.excerpt.end());
  std::vector<std::int32_t> positions;  // 1-based within the excerpt
  for (auto s : q.r_peaks) positions.push_back(static_cast<std::int32_t>(s - q.excerpt.start + 1));

  RealArray signal(must(emxCreateWrapper_real_T(excerpt.data(), static_cast<std::int32_t>(excerpt.size()), 1)));
  IntArray peaks(must(emxCreateWrapper_int32_T(positions.data(), n, 1)));
  IntArray classes(must(emxCreate_int32_T(1, 1)));
  initialize_library();
  classifyQRSvar(signal.get(), peaks.get(), n, kFs, classes.get());
  const auto all = elements(*classes);  // one entry per sample; the first n belong to the beats
  must(all.size() == excerpt.size());
  review.classes.assign(all.begin(), all.begin() + std::min<std::ptrdiff_t>(n, static_cast<std::ptrdiff_t>(all.size())));

  // The RR check edits its records in place: give it copies, and keep the
  // beats that classification found normal from being marked.
  IntArray kept(must(emxCreate_int32_T(n, 1)));
  IntArray marks(must(emxCreate_int32_T(n, 1)));
  for (std::int32_t k = 0; k < n; ++k) {
    kept->data[k] = positions[static_cast<std::size_t>(k)];
    marks->data[k] = k < static_cast<std::int32_t>(review.classes.size()) ? review.classes[static_cast<std::size_t>(k)] : 1;
  }
  std::int32_t count = n;
  checkRRvar(kept.get(), &count, marks.get());
  must(count >= 0);
  std::size_t j = 0;
  for (std::size_t k = 0; k < positions.size(); ++k) {
    if (j < static_cast<std::size_t>(count) && kept->data[j] == positions[k]) {
      ++j;
    } else {
      review.rr_removed.push_back(k);
    }
  }
  return review;
}

}  // namespace keloecg
