// Resampling to 200 Hz keeps timing and amplitude; sample numbers map
// between the two rates; excerpts obey the limits of the two runs.
#include "resample.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <numbers>
#include <random>

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

// Output samples computed from a cut of the input (with the reach of the
// filter on both sides) are those of the whole recording, bit for bit, at
// rates in small-integer ratios and at others; so are those near the ends.
TEST(Resample, ACutGivesTheSameSamplesAsTheWhole) {
  std::mt19937 random(7);
  std::normal_distribution<double> noise;
  for (double fs : {360.0, 250.0, 128.0, 1000.0 / 3.0, 257.0, 173.123456789, 2048.0}) {
    SCOPED_TRACE(fs);
    std::vector<double> x(static_cast<std::size_t>(fs * 20.0));
    for (double& v : x) v = noise(random);
    const auto n = static_cast<std::int64_t>(x.size());
    const Resampler r(fs, 200.0);
    const auto whole = resample(x, fs, 200.0);
    ASSERT_EQ(static_cast<std::int64_t>(whole.size()), r.output_length(n));
    for (auto [a, b] : {std::pair<std::int64_t, std::int64_t>{0, 10}, {1234, 2500}, {3990, 4000}, {0, 4000}}) {
      b = std::min<std::int64_t>(b, static_cast<std::int64_t>(whole.size()));
      auto [lo, hi] = r.input_span(a, b);
      lo = std::clamp<std::int64_t>(lo, 0, n);
      hi = std::clamp<std::int64_t>(hi, 0, n);
      std::vector<double> out(static_cast<std::size_t>(b - a));
      r.run(std::span(x).subspan(static_cast<std::size_t>(lo), static_cast<std::size_t>(hi - lo)), lo, n, a, out);
      EXPECT_TRUE(std::equal(out.begin(), out.end(), whole.begin() + a)) << a << ".." << b;
      if (hi - lo > 1 && lo > 0) {  // one sample short of what is needed
        EXPECT_THROW(r.run(std::span(x).subspan(static_cast<std::size_t>(lo + 1), static_cast<std::size_t>(hi - lo - 1)),
                           lo + 1, n, a, out),
                     std::logic_error);
      }
    }
  }
}

// A 10 Hz sine passes unchanged; above the output's Nyquist frequency a
// sine is attenuated by 70 dB or more; a constant stays exactly constant
// apart from rounding.
TEST(Resample, PassBandAndStopBand) {
  const auto rms_after = [](double fs, double hz) {
    std::vector<double> x(static_cast<std::size_t>(fs * 10.0));
    for (std::size_t i = 0; i < x.size(); ++i) x[i] = std::sin(2.0 * std::numbers::pi * hz * static_cast<double>(i) / fs);
    const auto y = resample(x, fs, 200.0);
    double sum = 0;
    for (std::size_t i = 400; i + 400 < y.size(); ++i) sum += y[i] * y[i];
    return std::sqrt(sum / static_cast<double>(y.size() - 800));
  };
  for (double fs : {360.0, 500.0, 1000.0}) {
    EXPECT_NEAR(rms_after(fs, 10.0), std::sqrt(0.5), 1e-4) << fs;
    EXPECT_NEAR(rms_after(fs, 40.0), std::sqrt(0.5), 1e-3) << fs;
    EXPECT_LT(rms_after(fs, 120.0), std::sqrt(0.5) * 3.2e-4) << fs;
  }
  for (double v : resample(std::vector<double>(1000, -5.12), 360.0, 200.0)) ASSERT_NEAR(v, -5.12, 1e-12);
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
  Recording r;
  r.fs = 200.0;
  r.path = "rec.f32";
  r.samples.assign(static_cast<std::size_t>(seconds * 200.0), 0.0);
  r.total_samples = static_cast<std::int64_t>(r.samples.size());
  return prepare(std::move(r), {});
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
  EXPECT_EQ(range(RunKind::Hrv), std::tuple(6000, 174000, false));  // long-term: all of it
  s.short_hrv = true;
  EXPECT_EQ(range(RunKind::Hrv), std::tuple(6000, 120000, true));  // the bridge's: at most 10 minutes
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
