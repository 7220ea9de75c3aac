// The second pass over the detector's curves: beats the template pass left
// out, and a label for every beat. See labelled_beats.hpp for the outline.
#include "detect/labelled_beats.hpp"

#include <algorithm>
#include <cmath>
#include <deque>
#include <functional>
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
                samples_for(0.028, fs),
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
  double product;    // largest range product within +-qrs
};

class Signal {
 public:
  Signal(const Curves& c, const Widths& w)
      : c_(c), w_(w), n_(static_cast<int64_t>(c.ecg.size())), product_(range_products(c.ecg, w.range)) {}

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
    double product = 0.0;
    for (int64_t j = k - w_.qrs; j <= k + w_.qrs; ++j) product = std::max(product, range_product(j));
    return Shape{amplitude, steepest, widest > 0.0 ? total / widest : 0.0, product};
  }

  // The detector's range product at k: the slope range times the square
  // of the amplitude range, over +-range samples (clamped at the ends).
  double range_product(int64_t k) const { return product_[static_cast<std::size_t>(k)]; }

  // Best correlation of `pattern` (2 beat + 1 samples) with the ECG
  // around k, over shifts of up to +-maxShift samples; -1 when a window
  // does not fit.
  double best_correlation(std::span<const double> pattern, int64_t k, int64_t maxShift) const {
    double best = -1.0;
    if (k - maxShift - w_.beat < 0 || k + maxShift + w_.beat >= n_) return best;
    for (int64_t d = -maxShift; d <= maxShift; ++d)
      best = std::max(best, kern::corr(pattern, window(k + d, w_.beat)));
    return best;
  }

  // How alike the complexes at a and b are: their best correlation over
  // shifts of up to +-2 shift samples (the energy centres of two like
  // complexes may differ by more than the alignment with the average beat
  // allows).
  double similarity(int64_t a, int64_t b) const {
    if (a - w_.beat < 0 || a + w_.beat >= n_) return -1.0;
    return best_correlation(window(a, w_.beat), b, 2 * w_.shift);
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
  std::vector<double> product_;
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
    std::vector<double> amplitude, slope, width, product;
    for (std::size_t i = first; i < first + m; ++i) {
      amplitude.push_back(shapes_[i].amplitude);
      slope.push_back(shapes_[i].slope);
      width.push_back(shapes_[i].width);
      product.push_back(shapes_[i].product);
    }
    return Shape{median_of(amplitude), median_of(slope), median_of(width), median_of(product)};
  }

 private:
  std::size_t neighbours_;
  std::vector<int64_t> at_;
  std::vector<Shape> shapes_;
  std::vector<double> averageBeat_;
};

// Running RR: the median of the last eight intervals between two
// consecutive normal beats that end at or before a sample (the first
// eight when none does). `clean` (when given) decides which intervals
// count.
class RunningRR {
 public:
  template <class Clean>
  RunningRR(std::span<const Beat> beats, Clean clean) {
    for (std::size_t i = 1; i < beats.size(); ++i) {
      if (beats[i - 1].label != Label::Normal || beats[i].label != Label::Normal) continue;
      if (!clean(beats[i - 1].index, beats[i].index)) continue;
      ends_.push_back(beats[i].index);
      intervals_.push_back(static_cast<double>(beats[i].index - beats[i - 1].index));
    }
  }
  explicit RunningRR(std::span<const Beat> beats)
      : RunningRR(beats, [](int64_t, int64_t) { return true; }) {}

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

// A complex the second pass considers.
struct Candidate {
  int64_t at;
  double product;        // its range product
  std::size_t interval;  // index of the interval it lies in (this round)
};

class SecondPass {
 public:
  SecondPass(const Curves& curves, std::span<const int64_t> normal, const Tuning& t)
      : t_(t),
        s_(curves, widths_for(curves.fs, t)),
        ref_(s_, normal, static_cast<std::size_t>(t.neighbours)),
        set_(normal),
        normal_(normal.begin(), normal.end()),
        sinus_(set_.beats(), [this](int64_t p, int64_t q) { return quiet_between(p, q); }) {}

  // Rounds: the strongest acceptable complex of every open interval joins
  // the beats; the two intervals it leaves are searched in the next round.
  std::vector<Beat> run() {
    if (!ref_.usable()) return set_.beats();
    std::vector<Interval> open = all_intervals();
    for (int round = 0; round < kMaxRounds && !open.empty(); ++round) {
      std::vector<Candidate> found;
      for (std::size_t i = 0; i < open.size(); ++i) gather(open[i], i, found);
      std::stable_sort(found.begin(), found.end(), [](const Candidate& a, const Candidate& b) {
        return a.interval != b.interval ? a.interval < b.interval : a.product > b.product;
      });
      std::vector<std::optional<Candidate>> best(open.size());
      for (const Candidate& c : found)
        if (!best[c.interval] && acceptable(c)) best[c.interval] = c;
      open.clear();
      for (const auto& b : best) {
        if (!b) continue;
        const auto p = set_.before(b->at);
        const auto q = set_.after(b->at);
        set_.add(b->at);
        open.push_back(Interval{p, b->at});
        open.push_back(Interval{b->at, q});
      }
    }
    return labelled(set_.beats());
  }

