// HRV driver, RR interval series and time-domain statistics.
#include <array>
#include <cmath>
#include <limits>
#include <memory>

#include "hrv/hrv_internal.hpp"
#include "keloecgsolver/hrv.h"
#include "runtime/boundary.hpp"
#include "runtime/numeric.hpp"

namespace kelo::hrv {
namespace {

constexpr int32_t kSegmentSeconds = 300;    // length of an SDANN segment
constexpr int32_t kMinSegmentSeconds = 60;  // shortest segment that makes sense
constexpr double kNN50Seconds = 0.05;       // pNN50 threshold
constexpr double kMargin = 1e-10;           // a difference must exceed the threshold by this
constexpr char kNormal = 'N';
constexpr char kUnknownBeat = 'X';
constexpr char kNoAnnotation = '\0';  // "no beat before the first one": anything but 'N'
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Work buffers of the statistics: per segment and per threshold. Each call
// has its own (about 58 KB, on the heap: too much for the stack of every
// thread a caller may use).
struct StatNNBuffers {
  std::array<double, kMaxSegments> ratbuf;  // NN / all intervals per closed segment, 0 = not closed
  std::array<double, kMaxSegments> avbuf;   // sum of NN, then mean
  std::array<double, kMaxSegments> sdbuf;   // sum of NN^2, then standard deviation
  std::array<double, 10> nndif;             // successive-difference thresholds (s)
  std::array<int32_t, 10> nnx;              // counts above each threshold
};

// Running state of one pass over the intervals.
struct Pass {
  int32_t nbeats = 0;  // intervals seen
  int32_t nn = 0;      // NN intervals
  double sum = 0.0;
  double sumsq = 0.0;
  int32_t nd = 0;  // successive NN differences
  double sumdiffsq = 0.0;
  double rrlast = 0.0;
  int32_t segment = 0;
  int32_t nbseg = 0;  // intervals in the open segment
  int32_t nnseg = 0;  // NN intervals in the open segment
  double tlimit = kSegmentSeconds + 0.0;  // end of the open segment
  char annlast2 = kUnknownBeat;
  char annlast = kNoAnnotation;
};

void reset(StatNNBuffers& b) {
  b.ratbuf.fill(0.0);
  b.avbuf.fill(0.0);
  b.sdbuf.fill(0.0);
  b.nnx.fill(0);
  b.nndif.fill(0.0);
  b.nndif[0] = kNN50Seconds;
  // A threshold above 1 is taken as milliseconds.
  if (b.nndif[0] > 1.0) b.nndif[0] /= 1000.0;
}

// Turns the sums of a segment into its NN ratio, mean and standard
// deviation; a segment with fewer than two NN intervals stays unclosed
// (ratbuf 0), so that the segment statistics leave it out.
void close_segment(StatNNBuffers& b, int32_t segment, int32_t nnseg, int32_t nbseg) {
  if (nnseg <= 1) return;
  if (nbseg == 0) nbseg = 1;
  const double nns = nnseg;
  b.ratbuf[segment] = nns / static_cast<double>(nbseg);
  b.sdbuf[segment] = std::sqrt((b.sdbuf[segment] - b.avbuf[segment] * b.avbuf[segment] / nns) / (nns - 1.0));
  b.avbuf[segment] = b.avbuf[segment] / nns;
}

// Moves to the next segment; false when the series outgrows the buffers.
// The segment bound (200 hours) is a precondition of the statistics: a
// longer series gets NaN for all seven results, and results within the
// bound are unaffected by the check.
bool next_segment(Pass& p) {
  if (p.segment + 1 >= kMaxSegments) return false;
  p.segment += 1;
  p.tlimit += kSegmentSeconds;
  return true;
}

// One interval: segment bookkeeping, then the sums. Whole empty segments
// are skipped without closing the open one; the segment that is then closed
// carries the open segment's counts over its own (empty) sums. That order is
// deliberate and is what makes a gap in the recording count as a segment of
// mean 0 and standard deviation 0.
bool add_interval(StatNNBuffers& b, Pass& p, double ti, double rri, char ai) {
  while (ti > p.tlimit + kSegmentSeconds) {
    if (!next_segment(p)) return false;
  }
  if (ti >= p.tlimit) {
    close_segment(b, p.segment, p.nnseg, p.nbseg);
    if (!next_segment(p)) return false;
    p.nnseg = 0;
    p.nbseg = 0;
  }
  p.nbseg += 1;
  p.nbeats += 1;
  if (ai == kNormal && p.annlast == kNormal) {
    p.nnseg += 1;
    p.nn += 1;
    b.avbuf[p.segment] += rri;
    p.sum += rri;
    b.sdbuf[p.segment] += rri * rri;
    p.sumsq += rri * rri;
    if (p.annlast2 == kNormal) {
      const double diff = rri - p.rrlast;
      p.nd += 1;
      p.sumdiffsq += diff * diff;
      if (std::fabs(diff) - b.nndif[0] > kMargin) b.nnx[0] += 1;
    }
  }
  p.annlast2 = p.annlast;
  p.annlast = ai;
  p.rrlast = rri;
  return true;
}

// SDANN and SDNN index over the closed segments 0..last.
void segment_statistics(const StatNNBuffers& b, int32_t last, double& sdann, double& sdnnidx) {
  double sum = 0.0, sumsq = 0.0, sdsum = 0.0;
  int32_t k = 0;
  for (int32_t s = 0; s <= last; ++s) {
    if (b.ratbuf[s] != 0.0) {  // NaN counts as not equal
      sum += b.avbuf[s];
      sumsq += b.avbuf[s] * b.avbuf[s];
      sdsum += b.sdbuf[s];
      ++k;
    }
  }
  const double kd = k;
  sdann = k >= 2 ? std::sqrt((sumsq - sum * sum / kd) / (kd - 1.0)) : -1.0;
  sdnnidx = k >= 1 ? sdsum / kd : -1.0;
}

}  // namespace

void interval_series(std::span<const int32_t> rpeaks, int32_t fs, std::span<char> ann,
                     std::span<double> t, std::span<double> rr) {
  if (rpeaks.size() < 2) return;
  const std::size_t n = rpeaks.size() - 1;
  const double fsd = fs;
  ann[0] = kNormal;
  t[0] = 0.0;
  rr[0] = static_cast<double>(sat_sub(rpeaks[1], rpeaks[0])) / fsd;
  for (std::size_t i = 1; i < n; ++i) {
    ann[i] = kNormal;
    rr[i] = static_cast<double>(sat_sub(rpeaks[i + 1], rpeaks[i])) / fsd;
    t[i] = t[i - 1] + (rr[i - 1] + rr[i]) / 2.0;
  }
}

bool stat_nn(std::span<const double> t, std::span<const double> rr, std::span<const char> ann,
             std::span<double, 7> results) {
  const auto buffers = std::make_unique<StatNNBuffers>();
  StatNNBuffers& b = *buffers;
  reset(b);
  // Segments shorter than a minute give no meaningful statistics; the fixed
  // length never is, and the guard returns without results rather than
  // ending the process.
  if (kSegmentSeconds < kMinSegmentSeconds) return false;

  Pass p;
  for (std::size_t i = 0; i < t.size(); ++i) {
    if (!add_interval(b, p, t[i], rr[i], ann[i])) {
      for (double& r : results) r = kNaN;
      return false;
    }
  }
  close_segment(b, p.segment, p.nnseg, p.nbseg);

  const double nn = p.nn;
  results[0] = static_cast<double>(p.nn) / static_cast<double>(p.nbeats == 0 ? 1 : p.nbeats);
  results[1] = p.sum / nn;
  results[2] = std::sqrt((p.sumsq - p.sum * p.sum / nn) / (nn - 1.0));
  segment_statistics(b, p.segment, results[3], results[4]);
  results[5] = std::sqrt(p.sumdiffsq / static_cast<double>(p.nd));
  results[6] = static_cast<double>(b.nnx[0]) / static_cast<double>(p.nd);
  return true;
}

}  // namespace kelo::hrv

