// The analysis runs, through the library's public C interface only.
#include "analysis.hpp"

#include <algorithm>
#include <cmath>
#include <exception>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <span>

#include "keloecgsolver/grades.h"
#include "keloecgsolver/keloecgsolver.h"
#include "parallel.hpp"
#include "segments.hpp"
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

// A column record over samples the library only reads (detectWaves and
// classifyQRSvar take their signal read-only), so that a long excerpt is
// not copied.
RealArray wrap(std::span<const double> x) {
  return RealArray(must(emxCreateWrapper_real_T(const_cast<double*>(x.data()), static_cast<std::int32_t>(x.size()), 1)));
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

namespace {

// One detectWaves run: R peaks as 0-based sample numbers of the whole
// recording, the window grades and the excerpt grade.
struct Detected {
  std::vector<std::int64_t> peaks;
  std::vector<int> windows;
  int grade = 1;
  LabelledBeats all;  // every beat with its label, when asked for
};

// Samples at 200 Hz that the caller holds, starting at sample `start` of
// the whole recording: the detection reads stretches of them by their
// numbers in the whole recording.
struct SampleView {
  std::span<const double> x;
  std::int64_t start = 0;
  std::span<const double> excerpt(const Excerpt& e) const {
    return x.subspan(static_cast<std::size_t>(e.start - start), static_cast<std::size_t>(e.length));
  }
};

Detected detect(const SampleView& p, const Excerpt& e, double full_scale, int window_s, BeatsMode beats) {
  RealArray ecg(wrap(p.excerpt(e)));
  IntArray peaks(must(emxCreate_int32_T(0, 1)));
  IntArray windows(must(emxCreate_int32_T(1, 1)));
  std::int32_t grade = 1;
  detectWaves(ecg.get(), full_scale, kFs, window_s, peaks.get(), &grade, windows.get());
  must(grade != 0);
  Detected d;
  d.grade = grade;
  const auto found = elements(*peaks);
  d.peaks.reserve(found.size());
  // 1-based positions in the excerpt become 0-based sample numbers of the
  // whole recording.
  for (auto pos : found) d.peaks.push_back(static_cast<std::int64_t>(pos) - 1 + e.start);
  const auto grades = elements(*windows);
  d.windows.assign(grades.begin(), grades.end());
  if (beats == BeatsMode::All) d.all = detect_labelled(p.excerpt(e), e.start);
  return d;
}

// The number of quality windows of an excerpt, by the library's rule.
std::int64_t window_count(std::int64_t samples, int window_s) {
  return kelo::rules::window_count(samples / kFs, window_s);  // whole seconds
}

// The grades of segments detected apart, put together: each window takes
// the grade of the segment whose core holds it; a single window over the
// whole excerpt and the excerpt grade are formed over the joined beats.
void grade_joined(const SampleView& p, const SegmentPlan& plan, const std::vector<Detected>& parts, double full_scale,
                  int window_s, QrsResult& r) {
  const Excerpt& e = r.excerpt;
  const auto x = p.excerpt(e);
  std::vector<std::int64_t> relative;
  relative.reserve(r.r_peaks.size());
  for (auto peak : r.r_peaks) relative.push_back(peak - e.start);
  r.excerpt_grade = excerpt_grade(x, relative, full_scale);
  const std::int64_t windows = window_count(e.length, window_s);
  if (windows == 1) {
    r.window_grades = {window_grade(x, relative, full_scale)};
    return;
  }
  const std::int64_t length = static_cast<std::int64_t>(window_s) * kFs;
  r.window_grades.resize(static_cast<std::size_t>(windows));
  std::size_t k = 0;
  for (std::int64_t w = 0; w < windows; ++w) {
    const std::int64_t from = e.start + w * length;
    while (plan.segments[k].core_end <= from) ++k;
    const auto local = static_cast<std::size_t>((from - plan.segments[k].span.start) / length);
    r.window_grades[static_cast<std::size_t>(w)] = parts[k].windows.at(local);
  }
}

}  // namespace

QrsResult run_qrs(const Prepared& p, const Excerpt& excerpt, const AnalysisSettings& settings) {
  QrsResult r = qrs_over(p.excerpt(excerpt), excerpt.start, settings.full_scale ? settings.full_scale : p.recording.full_scale,
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
  const SampleView p{samples, start};
  const Excerpt excerpt = r.excerpt;

  const SegmentPlan plan = plan_segments(excerpt, settings.segment_s, settings.window_s);
  std::vector<Detected> parts(plan.segments.size());
  std::vector<std::exception_ptr> failures(parts.size());
  initialize_library();
  run_parallel(parts.size(), settings.threads, [&](std::size_t k) {
    try {
      parts[k] = detect(p, plan.segments[k].span, full_scale, settings.window_s, settings.beats);
    } catch (...) {
      failures[k] = std::current_exception();
    }
  });
  for (const auto& f : failures) {
    if (f) std::rethrow_exception(f);
  }
  r.detection.segments = parts.size();
  r.detection.segment_s = static_cast<double>(plan.segment) / kAnalysisRate;
  r.detection.overlap_s = static_cast<double>(plan.overlap) / kAnalysisRate;
  // The grades are those of detectWaves, formed over its normal-shaped
  // beats; with all beats, the labelled beats are joined the same way.
  if (parts.size() == 1) {
    r.r_peaks = std::move(parts[0].peaks);
    r.window_grades = std::move(parts[0].windows);
    r.excerpt_grade = parts[0].grade;
    if (settings.beats == BeatsMode::All) {
      r.r_peaks = std::move(parts[0].all.samples);
      r.labels = std::move(parts[0].all.labels);
    }
  } else {
    std::vector<std::vector<std::int64_t>> beats;
    beats.reserve(parts.size());
    for (auto& d : parts) beats.push_back(std::move(d.peaks));
    std::vector<Seam> seams;
    r.r_peaks = join_segments(plan, beats, seams);
    for (const auto& seam : seams) (seam.agreed ? r.detection.seams_agreed : r.detection.seams_other)++;
    grade_joined(p, plan, parts, full_scale, settings.window_s, r);
    if (settings.beats == BeatsMode::All) {
      std::vector<std::vector<std::int64_t>> all;
      std::vector<std::vector<int>> labels;
      all.reserve(parts.size());
      labels.reserve(parts.size());
      for (auto& d : parts) {
        all.push_back(std::move(d.all.samples));
        labels.push_back(std::move(d.all.labels));
      }
      r.r_peaks = join_segments(plan, all, seams);
      r.labels = joined_labels(plan, all, labels, r.r_peaks);
    }
  }
  r.beats = settings.beats;

  r.status = KELO_STATUS_NO_USABLE_BEATS;
  if (r.r_peaks.size() > 1) {
    std::vector<std::int32_t> positions;  // 1-based within the excerpt
    positions.reserve(r.r_peaks.size());
    for (auto s : r.r_peaks) positions.push_back(static_cast<std::int32_t>(s - excerpt.start + 1));
    IntArray peaks(must(emxCreateWrapper_int32_T(positions.data(), static_cast<std::int32_t>(positions.size()), 1)));
    const double rate = calcHRvar(peaks.get(), static_cast<std::int32_t>(positions.size()), kFs);
    must(!std::isnan(rate));  // two or more beats give a number or infinity
    if (kelo::rules::heart_rate_accepted(rate)) {
      r.heart_rate = rate;
      r.status = KELO_STATUS_SUCCESS;
    } else {
      r.rejected_rate = rate;
    }
  }
  r.status = kelo::rules::status_after_grade(r.status, r.excerpt_grade);
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


}  // namespace

std::optional<double> HrvFigures::time_value(std::size_t i) const {
  if (!computed || !std::isfinite(time.at(i))) return std::nullopt;
  if ((i == 3 && !sdann_formed) || (i == 4 && !sdnn_index_formed)) return std::nullopt;
  return time[i];
}

std::optional<double> HrvFigures::freq_value(std::size_t i) const {
  if (!spectrum || !std::isfinite(freq.at(i))) return std::nullopt;
  return freq[i];
}

namespace {

// Interval times beyond 200 hours (2400 segments of 5 minutes) are beyond
// what the library's HRV statistics hold.
constexpr double kLongestHrvSeconds = 720000.0;

// The R peaks within a span, as 1-based positions within it (as
// detectWaves would give them for that span alone).
std::vector<std::int32_t> positions_in(const std::vector<std::int64_t>& peaks, const Excerpt& span) {
  const auto a = std::lower_bound(peaks.begin(), peaks.end(), span.start);
  const auto b = std::lower_bound(peaks.begin(), peaks.end(), span.end());
  std::vector<std::int32_t> out;
  out.reserve(static_cast<std::size_t>(b - a));
  for (auto it = a; it != b; ++it) out.push_back(static_cast<std::int32_t>(*it - span.start + 1));
  return out;
}

// calcHrv over the R peaks of a span, with the bridge's conditions (two R
// peaks and a heart rate of 30 to 220 bpm).
HrvFigures figures(const QrsResult& q, const Excerpt& span, Periodogram* spectrum) {
  HrvFigures f;
  f.span = span;
  std::vector<std::int32_t> pos = positions_in(q.r_peaks, span);
  f.beats = pos.size();
  const auto n = static_cast<std::int32_t>(pos.size()) - 1;
  if (n < 1) {
    f.not_computed = "fewer than two R peaks";
    return f;
  }
  IntArray wrapped(must(emxCreateWrapper_int32_T(pos.data(), n + 1, 1)));
  const double rate = calcHRvar(wrapped.get(), n + 1, kFs);
  must(!std::isnan(rate));  // two or more beats give a number or infinity
  if (!kelo::rules::heart_rate_accepted(rate)) {
    f.not_computed = "heart rate " + std::to_string(static_cast<long long>(std::llround(rate))) + " bpm, outside 30-220 bpm";
    return f;
  }
  f.heart_rate = rate;
  if (span.duration_s() > kLongestHrvSeconds) {
    f.not_computed = "longer than 200 hours, the longest series the library's HRV statistics hold";
    return f;
  }
  std::array<double, 7> raw{};
  if (q.labels.empty()) {
    std::int32_t status = 0;
    calcHrv(pos.data(), n, kFs, f.time.data(), f.freq.data(), &status);
    must(status != KELO_HRV_STATUS_NO_MEMORY);
    f.status = status;
    // Whether SDANN and the SDNN index were formed: calcStatNN marks them
    // -1 when not (calcHrv turns the mark of SDANN into 0).
    std::vector<char> annotations(static_cast<std::size_t>(n));
    std::vector<double> t(static_cast<std::size_t>(n)), rr(static_cast<std::size_t>(n));
    calcRR(pos.data(), n, kFs, annotations.data(), t.data(), rr.data());
    calcStatNN(t.data(), rr.data(), annotations.data(), n, raw.data());
    if (spectrum != nullptr) *spectrum = periodogram(pos);
  } else {
    // Every beat: HRV over the NN intervals of the span only.
    const auto first = static_cast<std::size_t>(std::lower_bound(q.r_peaks.begin(), q.r_peaks.end(), span.start) -
                                                q.r_peaks.begin());
    const NnSeries series = nn_series(std::span(q.r_peaks).subspan(first, pos.size()),
                                      std::span(q.labels).subspan(first, pos.size()));
    const NnHrv h = hrv_over_nn(series);
    f.time = h.time;
    f.freq = h.freq;
    f.status = h.status;
    f.intervals = series.intervals;
    f.excluded_intervals = series.excluded;
    calcStatNN(series.t.data(), series.rr.data(), series.annotations.data(), static_cast<std::int32_t>(series.intervals),
               raw.data());
    if (spectrum != nullptr) *spectrum = periodogram_of(series.nn_t, series.nn_rr);
  }
  must(!std::isnan(raw[0]));  // the NN/RR ratio of one interval or more is a number
  f.computed = true;
  f.spectrum = f.status == KELO_STATUS_SUCCESS;
  f.sdann_formed = raw[3] != -1.0;
  f.sdnn_index_formed = raw[4] != -1.0;
  return f;
}

// Consecutive spans of `length` samples over an excerpt; a tail of at
// least `shortest` samples is a last, shorter span.
std::vector<Excerpt> spans(const Excerpt& e, std::int64_t length, std::int64_t shortest) {
  std::vector<Excerpt> out;
  for (std::int64_t from = e.start; from < e.end(); from += length) {
    const std::int64_t n = std::min(length, e.end() - from);
    if (n == length || n >= shortest) out.push_back({from, n, false});
  }
  return out;
}

}  // namespace

HrvResult hrv_not_computed(QrsResult qrs, const std::string& why) {
  HrvResult h;
  h.whole.span = qrs.excerpt;
  h.whole.beats = qrs.r_peaks.size();
  h.whole.status = qrs.status;
  h.whole.not_computed = why;
  h.qrs = std::move(qrs);
  return h;
}

HrvResult run_hrv(QrsResult qrs, const HrvOptions& options) {
  HrvResult r;
  r.qrs = std::move(qrs);
  r.long_term = options.long_term;
  const QrsResult& q = r.qrs;
  r.whole = figures(q, q.excerpt, options.periodograms ? &r.periodogram : nullptr);
  // The status of the whole excerpt is the bridge's: without an accepted
  // heart rate that of the detection, and a clipped or irregular excerpt
  // says so whatever the HRV gave.
  if (!r.whole.computed) r.whole.status = q.status;
  r.whole.status = kelo::rules::status_after_grade(r.whole.status, q.excerpt_grade);
  if (!options.long_term) return r;

  for (const Excerpt& span : spans(q.excerpt, kSegmentSamples, kSegmentSamples)) {
    if (options.periodograms) r.segment_periodograms.emplace_back();
    r.segments.push_back(figures(q, span, options.periodograms ? &r.segment_periodograms.back() : nullptr));
  }
  for (std::size_t i = 0; i < kFreqFields.size(); ++i) {
    double sum = 0.0;
    std::size_t n = 0;
    for (const auto& seg : r.segments) {
      if (const auto v = seg.freq_value(i)) {
        sum += *v;
        ++n;
      }
    }
    r.segments_in_mean[i] = n;
    if (n > 0) r.segment_mean[i] = sum / static_cast<double>(n);
  }
  for (const Excerpt& span : spans(q.excerpt, kHourSamples, kSegmentSamples)) r.hours.push_back(figures(q, span, nullptr));
  return r;
}

BeatReview review_beats(const Prepared& p, const QrsResult& q) {
  BeatReview review;
  const auto n = static_cast<std::int32_t>(q.r_peaks.size());
  if (n == 0) return review;
  std::vector<std::int32_t> positions;  // 1-based within the excerpt
  for (auto s : q.r_peaks) positions.push_back(static_cast<std::int32_t>(s - q.excerpt.start + 1));

  const auto excerpt = p.excerpt(q.excerpt);
  RealArray signal(wrap(excerpt));
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
