#include "beats.hpp"

#include <cmath>
#include <memory>
#include <new>

#include "keloecgsolver/keloecgsolver.h"

namespace keloecg {

namespace {

struct IntDeleter {
  void operator()(emxArray_int32_T* a) const { emxDestroyArray_int32_T(a); }
};
struct RealDeleter {
  void operator()(emxArray_real_T* a) const { emxDestroyArray_real_T(a); }
};

constexpr std::int32_t kFs = 200;

}  // namespace

std::optional<BeatsMode> parse_beats_mode(std::string_view text) {
  if (text == "all") return BeatsMode::All;
  if (text == "normal") return BeatsMode::Normal;
  return std::nullopt;
}

const char* beats_mode_name(BeatsMode mode) { return mode == BeatsMode::All ? "all" : "normal"; }

std::string label_name(int label) {
  const char* name = kelo_beatLabelName(label);
  return name ? name : "label " + std::to_string(label);
}

LabelledBeats detect_labelled(std::span<const double> excerpt, std::int64_t start) {
  std::vector<double> copy(excerpt.begin(), excerpt.end());  // the wrapper wants a mutable buffer
  const std::unique_ptr<emxArray_real_T, RealDeleter> ecg(
      emxCreateWrapper_real_T(copy.data(), static_cast<std::int32_t>(copy.size()), 1));
  const std::unique_ptr<emxArray_int32_T, IntDeleter> positions(emxCreate_int32_T(0, 1));
  const std::unique_ptr<emxArray_int32_T, IntDeleter> labels(emxCreate_int32_T(0, 1));
  // A NULL record here is an allocation that failed, as is the result code.
  if (!ecg || !positions || !labels) throw std::bad_alloc();
  if (kelo_detectBeats(ecg.get(), kFs, positions.get(), labels.get()) == KELO_BEATS_NO_MEMORY) throw std::bad_alloc();
  LabelledBeats out;
  for (std::int32_t i = 0; i < positions->size[0]; ++i) {
    out.samples.push_back(static_cast<std::int64_t>(positions->data[i]) - 1 + start);
    out.labels.push_back(labels->data[i]);
  }
  return out;
}

NnSeries nn_series(std::span<const std::int64_t> samples, std::span<const int> labels) {
  NnSeries s;
  if (samples.size() < 2 || labels.size() != samples.size()) return s;
  const std::size_t n = samples.size() - 1;
  s.intervals = n;
  // calcRR takes 32-bit positions: count them from the first beat.
  std::vector<std::int32_t> positions;
  for (auto p : samples) positions.push_back(static_cast<std::int32_t>(p - samples.front()));
  s.t.resize(n);
  s.rr.resize(n);
  s.annotations.resize(n);
  calcRR(positions.data(), static_cast<std::int32_t>(n), kFs, s.annotations.data(), s.t.data(), s.rr.data());
  for (std::size_t i = 0; i < n; ++i) {
    const bool from = labels[i] == kNormalBeat, to = labels[i + 1] == kNormalBeat;
    s.annotations[i] = to ? 'N' : 'X';
    if (from && to) {
      s.nn_t.push_back(s.t[i]);
      s.nn_rr.push_back(s.rr[i]);
    } else {
      ++s.excluded;
    }
  }
  return s;
}

NnHrv hrv_over_nn(const NnSeries& s) {
  NnHrv h;
  std::int32_t status = 0;
  calcHrvTime(s.t.data(), s.rr.data(), s.annotations.data(), static_cast<std::int32_t>(s.intervals), h.time.data(),
              &status);
  if (status == KELO_HRV_STATUS_NO_MEMORY) throw std::bad_alloc();
  // As calcHrv: no spectrum from fewer than three intervals.
  if (s.nn_rr.size() < 3) {
    status = 4;
  } else {
    calcHrvFreq(s.nn_t.data(), s.nn_rr.data(), static_cast<std::int32_t>(s.nn_rr.size()), h.freq.data(), &status);
    if (status == KELO_HRV_STATUS_NO_MEMORY) throw std::bad_alloc();
  }
  h.status = status;
  return h;
}

std::size_t beat_class(std::string_view symbol) {
  if (symbol == "N" || symbol == "L" || symbol == "R" || symbol == "e" || symbol == "j" || symbol == "B") return 0;
  if (symbol == "A" || symbol == "a" || symbol == "J" || symbol == "S" || symbol == "n") return 1;
  if (symbol == "V" || symbol == "E" || symbol == "r") return 2;
  if (symbol == "F") return 3;
  return 4;
}

double ClassCounts::sensitivity(std::size_t c) const {
  return references[c] == 0 ? std::nan("") : static_cast<double>(matched[c]) / static_cast<double>(references[c]);
}

ClassCounts& ClassCounts::operator+=(const ClassCounts& other) {
  for (std::size_t c = 0; c < references.size(); ++c) {
    references[c] += other.references[c];
    matched[c] += other.matched[c];
  }
  return *this;
}

ClassCounts class_counts(std::span<const std::string> symbols, const MatchResult& match) {
  ClassCounts counts;
  for (std::size_t i = 0; i < symbols.size() && i < match.reference_match.size(); ++i) {
    const std::size_t c = beat_class(symbols[i]);
    ++counts.references[c];
    if (match.reference_match[i] >= 0) ++counts.matched[c];
  }
  return counts;
}

}  // namespace keloecg
