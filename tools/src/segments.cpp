#include "segments.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>

#include "runtime/run_rules.hpp"

namespace keloecg {

namespace {

constexpr double kOverlapSeconds = 30.0;
// Two detections closer than this are one beat (the matching window of
// the validation).
constexpr std::int64_t kSameBeat = 30;  // 150 ms at 200 Hz

std::vector<std::int64_t> within(std::span<const std::int64_t> beats, std::int64_t from, std::int64_t to) {
  const auto a = std::lower_bound(beats.begin(), beats.end(), from);
  const auto b = std::lower_bound(beats.begin(), beats.end(), to);
  return {a, b};
}

// The later of two consecutive beats that both lists hold as consecutive
// beats, for the pair whose middle lies nearest `at`.
std::optional<std::int64_t> agreed_cut(const std::vector<std::int64_t>& left, const std::vector<std::int64_t>& right,
                                       std::int64_t at) {
  std::optional<std::int64_t> best;
  std::int64_t best_distance = std::numeric_limits<std::int64_t>::max();
  for (std::size_t i = 0; i + 1 < left.size(); ++i) {
    const auto r = std::lower_bound(right.begin(), right.end(), left[i]);
    if (r == right.end() || *r != left[i] || r + 1 == right.end() || *(r + 1) != left[i + 1]) continue;
    const std::int64_t distance = std::abs(left[i] + left[i + 1] - 2 * at);
    if (distance < best_distance) {
      best_distance = distance;
      best = left[i + 1];
    }
  }
  return best;
}

bool near_any(const std::vector<std::int64_t>& sorted, std::int64_t v) {
  const auto it = std::lower_bound(sorted.begin(), sorted.end(), v - kSameBeat);
  return it != sorted.end() && *it <= v + kSameBeat;
}

}  // namespace

SegmentPlan plan_segments(const Excerpt& e, double segment_s, int window_s) {
  SegmentPlan plan;
  const auto window = static_cast<std::int64_t>(std::max(window_s, 1)) * static_cast<std::int64_t>(kAnalysisRate);
  const auto whole_windows = [&](double seconds) {
    const auto samples = static_cast<std::int64_t>(std::llround(seconds * kAnalysisRate));
    return std::max<std::int64_t>(1, samples / window) * window;
  };
  if (segment_s > 0.0) {
    plan.segment = whole_windows(segment_s);
    plan.overlap = (static_cast<std::int64_t>(std::llround(kOverlapSeconds * kAnalysisRate)) + window - 1) / window * window;
  }
  const std::int64_t count = plan.segment > 0 ? e.length / plan.segment : 1;
  if (count < 2) {
    plan.segment = 0;
    plan.overlap = 0;
    plan.segments.push_back({e, e.start, e.end()});
    return plan;
  }
  for (std::int64_t k = 0; k < count; ++k) {
    const std::int64_t core_start = e.start + k * plan.segment;
    const std::int64_t core_end = k + 1 == count ? e.end() : core_start + plan.segment;
    const std::int64_t from = std::max(e.start, core_start - plan.overlap);
    const std::int64_t to = std::min(e.end(), core_end + plan.overlap);
    plan.segments.push_back({Excerpt{from, to - from, false}, core_start, core_end});
  }
  return plan;
}

std::vector<std::int64_t> join_segments(const SegmentPlan& plan, const std::vector<std::vector<std::int64_t>>& beats,
                                        std::vector<Seam>& seams) {
  seams.clear();
  const std::size_t n = plan.segments.size();
  if (n == 1) return beats.at(0);
  // cut[k]: the first beat that segment k answers for (beats of segment k
  // from cut[k] up to cut[k + 1]); at seams without agreement, `extra`
  // beats found only by the other segment and `removed` ones found twice.
  std::vector<std::int64_t> cut(n + 1);
  cut[0] = std::numeric_limits<std::int64_t>::min();
  cut[n] = std::numeric_limits<std::int64_t>::max();
  std::vector<std::int64_t> extra, removed;
  for (std::size_t k = 1; k < n; ++k) {
    const std::int64_t at = plan.segments[k].core_start;
    const auto left = within(beats[k - 1], at - plan.overlap, at + plan.overlap);
    const auto right = within(beats[k], at - plan.overlap, at + plan.overlap);
    const auto agreed = agreed_cut(left, right, at);
    seams.push_back({at, agreed.has_value()});
    cut[k] = agreed.value_or(at);
    if (agreed) continue;
    // Each side keeps its beats on its side of the seam, but a beat of the
    // later one within 150 ms of a kept beat is the same beat; what only
    // the other side saw there is added when no kept beat is that near.
    std::vector<std::int64_t> kept = within(beats[k - 1], at - plan.overlap, at);
    for (auto b : within(beats[k], at, at + plan.overlap)) {
      if (near_any(kept, b)) {
        removed.push_back(b);
      } else {
        kept.push_back(b);
      }
    }
    auto candidates = within(beats[k - 1], at, at + plan.overlap);
    const auto right_early = within(beats[k], at - plan.overlap, at);
    candidates.insert(candidates.end(), right_early.begin(), right_early.end());
    std::sort(candidates.begin(), candidates.end());
    for (auto c : candidates) {
      if (near_any(kept, c)) continue;
      kept.insert(std::upper_bound(kept.begin(), kept.end(), c), c);
      extra.push_back(c);
    }
  }
  std::vector<std::int64_t> out;
  for (std::size_t k = 0; k < n; ++k) {
    const auto part = within(beats[k], cut[k], cut[k + 1]);
    out.insert(out.end(), part.begin(), part.end());
  }
  std::sort(removed.begin(), removed.end());
  std::erase_if(out, [&](std::int64_t b) { return std::binary_search(removed.begin(), removed.end(), b); });
  out.insert(out.end(), extra.begin(), extra.end());
  std::sort(out.begin(), out.end());
  out.erase(std::unique(out.begin(), out.end()), out.end());
  return out;
}

std::vector<int> joined_labels(const SegmentPlan& plan, const std::vector<std::vector<std::int64_t>>& beats,
                               const std::vector<std::vector<int>>& labels, std::span<const std::int64_t> joined) {
  const auto& segs = plan.segments;
  std::vector<int> out;
  out.reserve(joined.size());
  for (const std::int64_t b : joined) {
    const auto holder = std::upper_bound(segs.begin(), segs.end(), b,
                                         [](std::int64_t v, const DetectionSegment& s) { return v < s.core_start; });
    const std::size_t k = holder == segs.begin() ? 0 : static_cast<std::size_t>(holder - segs.begin()) - 1;
    std::optional<int> label;
    for (const std::size_t c : {k, k - 1, k + 1}) {  // k - 1 wraps past the end for k == 0
      if (c >= beats.size()) continue;
      const auto it = std::lower_bound(beats[c].begin(), beats[c].end(), b);
      if (it != beats[c].end() && *it == b) {
        label = labels[c][static_cast<std::size_t>(it - beats[c].begin())];
        break;
      }
    }
    if (!label) throw std::logic_error("a joined beat that no segment found");
    out.push_back(*label);
  }
  return out;
}

namespace {

// Largest absolute sample (the library's running maximum starts at -10000).
double largest_magnitude(std::span<const double> x) {
  double top = -10000.0;
  for (double v : x) top = std::max(top, std::abs(v));
  return top;
}

// The library's rhythm test: the sample standard deviation of the RR
// intervals (int32 differences, saturating) above a quarter of their mean.
bool irregular(std::span<const std::int64_t> peaks) {
  const auto n = static_cast<std::int32_t>(peaks.size());
  const auto rr = [&](std::size_t k) {
    const std::int64_t d = peaks[k + 1] - peaks[k];
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(d, INT32_MIN, INT32_MAX));
  };
  double sum = 0.0;
  for (std::size_t k = 0; k + 1 < peaks.size(); ++k) sum += rr(k);
  const double mean = sum / static_cast<double>(n - 1);
  double squares = 0.0;
  for (std::size_t k = 0; k + 1 < peaks.size(); ++k) squares += std::pow(rr(k) - mean, 2.0);
  const double spread = std::sqrt(1.0 / static_cast<double>(n - 2) * squares);
  return spread > kelo::rules::kIrregularFraction * mean;
}

}  // namespace

int excerpt_grade(std::span<const double> x, std::span<const std::int64_t> peaks, double full_scale) {
  if (largest_magnitude(x) > full_scale * kelo::rules::kClipFraction) return KELO_EXCERPT_CLIPPED;
  return irregular(peaks) ? KELO_EXCERPT_IRREGULAR : KELO_EXCERPT_USABLE;
}

int window_grade(std::span<const double> x, std::span<const std::int64_t> peaks, double full_scale) {
  if (peaks.size() < 2) return KELO_WINDOW_TOO_FEW_BEATS;
  if (largest_magnitude(x) > full_scale * kelo::rules::kClipFraction) return KELO_WINDOW_CLIPPED;
  return irregular(peaks) ? KELO_WINDOW_IRREGULAR : KELO_WINDOW_USABLE;
}

}  // namespace keloecg
