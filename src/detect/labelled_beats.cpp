// The second pass over the detector's curves: beats the template pass left
// out, and a label for every beat. See labelled_beats.hpp for the outline.
#include "detect/labelled_beats.hpp"

#include <algorithm>
#include <cmath>
#include <optional>

#include "detect/detector.hpp"
#include "runtime/kernels.hpp"

namespace kelo::beats {

namespace {

// Half-widths in samples at the recording's rate (at least one sample).
struct Widths {
  int64_t qrs;       // +-50 ms: amplitude and steepness of a complex
  int64_t shape;     // +-100 ms: width of a complex
  int64_t beat;      // +-80 ms: the average beat (the detector's template width)
  int64_t shift;     // +-30 ms: alignment with the average beat
  int64_t range;     // +-28 ms: the detector's range product
  int64_t cover;     // a region holds a beat within this of its ends
  int64_t refractory;
  int64_t tWaveZone;
  int64_t surround;
  int64_t complex;   // +-150 ms: all of a wide complex, as the range product sees it
};

int64_t samples_for(double seconds, double fs) {
  return std::max<int64_t>(1, static_cast<int64_t>(std::floor(seconds * fs)));
}

Widths widths_for(double fs, const Tuning& t) {
  return Widths{samples_for(0.05, fs),         samples_for(0.1, fs),
                samples_for(0.08, fs),         samples_for(0.03, fs),
                samples_for(0.028, fs),        samples_for(t.coverMargin, fs),
                samples_for(t.refractory, fs), samples_for(t.tWaveZone, fs),
                samples_for(t.surround, fs),   samples_for(0.15, fs)};
}

double median_of(std::vector<double> v) {
  return v.empty() ? std::nan("") : kern::median(v);
}

// The shape of the complex around a sample.
struct Shape {
  double amplitude;  // peak-to-peak within +-qrs
  double slope;      // largest |x(k+1) - x(k-1)| within +-qrs
  double width;      // sum of |x(k+1) - x(k-1)| within +-shape over the largest one
};

class Signal {
 public:
  Signal(const Curves& c, const Widths& w) : c_(c), w_(w), n_(static_cast<int64_t>(c.ecg.size())) {}

  int64_t size() const { return n_; }
  const Widths& widths() const { return w_; }
  double x(int64_t k) const { return c_.ecg[static_cast<std::size_t>(k)]; }
  double feature(int64_t k) const { return c_.feature[static_cast<std::size_t>(k)]; }
  double threshold(int64_t k) const { return c_.threshold[static_cast<std::size_t>(k)]; }
  double fs() const { return c_.fs; }

  // True when every measure of a complex at k reads inside the recording.
  bool measurable(int64_t k) const {
    const int64_t reach = std::max({w_.shape, w_.beat + 2 * w_.shift, w_.qrs}) + 1;
    return k - reach >= 0 && k + reach < n_;
  }

  std::span<const double> window(int64_t k, int64_t h) const {
    return c_.ecg.subspan(static_cast<std::size_t>(k - h), static_cast<std::size_t>(2 * h + 1));
  }

  double central_difference(int64_t k) const { return x(k + 1) - x(k - 1); }

  Shape shape(int64_t k) const {
    const auto around = window(k, w_.qrs);
    const double amplitude = kern::max_value(around) - kern::min_value(around);
    double steepest = 0.0;
    for (int64_t j = k - w_.qrs; j <= k + w_.qrs; ++j)
      steepest = std::max(steepest, std::fabs(central_difference(j)));
    double total = 0.0, widest = 0.0;
    for (int64_t j = k - w_.shape; j <= k + w_.shape; ++j) {
      const double d = std::fabs(central_difference(j));
      total += d;
      widest = std::max(widest, d);
    }
    return Shape{amplitude, steepest, widest > 0.0 ? total / widest : 0.0};
  }

