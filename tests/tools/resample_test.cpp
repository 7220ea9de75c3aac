// Resampling to 200 Hz keeps timing and amplitude; sample numbers map
// between the two rates; excerpts obey the limits of the two runs.
#include "resample.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <numbers>

#include "analysis.hpp"
#include "errors.hpp"

namespace {

using namespace keloecg;

std::vector<double> pulse(double fs, double seconds, double centre_s) {
  std::vector<double> x(static_cast<std::size_t>(fs * seconds));
  for (std::size_t i = 0; i < x.size(); ++i) {
    const double z = (static_cast<double>(i) / fs - centre_s) / 0.012;
    x[i] = std::exp(-0.5 * z * z);
  }
  return x;
}

// Position of the maximum, refined by a parabola through its neighbours.
double peak_position(const std::vector<double>& y) {
  std::size_t k = 1;
  for (std::size_t i = 1; i + 1 < y.size(); ++i) k = y[i] > y[k] ? i : k;
  const double a = y[k - 1], b = y[k], c = y[k + 1];
  return static_cast<double>(k) + 0.5 * (a - c) / (a - 2 * b + c);
}

TEST(Resample, LengthTimingAndAmplitudeAtCommonRates) {
  for (double fs : {360.0, 250.0, 128.0, 500.0, 1000.0}) {
    const auto x = pulse(fs, 12.5, 7.3217);
    const auto y = resample(x, fs, 200.0);
    EXPECT_EQ(y.size(), static_cast<std::size_t>(std::ceil(static_cast<double>(x.size()) * 200.0 / fs - 1e-9))) << fs;
    // The pulse stays where it was: within a tenth of a 200 Hz sample.
    EXPECT_NEAR(peak_position(y), 7.3217 * 200.0, 0.1) << fs;
    double top = 0;
    for (double v : y) top = std::max(top, v);
    EXPECT_NEAR(top, 1.0, 0.03) << fs;
  }
  // 650000 samples at 360 Hz become 361112, as the reference conversion.
  EXPECT_EQ(resample(std::vector<double>(650000, 0.0), 360.0, 200.0).size(), 361112u);
}

TEST(Resample, SameRateIsExactAndSampleNumbersMapBothWays) {
  const std::vector<double> x = {0.1, 0.123456789012345, -7.0};
  EXPECT_EQ(resample(x, 200.0, 200.0), x);
  EXPECT_TRUE(resample({}, 360.0, 200.0).empty());
  // Record 100's first beats: 77, 370, 662 at 360 Hz are 43, 206, 368 at 200 Hz.
  const RateMap m{360.0};
  EXPECT_EQ((std::array{m.to_analysis(77), m.to_analysis(370), m.to_analysis(662)}), (std::array<std::int64_t, 3>{43, 206, 368}));
  EXPECT_EQ(m.to_original(43), 77);
  EXPECT_EQ(m.to_original(5), 9);
  EXPECT_EQ(RateMap{200.0}.to_original(12345), 12345);
  EXPECT_EQ(RateMap{250.0}.to_original(2), 3);  // 2.5 rounds up
}

Prepared seconds_at_200(double seconds) {
  Prepared p;
  p.recording.fs = 200.0;
  p.recording.path = "rec.f32";
  p.recording.samples.assign(static_cast<std::size_t>(seconds * 200.0), 0.0);
  p.samples = p.recording.samples;
  return p;
}

std::string excerpt_error(const Prepared& p, const AnalysisSettings& s, RunKind kind) {
  try {
    choose_excerpt(p, s, kind);
  } catch (const InputError& e) {
    return e.what();
  }
  return "no error";
}

TEST(Excerpt, StartDurationAndTheLimitsOfEachRun) {
  const auto p = seconds_at_200(900);  // 15 minutes
  AnalysisSettings s;
  const auto range = [&](RunKind kind) {
    const auto e = choose_excerpt(p, s, kind);
    return std::tuple(e.start, e.length, e.capped);
  };
  s.start_s = 30;
  EXPECT_EQ(range(RunKind::Qrs), std::tuple(6000, 174000, false));
  EXPECT_EQ(range(RunKind::Hrv), std::tuple(6000, 120000, true));  // at most 10 minutes
  s.duration_s = 180;
  EXPECT_EQ(range(RunKind::Hrv), std::tuple(6000, 36000, false));  // exactly 3 minutes is enough

  s.duration_s = 179.99;
  EXPECT_EQ(excerpt_error(p, s, RunKind::Hrv), "rec.f32: recording too short: 2:59.9 in the chosen excerpt, HRV needs at least 3 minutes");
  s.duration_s.reset();
  s.start_s = 900;
  EXPECT_EQ(excerpt_error(p, s, RunKind::Qrs), "rec.f32: --start 15:00.0 lies beyond the end of the recording (15:00.0)");
  const auto short_rec = seconds_at_200(14.995);
  EXPECT_EQ(excerpt_error(short_rec, {}, RunKind::Qrs), "rec.f32: recording too short: 0:14.9, R-peak detection needs at least 15 s");
  EXPECT_EQ(choose_excerpt(seconds_at_200(15), {}, RunKind::Qrs).length, 3000);
}

}  // namespace