 private:
  static constexpr int kMaxRounds = 32;

  // The stretch between two beats (none: the recording's end).
  struct Interval {
    std::optional<int64_t> from, to;
  };

  std::vector<Interval> all_intervals() const {
    std::vector<Interval> v;
    std::optional<int64_t> p;
    for (const Beat& b : set_.beats()) {
      v.push_back(Interval{p, b.index});
      p = b.index;
    }
    v.push_back(Interval{p, std::nullopt});
    return v;
  }

  // Every stretch of an interval, at least the refractory period away from
  // its beats, where the envelope exceeds the lowered threshold.
  void gather(const Interval& iv, std::size_t index, std::vector<Candidate>& out) const {
    const int64_t gapFrom = iv.from ? *iv.from + s_.widths().refractory : 0;
    const int64_t gapTo = iv.to ? *iv.to - s_.widths().refractory : s_.size() - 1;
    auto above = [&](int64_t k) { return s_.feature(k) > t_.searchThreshold * s_.threshold(k); };
    for (int64_t k = gapFrom; k <= gapTo; ++k) {
      if (!above(k)) continue;
      int64_t end = k;
      while (end + 1 <= gapTo && above(end + 1)) ++end;
      if (const auto c = s_.locate(k, end))
        out.push_back(Candidate{*c, s_.range_product(*c), index});
      k = end;
    }
  }

  // True when the envelope stays at or below the threshold between two
  // beats (away from them by the refractory period): no complex there was
  // turned down by the template pass. Only such intervals measure the
  // sinus rhythm; one holding a rejected ectopic beat would make a run of
  // them (bigeminy) look like the usual rhythm.
  bool quiet_between(int64_t p, int64_t q) const {
    for (int64_t k = p + s_.widths().refractory; k <= q - s_.widths().refractory; ++k)
      if (s_.feature(k) > s_.threshold(k)) return false;
    return true;
  }

  // True when k lies between two detector beats much farther apart than
  // the running RR, or has no detector beat on one side.
  bool in_gap(int64_t k) const {
    const auto q = std::upper_bound(normal_.begin(), normal_.end(), k);
    if (q == normal_.begin() || q == normal_.end()) return true;
    const int64_t p = *std::prev(q);
    return static_cast<double>(*q - p) > t_.gapRatio * sinus_.at(p);
  }

  // A complex in noise does not stand out: within from .. to, away from
  // it and from the beats already found (+-150 ms around each), a peak of
  // the range product comes near its own. Only peaks count (not the flank
  // of a complex just beyond the range), so a run of complexes more than
  // `surround` apart, such as a tachycardia, stands out while noise does
  // not.
  bool stands_out(int64_t k, double ratio, int64_t from, int64_t to) const {
    const Widths& w = s_.widths();
    const int64_t lo = std::max<int64_t>(1, from);
    const int64_t hi = std::min(s_.size() - 2, to);
    if (lo > hi) return true;
    const double level = ratio * s_.range_product(k);
    for (int64_t j = lo; j <= hi; ++j) {
      const double here = s_.range_product(j);
      if (!(here > s_.range_product(j - 1) && here >= s_.range_product(j + 1))) continue;
      if (!(here > level) || std::llabs(j - k) <= w.complex) continue;
      const auto prev = set_.before(j + 1);
      const auto next = set_.after(j - 1);
      if ((prev && j - *prev <= w.complex) || (next && *next - j <= w.complex)) continue;
      return false;
    }
    return true;
  }

  bool acceptable(const Candidate& c) const {
    const int64_t k = c.at;
    if (!s_.measurable(k)) return false;
    const Widths& w = s_.widths();
    const auto prev = set_.before(k);
    const auto next = set_.after(k);
    if (prev && k - *prev < w.refractory) return false;
    if (next && *next - k < w.refractory) return false;
    const Shape sh = s_.shape(k);
    const Shape usual = ref_.around(k);
    if (!(sh.amplitude >= t_.minAmplitude * usual.amplitude)) return false;
    if (!(sh.slope >= t_.minSlope * usual.slope)) return false;
    // Inside an interval of the usual length (between detector beats) a
    // beat must be as strong as the usual beat and the only thing standing
    // out in the interval: noise that mimics a complex is weaker, or not
    // alone.
    if (!in_gap(k)) {
      if (!(sh.product >= t_.strictProduct * usual.product)) return false;
      if (!stands_out(k, t_.strictStandOut, prev ? *prev : k - w.surround, next ? *next : k + w.surround))
        return false;
    } else if (!stands_out(k, t_.standOut, k - w.surround, k + w.surround)) {
      return false;
    }
    if (!prev) return true;
    // Where the T wave of the previous beat lies, only a steep, large
    // complex or one shaped like a beat next to it (a run of ectopic
    // beats) counts: a T wave is neither.
    const double interval = sinus_.at(*prev);
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
      const double width = s_.shape(b.index).width;
      if (width > t_.wideRatio * ref_.around(b.index).width ||
          s_.best_correlation(ref_.average_beat(), b.index, s_.widths().shift) < t_.unlikeCorrelation) {
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
  std::vector<int64_t> normal_;
  RunningRR sinus_;  // over the quiet intervals between detector beats
};

}  // namespace

namespace {

// The largest (or smallest, by `better`) of the values pushed so far
// whose index is at least a given one: a monotonic queue of indices.
template <class Better>
class SlidingExtremes {
 public:
  SlidingExtremes(std::span<const double> v, Better better) : v_(v), better_(better) {}
  void push(int64_t i) {
    while (!q_.empty() && !better_(v_[static_cast<std::size_t>(q_.back())], v_[static_cast<std::size_t>(i)])) q_.pop_back();
    q_.push_back(i);
  }
  double front(int64_t from) {
    while (q_.front() < from) q_.pop_front();
    return v_[static_cast<std::size_t>(q_.front())];
  }