  // The detector's range product (slope range times the square of the
  // amplitude range, half-width `range`), clamped at the ends.
  double range_product(int64_t k) const {
    const int64_t lo = std::max<int64_t>(1, k - w_.range);
    const int64_t hi = std::min(n_ - 2, k + w_.range);
    if (lo > hi) return 0.0;
    double xmin = x(lo), xmax = x(lo), smin = central_difference(lo), smax = smin;
    for (int64_t j = lo; j <= hi; ++j) {
      xmin = std::min(xmin, x(j));
      xmax = std::max(xmax, x(j));
      smin = std::min(smin, central_difference(j));
      smax = std::max(smax, central_difference(j));
    }
    return (smax - smin) * (xmax - xmin) * (xmax - xmin);
  }

  // Best correlation of the complexes at a and b, over shifts of b by up
  // to +-2 shift samples (the energy centres of two like complexes may
  // differ by more than the alignment with the average beat allows).
  double similarity(int64_t a, int64_t b) const {
    double best = -1.0;
    if (!measurable(a) || !measurable(b)) return best;
    for (int64_t d = -2 * w_.shift; d <= 2 * w_.shift; ++d)
      best = std::max(best, kern::corr(window(a, w_.beat), window(b + d, w_.beat)));
    return best;
  }

  // Where a complex inside start .. end sits: its largest range product,
  // the centre of its energy. (The largest deflection would be a less
  // steady mark: on a biphasic complex it jumps between the two peaks.)
  std::optional<int64_t> locate(int64_t start, int64_t end) const {
    start = std::max<int64_t>(start, 0);
    end = std::min(end, n_ - 1);
    if (start > end) return std::nullopt;
    int64_t best = start;
    double bestProduct = -1.0;
    for (int64_t k = start; k <= end; ++k) {
      const double p = range_product(k);
      if (p > bestProduct) bestProduct = p, best = k;
    }
    if (!measurable(best)) return std::nullopt;
    return best;
  }

 private:
  const Curves& c_;
  Widths w_;
  int64_t n_;
};

// What the detector's beats look like: the shape of each, and their
// column-wise median beat.
class Reference {
 public:
  Reference(const Signal& s, std::span<const int64_t> normal, std::size_t neighbours)
      : neighbours_(neighbours) {
    std::vector<std::vector<double>> rows;
    const int64_t hw = s.widths().beat;
    for (int64_t k : normal) {
      if (!s.measurable(k)) continue;
      at_.push_back(k);
      shapes_.push_back(s.shape(k));
      const auto w = s.window(k, hw);
      const double m = kern::mean(w);
      std::vector<double> row(w.size());
      std::transform(w.begin(), w.end(), row.begin(), [m](double v) { return v - m; });
      rows.push_back(std::move(row));
    }
    if (rows.size() < 3) return;
    averageBeat_.resize(static_cast<std::size_t>(2 * hw + 1));
    std::vector<double> column(rows.size());
    for (std::size_t j = 0; j < averageBeat_.size(); ++j) {
      for (std::size_t i = 0; i < rows.size(); ++i) column[i] = rows[i][j];
      averageBeat_[j] = kern::median(column);
    }
  }

  bool usable() const { return !averageBeat_.empty(); }
  std::span<const double> average_beat() const { return averageBeat_; }

  // Medians of the shape measures of the `neighbours` detector beats
  // nearest to k (half before, half after where there are enough).
  Shape around(int64_t k) const {
    const std::size_t n = at_.size();
    const std::size_t m = std::min(neighbours_, n);
    const auto pos = static_cast<std::size_t>(std::lower_bound(at_.begin(), at_.end(), k) - at_.begin());
    std::size_t first = pos > m / 2 ? pos - m / 2 : 0;
    if (first + m > n) first = n - m;
    std::vector<double> amplitude, slope, width;
    for (std::size_t i = first; i < first + m; ++i) {
      amplitude.push_back(shapes_[i].amplitude);
      slope.push_back(shapes_[i].slope);
      width.push_back(shapes_[i].width);
    }
    return Shape{median_of(amplitude), median_of(slope), median_of(width)};
  }