namespace {

std::size_t count_of(int32_t n) { return n > 0 ? static_cast<std::size_t>(n) : 0; }

void fill_nan(std::span<double, 7> results) {
  for (double& r : results) r = std::numeric_limits<double>::quiet_NaN();
}

// calcStatNN over caller arrays of m elements; missing input arrays give
// NaN results.
void stat_nn_checked(const double* t, const double* rr, const char* annotations, std::size_t m,
                     std::span<double, 7> results) {
  if (m > 0 && (t == nullptr || rr == nullptr || annotations == nullptr)) {
    fill_nan(results);
    return;
  }
  kelo::hrv::stat_nn({t, m}, {rr, m}, {annotations, m}, results);
}

// The time-domain step of the driver: the statistics, SDANN "not formed"
// (-1) reported as 0, and status 0. SDNN index keeps its -1: the asymmetry
// is intended.
void hrv_time(const double* t, const double* rr, const char* annotations, std::size_t m,
              double* timeResults, int32_t* status) {
  std::span<double, 7> results(timeResults, 7);
  stat_nn_checked(t, rr, annotations, m, results);
  if (results[3] == -1.0) results[3] = 0.0;
  if (status != nullptr) *status = KELO_HRV_STATUS_OK;
}

}  // namespace

extern "C" {

KELO_API void calcRR(const int32_t* rpeaks, int32_t n, int32_t fs, char* annotations, double* t,
                     double* rr) {
  if (n < 1 || rpeaks == nullptr || annotations == nullptr || t == nullptr || rr == nullptr) return;
  const std::size_t m = count_of(n);
  kelo::hrv::interval_series({rpeaks, m + 1}, fs, {annotations, m}, {t, m}, {rr, m});
}

KELO_API void calcStatNN(const double* t, const double* rr, const char* annotations, int32_t n,
                         double* timeResults) {
  if (timeResults == nullptr) return;
  const std::span<double, 7> results(timeResults, 7);
  kelo::guarded([&] { stat_nn_checked(t, rr, annotations, count_of(n), results); },
                [&] { fill_nan(results); });
}

KELO_API void calcHrvTime(const double* t, const double* rr, const char* annotations, int32_t n,
                          double* timeResults, int32_t* status) {
  if (timeResults == nullptr) return;
  kelo::guarded([&] { hrv_time(t, rr, annotations, count_of(n), timeResults, status); },
                [&] {
                  fill_nan(std::span<double, 7>(timeResults, 7));
                  if (status != nullptr) *status = KELO_HRV_STATUS_NO_MEMORY;
                });
}

KELO_API void calcHrv(const int32_t* rpeaks, int32_t n, int32_t fs, double* timeResults,
                      double* freqResults, int32_t* status) {
  using kelo::hrv::CArray;
  if (rpeaks == nullptr || timeResults == nullptr || freqResults == nullptr || status == nullptr) return;
  // Each step writes its results only once it has all its memory: when memory
  // runs out the status is 8, the frequency-domain results are left as they
  // were and the time-domain ones are either complete or left as they were.
  kelo::guarded(
      [&] {
        const std::size_t m = count_of(n);
        const auto ann = CArray<char>::zeroed(m);
        const auto t = CArray<double>::zeroed(m);
        const auto rr = CArray<double>::zeroed(m);
        const auto ts = t.span();
        const auto rrs = rr.span();
        if (m > 0) kelo::hrv::interval_series({rpeaks, m + 1}, fs, ann.span(), ts, rrs);
        hrv_time(ts.data(), rrs.data(), ann.span().data(), m, timeResults, status);
        if (!kelo::hrv::hrv_freq(ts, rrs, std::span<double, 6>(freqResults, 6)))
          *status = KELO_HRV_STATUS_NO_SPECTRUM;
      },
      [&] { *status = KELO_HRV_STATUS_NO_MEMORY; });
}

}  // extern "C"
