// Beat decision of the QRS detector: a provisional peak per candidate
// region, the median beat template, the correlation pass that accepts one
// beat per region, the search-back for beats missed in long RR intervals,
// and the refinement of every accepted position to the nearest ECG peak.
#include <algorithm>
#include <cmath>

#include "reference/detector.hpp"
#include "detect/peak_finders.hpp"
#include "keloecgsolver/rt_nonfinite.h"
#include "runtime/emx.hpp"
#include "runtime/kernels.hpp"

namespace kelo::ref {

using detect::is_local_max;
using detect::is_local_min;
using detect::m_b_findsmallpeak;
using detect::m_eml_li_find;
using detect::m_findsmallpeak;
using detect::Peak;
using detect::RefineWindow;
using detect::kRefineLength;

// The peak placement in its plain form: every local extreme recorded in
// two arrays, the scores taken afterwards.
Peak m_findbigpeak(std::span<const double> x) {
  Peak peak{rtMinusInf, rtMinusInf};
  const std::size_t length = x.size();
  // minima(j) is the last local minimum before the j-th maximum (1.0, the
  // first sample, when there is none); maxima(j) the j-th maximum (0.0 for
  // an unused slot). Both hold 1-based positions; slot j is index j - 1.
  std::vector<double> minima(length, 1.0);
  std::vector<double> maxima(length, 0.0);
  std::size_t j = 0;
  for (std::size_t k = 1; k + 1 < length; ++k) {
    // Local maxima are never adjacent, so j stays below length.
    if (is_local_min(x, k)) minima[j] = static_cast<double>(k + 1);
    if (is_local_max(x, k)) {
      maxima[j] = static_cast<double>(k + 1);
      ++j;
    }
  }
  // No minimum after the last maximum: the last sample is the right foot.
  if (j < length && minima[j] == 1.0) minima[j] = static_cast<double>(length);

  for (std::size_t i = 0; i < length; ++i) {
    // A maximum needs a right foot; slot i + 1 past the end never has one.
    if (maxima[i] == 0.0 || i + 1 >= length || minima[i + 1] == 1.0) continue;
    const double top = x[static_cast<std::size_t>(maxima[i]) - 1];
    const double leftFoot = x[static_cast<std::size_t>(minima[i]) - 1];
    const double rightFoot = x[static_cast<std::size_t>(minima[i + 1]) - 1];
    // The fall after the peak weighs 1.3 against 1.0 for the rise into it.
    const double score = 1.3 * (top - rightFoot) + (top - leftFoot);
    if (score > peak.amplitude) {
      peak.amplitude = score;
      peak.position = maxima[i];
    }
  }
  if (peak.position > 0.0) peak.amplitude = x[static_cast<std::size_t>(peak.position) - 1];
  return peak;
}

namespace {

// Samples first .. last (1-based, inclusive), empty when first > last.
// Callers pass positions inside the recording; anything outside is cut off
// so that no read can leave the array.
std::span<const double> samples(std::span<const double> ecg, double first, double last) {
  const double n = static_cast<double>(ecg.size());
  first = std::max(first, 1.0);
  last = std::min(last, n);
  if (!(first <= last)) return {};
  const auto lo = static_cast<std::size_t>(first) - 1;
  const auto hi = static_cast<std::size_t>(last);
  return ecg.subspan(lo, hi - lo);
}

// ECG(q - hw .. q + hw); the caller has checked that the window fits.
std::span<const double> beat_window(std::span<const double> ecg, double q, int64_t hw) {
  const double half = static_cast<double>(hw);
  return samples(ecg, q - half, q + half);
}

}  // namespace

std::vector<double> provisional_peaks(std::span<const double> ecg, Regions& regions,
                                      double minRegionLength) {
  const double n = static_cast<double>(ecg.size());
  std::vector<double> provisionalPeak(regions.size());
  for (std::size_t i = 0; i < regions.size(); ++i) {
    double& start = regions.start[i];
    double& end = regions.end[i];
    // A region shorter than 0.2 s is lengthened (the correlation pass scans
    // the lengthened region too).
    if (minRegionLength > end - start) end = std::min(n, std::floor(minRegionLength + start));
    const Peak p = m_findbigpeak(samples(ecg, start, end));
    provisionalPeak[i] = start + p.position - 1.0;
  }
  return provisionalPeak;
}

void keep_placed(Regions& regions, std::vector<double>& provisionalPeak) {
  const auto count = static_cast<int32_t>(provisionalPeak.size());
  EmxBool mask(2);
  resize_row(mask.get(), count);
  auto m = mask.span();
  for (std::size_t i = 0; i < m.size(); ++i) m[i] = provisionalPeak[i] > 0.0;
  EmxInt32 kept(2);
  m_eml_li_find(mask, kept);

  Regions filtered;
  std::vector<double> peaks;
  for (int32_t index : kept.span()) {
    const auto i = static_cast<std::size_t>(index) - 1;
    filtered.start.push_back(regions.start[i]);
    filtered.end.push_back(regions.end[i]);
    peaks.push_back(provisionalPeak[i]);
  }
  regions = std::move(filtered);
  provisionalPeak = std::move(peaks);
}

std::vector<double> beat_template(std::span<const double> ecg,
                                  std::span<const double> provisionalPeak, int64_t hw) {
  const std::size_t rows = provisionalPeak.size();
  const auto width = static_cast<std::size_t>(2 * hw + 1);
  const double n = static_cast<double>(ecg.size());
  const double half = static_cast<double>(hw);
  // beatMatrix, row by row: row i holds the beat around provisional peak i
  // minus its mean, or zeros when the beat does not fit (the zero rows
  // still take part in the median).
  std::vector<double> beatMatrix(rows * width, 0.0);
  for (std::size_t i = 0; i < rows; ++i) {
    const double p = provisionalPeak[i];
    if (!(p - half > 0.0 && n >= p + half)) continue;
    const auto beat = beat_window(ecg, p, hw);
    const double mean = kern::mean(beat);
    for (std::size_t j = 0; j < width && j < beat.size(); ++j)
      beatMatrix[i * width + j] = beat[j] - mean;
  }
  // Column-wise median over the beats (NaN columns when there is none).
  std::vector<double> beatTemplate(width);
  std::vector<double> column(rows);
  for (std::size_t j = 0; j < width; ++j) {
    for (std::size_t i = 0; i < rows; ++i) column[i] = beatMatrix[i * width + j];
    beatTemplate[j] = median(column);
  }
  return beatTemplate;
}

CorrelationScan scan_region(std::span<const double> ecg, std::span<const double> beatTemplate,
                            double start, double end, int64_t hw) {
  const double n = static_cast<double>(ecg.size());
  const double half = static_cast<double>(hw);
  CorrelationScan scan;
  const double length = std::trunc(end - start);
  scan.logicalLength = length > 0.0 ? static_cast<std::size_t>(length) : 0;
  // The scan visits logicalLength + 1 positions; the coefficient of the
  // last one is stored but never searched.
  scan.row.assign(scan.logicalLength + 1, 0.0);
  std::size_t j = 0;
  for (double q = start; q <= end; q += 1.0) {
    if (q - half > 0.0 && n > q + half) {
      if (j < scan.row.size()) scan.row[j] = kern::corr(beatTemplate, beat_window(ecg, q, hw));
      ++j;
    } else {
      scan.outOfRange = true;
    }
  }
  return scan;
}

CorrelationScan scan_middle(std::span<const double> ecg, std::span<const double> beatTemplate,
                            double mid, int64_t hw) {
  const double n = static_cast<double>(ecg.size());
  const double half = static_cast<double>(hw);
  CorrelationScan scan;
  scan.logicalLength = static_cast<std::size_t>(2 * hw + 1);
  scan.row.assign(scan.logicalLength, 0.0);
  std::size_t j = 0;
  for (double q = mid - half; q <= mid + half; q += 1.0) {
    // Unlike the correlation pass, the window may end on the last sample.
    if (q - half > 0.0 && n >= q + half) {
      if (j < scan.row.size()) scan.row[j] = kern::corr(beatTemplate, beat_window(ecg, q, hw));
      ++j;
    } else {
      scan.outOfRange = true;
    }
  }
  return scan;
}

double correlation_limit(double lastRR, double c, double lastSlot) {
  // lastSlot is the last slot of the whole output, which the correlation
  // pass never fills: in effect the stricter limit applies only when lastRR
  // is +Inf. This comparison is the detector's defined behaviour, and
  // changing it changes which beats are accepted.
  return (lastRR != 0.0 && 0.65 * lastRR > c - lastSlot) ? 0.8 : 0.6;
}

// At 125 Hz and above the range checks of the scans keep the +-10-sample
// window inside the recording. At lower rates it may not fit: such a
// candidate is skipped (no beat is stored and nothing else changes).
std::optional<double> refine(std::span<const double> ecg, double c) {
  if (!(c - 10.0 >= 1.0 && c + 10.0 <= static_cast<double>(ecg.size()))) return std::nullopt;
  RefineWindow refineWindow;
  const auto first = static_cast<std::size_t>(c - 10.0) - 1;
  for (std::size_t m = 0; m < kRefineLength; ++m) refineWindow[m] = ecg[first + m];
  const Peak r = m_b_findsmallpeak(refineWindow);
  return r.position + c - 11.0;  // r = 11 keeps c; r = -Inf stores -Inf
}

void correlation_pass(std::span<const double> ecg, std::span<const double> beatTemplate,
                      const Regions& regions, int64_t hw, BeatList& beats) {
  for (std::size_t i = 0; i < regions.size() && !beats.full(); ++i) {
    const double start = regions.start[i];
    const CorrelationScan scan = scan_region(ecg, beatTemplate, start, regions.end[i], hw);
    if (scan.outOfRange) continue;  // the search-back may still reach it
    const Peak best = m_findsmallpeak(std::span<const double>(scan.row).first(scan.logicalLength));
    const double c = start + best.position - 1.0;
    const double limit = correlation_limit(beats.lastRR, c, beats.rpeaks.back());
    if (!(best.amplitude > limit)) continue;
    const std::optional<double> refined = refine(ecg, c);
    if (!refined) continue;
    const std::size_t slot = beats.beatCount - 1;
    beats.rpeaks[slot] = *refined;
    if (beats.beatCount > 1) beats.lastRR = beats.rpeaks[slot] - beats.rpeaks[slot - 1];
    ++beats.beatCount;
  }
}

std::vector<double> accepted_peaks(std::span<const double> rpeaks) {
  std::vector<double> acceptedPeaks;
  for (double v : rpeaks)
    if (v > 0.0) acceptedPeaks.push_back(v);
  return acceptedPeaks;
}

std::vector<double> gap_indices(std::span<const double> acceptedPeaks) {
  std::vector<double> rr;
  for (std::size_t j = 0; j + 1 < acceptedPeaks.size(); ++j)
    rr.push_back(acceptedPeaks[j + 1] - acceptedPeaks[j]);
  // Gap j: the interval RR(j + 1) is more than 1.8 times its predecessor.
  std::vector<double> gaps;
  for (std::size_t j = 0; j + 1 < rr.size(); ++j)
    if (rr[j + 1] > 1.8 * rr[j]) gaps.push_back(static_cast<double>(j + 1));
  return gaps;
}

double gap_middle(std::span<const double> acceptedPeaks, double j) {
  // Gap j lies between acceptedPeaks(j + 1) and acceptedPeaks(j + 2).
  const auto k = static_cast<std::size_t>(j);
  return std::ceil((acceptedPeaks[k] + acceptedPeaks[k + 1]) / 2.0);
}

void search_back(std::span<const double> ecg, std::span<const double> beatTemplate,
                 std::span<const double> qrsFeature, std::span<const double> qrsThreshold,
                 int64_t hw, BeatList& beats) {
  const std::vector<double> acceptedPeaks = accepted_peaks(beats.rpeaks);
  const double half = static_cast<double>(hw);
  const double n = static_cast<double>(std::min(qrsFeature.size(), qrsThreshold.size()));
  for (double j : gap_indices(acceptedPeaks)) {
    if (beats.full()) break;
    const double mid = gap_middle(acceptedPeaks, j);
    const CorrelationScan scan = scan_middle(ecg, beatTemplate, mid, hw);
    if (scan.outOfRange) continue;
    const Peak best = m_findsmallpeak(scan.row);
    const double c = best.position + mid - half - 1.0;
    // A looser correlation limit and half the energy threshold; lastRR is
    // left alone.
    if (!(best.amplitude > 0.4)) continue;
    if (!(c >= 1.0 && c <= n)) continue;
    const auto k = static_cast<std::size_t>(c) - 1;
    if (!(qrsFeature[k] > qrsThreshold[k] / 2.0)) continue;
    const std::optional<double> refined = refine(ecg, c);
    if (!refined) continue;
    beats.rpeaks[beats.beatCount - 1] = *refined;
    ++beats.beatCount;
  }
}

}  // namespace kelo::ref