 private:
  std::size_t neighbours_;
  std::vector<int64_t> at_;
  std::vector<Shape> shapes_;
  std::vector<double> averageBeat_;
};

// Best correlation of the average beat with the ECG around k, over shifts
// of up to +-shift samples.
double likeness(const Signal& s, const Reference& r, int64_t k) {
  const Widths& w = s.widths();
  double best = -1.0;
  for (int64_t d = -w.shift; d <= w.shift; ++d) {
    const double c = kern::corr(r.average_beat(), s.window(k + d, w.beat));
    if (c > best) best = c;
  }
  return best;
}

// Running RR: the median of the last eight intervals between two
// consecutive normal beats that end at or before a sample (the first
// eight when none does).
class RunningRR {
 public:
  explicit RunningRR(std::span<const Beat> beats) {
    for (std::size_t i = 1; i < beats.size(); ++i) {
      if (beats[i - 1].label != Label::Normal || beats[i].label != Label::Normal) continue;
      ends_.push_back(beats[i].index);
      intervals_.push_back(static_cast<double>(beats[i].index - beats[i - 1].index));
    }
  }

  // NaN when there is no interval between two normal beats.
  double at(int64_t k) const {
    if (intervals_.empty()) return std::nan("");
    const auto upto = static_cast<std::size_t>(
        std::upper_bound(ends_.begin(), ends_.end(), k) - ends_.begin());
    const std::size_t last = std::max<std::size_t>(upto, std::min<std::size_t>(kCount, ends_.size()));
    const std::size_t first = last > kCount ? last - kCount : 0;
    return median_of({intervals_.begin() + static_cast<std::ptrdiff_t>(first),
                      intervals_.begin() + static_cast<std::ptrdiff_t>(last)});
  }

 private:
  static constexpr std::size_t kCount = 8;
  std::vector<int64_t> ends_;
  std::vector<double> intervals_;
};

// The beats found so far, ascending.
class BeatSet {
 public:
  explicit BeatSet(std::span<const int64_t> normal) {
    beats_.reserve(normal.size());
    for (int64_t k : normal) beats_.push_back(Beat{k, Label::Normal});
  }

  const std::vector<Beat>& beats() const { return beats_; }

  // The nearest beats before and after k (none: nullopt).
  std::optional<int64_t> before(int64_t k) const {
    auto it = lower(k);
    if (it == beats_.begin()) return std::nullopt;
    return std::prev(it)->index;
  }
  std::optional<int64_t> after(int64_t k) const {
    auto it = std::upper_bound(beats_.begin(), beats_.end(), k,
                               [](int64_t v, const Beat& b) { return v < b.index; });
    if (it == beats_.end()) return std::nullopt;
    return it->index;
  }
  bool any_within(int64_t lo, int64_t hi) const {
    auto it = lower(lo);
    return it != beats_.end() && it->index <= hi;
  }

  void add(int64_t k) { beats_.insert(lower(k), Beat{k, Label::Unknown}); }

 private:
  std::vector<Beat>::const_iterator lower(int64_t k) const {
    return std::lower_bound(beats_.begin(), beats_.end(), k,
                            [](const Beat& b, int64_t v) { return b.index < v; });
  }
  std::vector<Beat> beats_;
};

enum class Checks { Plain, Strict };

class SecondPass {
 public:
  SecondPass(const Curves& curves, std::span<const int64_t> normal, const Tuning& t)
      : t_(t), s_(curves, widths_for(curves.fs, t)), ref_(s_, normal, static_cast<std::size_t>(t.neighbours)), set_(normal) {}

  std::vector<Beat> run(std::span<const Region> regions) {
    if (!ref_.usable()) return set_.beats();
    rejected_regions(regions);
    search_intervals();
    return labelled(set_.beats());
  }

 private:
  // Regions without a beat: the correlation pass turned them down.
  void rejected_regions(std::span<const Region> regions) {
    const RunningRR rr(set_.beats());
    const int64_t m = s_.widths().cover;
    // The detector lengthens a region shorter than 0.2 s to that length.
    const auto shortest = static_cast<int64_t>(std::floor(0.2 * s_.fs()));
    for (const Region& r : regions) {
      if (set_.any_within(r.start - m, std::max(r.end, r.start + shortest) + m)) continue;
      if (const auto k = s_.locate(r.start, r.end); k && acceptable(*k, rr, Checks::Plain)) set_.add(*k);
    }
  }