 private:
  std::span<const double> v_;
  Better better_;
  std::deque<int64_t> q_;
};

}  // namespace

// Samples 1 .. n - 2, where the central difference exists, limit every
// window: k - half .. k + half, clamped to them. Samples whose clamped
// window is empty keep 0.
std::vector<double> range_products(std::span<const double> x, int64_t half) {
  const auto n = static_cast<int64_t>(x.size());
  std::vector<double> out(x.size(), 0.0);
  if (n < 3) return out;
  std::vector<double> d(x.size(), 0.0);
  for (int64_t k = 1; k + 1 < n; ++k)
    d[static_cast<std::size_t>(k)] = x[static_cast<std::size_t>(k + 1)] - x[static_cast<std::size_t>(k - 1)];
  const std::span<const double> ds = d;
  SlidingExtremes xmax(x, std::greater<>());
  SlidingExtremes xmin(x, std::less<>());
  SlidingExtremes dmax(ds, std::greater<>());
  SlidingExtremes dmin(ds, std::less<>());
  int64_t hi = 0;  // samples below hi have entered the windows
  for (int64_t k = 0; k < n; ++k) {
    const int64_t lo = std::max<int64_t>(1, k - half);
    const int64_t top = std::min(n - 2, k + half);
    if (lo > top) continue;
    for (hi = std::max(hi, lo); hi <= top; ++hi) xmax.push(hi), xmin.push(hi), dmax.push(hi), dmin.push(hi);
    const double a = xmax.front(lo) - xmin.front(lo);
    out[static_cast<std::size_t>(k)] = (dmax.front(lo) - dmin.front(lo)) * a * a;
  }
  return out;
}

std::vector<double> range_products_plain(std::span<const double> x, int64_t half) {
  const auto n = static_cast<int64_t>(x.size());
  std::vector<double> out(x.size(), 0.0);
  auto at = [&](int64_t k) { return x[static_cast<std::size_t>(k)]; };
  auto slope = [&](int64_t k) { return at(k + 1) - at(k - 1); };
  for (int64_t k = 0; k < n; ++k) {
    const int64_t lo = std::max<int64_t>(1, k - half);
    const int64_t hi = std::min(n - 2, k + half);
    if (lo > hi) continue;
    double xmin = at(lo), xmax = at(lo), smin = slope(lo), smax = smin;
    for (int64_t j = lo; j <= hi; ++j) {
      xmin = std::min(xmin, at(j));
      xmax = std::max(xmax, at(j));
      smin = std::min(smin, slope(j));
      smax = std::max(smax, slope(j));
    }
    out[static_cast<std::size_t>(k)] = (smax - smin) * (xmax - xmin) * (xmax - xmin);
  }
  return out;
}

std::vector<int64_t> detector_beats(std::span<const double> rpeaks) {
  std::vector<double> positive;
  // Positions are finite; the test keeps an impossible infinite entry
  // from reaching the conversion below.
  for (double v : rpeaks)
    if (v > 0.0 && std::isfinite(v)) positive.push_back(v);
  std::vector<int64_t> out;
  for (double v : kern::unique(positive)) out.push_back(static_cast<int64_t>(v) - 1);
  return out;
}

std::vector<Beat> second_pass(const Curves& curves, std::span<const int64_t> normal,
                              const Tuning& tuning) {
  return SecondPass(curves, normal, tuning).run();
}

std::vector<Beat> labelled_beats(std::span<const double> samples, double fs, const Tuning& tuning) {
  std::vector<double> ecg(samples.begin(), samples.end());
  const detect::Detection d = detect::analyze(ecg, fs);
  const std::vector<int64_t> normal = detector_beats(d.rpeaks);
  if (d.feature.size() != ecg.size() || d.threshold.size() != ecg.size()) return {};
  return second_pass(Curves{ecg, d.feature, d.threshold, fs}, normal, tuning);
}

}  // namespace kelo::beats