  // Every interval is searched again at a lower threshold: an interval
  // much longer than the running RR with the plain checks, any other one
  // with stricter ones (a beat missed there hides in a rhythm such as
  // bigeminy, which the running RR cannot reveal). Each beat added splits
  // its interval, which is searched again.
  void search_intervals() {
    const RunningRR rr(set_.beats());
    std::size_t i = 1;
    while (i < set_.beats().size()) {
      const int64_t p = set_.beats()[i - 1].index;
      const int64_t q = set_.beats()[i].index;
      const bool gap = static_cast<double>(q - p) > t_.gapRatio * rr.at(p);
      if (!search_interval(p, q, gap ? Checks::Plain : Checks::Strict, rr)) ++i;
    }
  }

  // Adds the strongest acceptable complex between p and q; false if none.
  bool search_interval(int64_t p, int64_t q, Checks checks, const RunningRR& rr) {
    const int64_t lo = p + s_.widths().refractory;
    const int64_t hi = q - s_.widths().refractory;
    std::optional<int64_t> best;
    double bestProduct = 0.0;
    int64_t k = lo;
    while (k <= hi) {
      if (!(s_.feature(k) > t_.gapThreshold * s_.threshold(k))) {
        ++k;
        continue;
      }
      int64_t end = k;
      while (end + 1 <= hi && s_.feature(end + 1) > t_.gapThreshold * s_.threshold(end + 1)) ++end;
      if (const auto c = s_.locate(k, end); c && acceptable(*c, rr, checks)) {
        const double product = s_.range_product(*c);
        if (!best || product > bestProduct) best = c, bestProduct = product;
      }
      k = end + 1;
    }
    if (!best) return false;
    set_.add(*best);
    return true;
  }

  // A complex in noise does not stand out: within +-surround of it, away
  // from it and from the beats already found (+-150 ms around each), a
  // peak of the range product comes near its own. Only peaks count (not
  // the flank of a complex just beyond the surround), so a run of
  // complexes more than `surround` apart, such as a tachycardia, stands
  // out while noise does not.
  bool stands_out(int64_t k, double ratio) const {
    const Widths& w = s_.widths();
    const int64_t lo = std::max<int64_t>(1, k - w.surround);
    const int64_t hi = std::min(s_.size() - 2, k + w.surround);
    if (lo > hi) return true;
    std::vector<double> product;
    for (int64_t j = lo - 1; j <= hi + 1; ++j) product.push_back(s_.range_product(j));
    const double own = s_.range_product(k);
    for (int64_t j = lo; j <= hi; ++j) {
      const auto at = static_cast<std::size_t>(j - lo + 1);
      if (!(product[at] > product[at - 1] && product[at] >= product[at + 1])) continue;
      if (!(product[at] > ratio * own) || std::llabs(j - k) <= w.complex) continue;
      const auto prev = set_.before(j + 1);
      const auto next = set_.after(j - 1);
      if ((prev && j - *prev <= w.complex) || (next && *next - j <= w.complex)) continue;
      return false;
    }
    return true;
  }

  bool acceptable(int64_t k, const RunningRR& rr, Checks checks) const {
    if (!s_.measurable(k)) return false;
    const Widths& w = s_.widths();
    const auto prev = set_.before(k + 1);
    const auto next = set_.after(k - 1);
    if (prev && k - *prev < w.refractory) return false;
    if (next && *next - k < w.refractory) return false;
    const Shape sh = s_.shape(k);
    const bool strict = checks == Checks::Strict;
    if (!stands_out(k, strict ? t_.strictStandOut : t_.standOut)) return false;
    const Shape usual = ref_.around(k);
    if (!(sh.amplitude >= (strict ? t_.strictAmplitude : t_.minAmplitude) * usual.amplitude)) return false;
    if (!(sh.slope >= (strict ? t_.strictSlope : t_.minSlope) * usual.slope)) return false;
    if (!prev) return true;
    // Where the T wave of the previous beat lies, only a steep, large
    // complex or one shaped like a beat next to it (a run of ectopic
    // beats) counts: a T wave is neither.
    const double interval = rr.at(*prev);
    double zone = static_cast<double>(w.tWaveZone);
    if (interval == interval) zone = std::min(zone, t_.tWaveZoneRR * interval);
    if (!(static_cast<double>(k - *prev) < zone)) return true;
    if (sh.slope >= t_.tWaveSlope * usual.slope && sh.amplitude >= t_.tWaveAmplitude * usual.amplitude)
      return true;
    if (s_.similarity(*prev, k) >= t_.runSimilarity) return true;
    return next && s_.similarity(*next, k) >= t_.runSimilarity;
  }

  std::vector<Beat> labelled(std::vector<Beat> beats) const {
    const RunningRR rr(beats);
    for (std::size_t i = 0; i < beats.size(); ++i) {
      Beat& b = beats[i];
      if (b.label == Label::Normal) continue;
      const Shape sh = s_.shape(b.index);
      const Shape u = ref_.around(b.index);
      b.width = sh.width / u.width;
      b.amplitude = sh.amplitude / u.amplitude;
      b.slope = sh.slope / u.slope;
      b.likeness = likeness(s_, ref_, b.index);
      if (i > 0) b.rr = static_cast<double>(b.index - beats[i - 1].index) / rr.at(beats[i - 1].index);
      if (sh.width > t_.wideRatio * u.width || b.likeness < t_.unlikeCorrelation) {
        b.label = Label::Wide;
      } else if (i > 0 && static_cast<double>(b.index - beats[i - 1].index) <
                              t_.prematureRatio * rr.at(beats[i - 1].index)) {
        b.label = Label::Premature;
      }
    }
    return beats;
  }

  const Tuning& t_;
  Signal s_;
  Reference ref_;
  BeatSet set_;
};

}  // namespace

std::vector<int64_t> detector_beats(std::span<const double> rpeaks) {
  std::vector<double> positive;
  for (double v : rpeaks)
    if (v > 0.0) positive.push_back(v);
  std::vector<int64_t> out;
  for (double v : kern::unique(positive)) out.push_back(static_cast<int64_t>(v) - 1);
  return out;
}

std::vector<Region> candidate_regions(std::span<const double> feature,
                                      std::span<const double> threshold) {
  const auto n = static_cast<int64_t>(std::min(feature.size(), threshold.size()));
  std::vector<Region> regions;
  auto above = [&](int64_t k) {
    return feature[static_cast<std::size_t>(k)] > threshold[static_cast<std::size_t>(k)];
  };
  int64_t k = 0;
  while (k < n) {
    if (!above(k)) {
      ++k;
      continue;
    }
    // The detector's start is the last sample at or below the threshold.
    const int64_t start = k > 0 ? k - 1 : 0;
    while (k + 1 < n && above(k + 1)) ++k;
    regions.push_back(Region{start, k});
    ++k;
  }
  return regions;
}

std::vector<Beat> second_pass(const Curves& curves, std::span<const int64_t> normal,
                              const Tuning& tuning) {
  const std::vector<Region> regions = candidate_regions(curves.feature, curves.threshold);
  return SecondPass(curves, normal, tuning).run(regions);
}

std::vector<Beat> labelled_beats(std::span<const double> samples, double fs, const Tuning& tuning) {
  std::vector<double> ecg(samples.begin(), samples.end());
  const detect::Detection d = detect::analyze(ecg, fs);
  const std::vector<int64_t> normal = detector_beats(d.rpeaks);
  if (d.feature.size() != ecg.size() || d.threshold.size() != ecg.size()) return {};
  return second_pass(Curves{ecg, d.feature, d.threshold, fs}, normal, tuning);
}

}  // namespace kelo::beats
