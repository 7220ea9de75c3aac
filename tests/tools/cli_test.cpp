// The real program on the bundled recording and on generated recordings of
// every format: beats where they belong (also after resampling), the
// outputs, batch runs equal to single runs, and every error a person meets.
#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "fixtures.hpp"
#include "run_program.hpp"
#include "support/synthetic_ecg.hpp"

namespace {

using kelo::test::keloecg;
using kelo::test::TempDir;
using nlohmann::json;
namespace fs = std::filesystem;

const fs::path kData = KELO_TOOLS_TEST_DATA;

// A synthetic ECG with beats every 0.78 to 0.90 s.
struct Synthetic {
  double fs;
  std::vector<double> mv;
  std::vector<double> beat_s;  // true R-peak times
};

Synthetic synthetic(double fs, double seconds, std::uint32_t seed = 11) {
  Synthetic s{fs, {}, {}};
  std::vector<kelo::test::Beat> beats;
  int k = 0;
  for (double t = 0.6; t < seconds - 0.6; t += 0.78 + 0.04 * (k++ % 4)) {
    const auto pos = std::llround(t * fs);
    beats.push_back({pos});
    s.beat_s.push_back(static_cast<double>(pos) / fs);
  }
  s.mv = kelo::test::synthetic_ecg(beats, static_cast<std::size_t>(seconds * fs),
                                   {.fs = fs, .noiseMv = 0.02, .seed = seed});
  return s;
}

// Every true beat has one detection within one 200 Hz sample, and the
// original-rate numbering agrees.
void expect_beats_at_true_times(const json& qrs, const Synthetic& s) {
  const auto at200 = qrs["r_peaks"]["sample_200hz"].get<std::vector<long>>();
  const auto original = qrs["r_peaks"]["sample_original"].get<std::vector<long>>();
  ASSERT_EQ(at200.size(), s.beat_s.size());
  for (std::size_t i = 0; i < at200.size(); ++i) {
    EXPECT_LE(std::abs(static_cast<double>(at200[i]) - s.beat_s[i] * 200.0), 1.0) << "beat " << i;
    EXPECT_LE(std::abs(static_cast<double>(original[i]) - s.beat_s[i] * s.fs), s.fs / 200.0 + 0.5) << "beat " << i;
  }
}

TEST(Program, BundledRecordingQrsAndHrv) {
  const auto qrs = keloecg({"qrs", "--json"});
  ASSERT_EQ(qrs.exit_code, 0) << qrs.err;
  const json q = qrs.json()["qrs"];
  EXPECT_EQ(q["status"], 0);
  EXPECT_EQ(q["excerpt_grade"], 1);
  EXPECT_NEAR(q["heart_rate_bpm"].get<double>(), 74, 3);
  EXPECT_EQ(q["window_grades"].size(), 30u);
  EXPECT_NEAR(q["r_peaks"]["count"].get<double>(), 371, 3);

  const auto hrv = keloecg({"hrv", "--json"});
  ASSERT_EQ(hrv.exit_code, 0) << hrv.err;
  const json h = hrv.json()["hrv"];
  EXPECT_EQ(h["status"], 0);
  EXPECT_EQ(h["r_peaks"], q["r_peaks"]["count"]);  // the same 5 minutes
  EXPECT_NEAR(h["time_domain"]["avnn"].get<double>(), 0.81, 0.02);
  EXPECT_EQ(h["time_domain"]["sdann"].get<double>(), 0.0);  // one 5-minute segment
  EXPECT_EQ(h["time_domain"]["sdnnidx"], h["time_domain"]["sdnn"]);
  const json& f = h["frequency_domain"];
  for (const char* k : {"tot_pwr", "ulf_pwr", "vlf_pwr", "lf_pwr", "hf_pwr", "lf_hf"}) EXPECT_TRUE(f[k].is_number()) << k;
  EXPECT_NEAR(f["lf_hf"].get<double>(), f["lf_pwr"].get<double>() / f["hf_pwr"].get<double>(), 1e-12);

  const auto text = keloecg({"hrv"});
  ASSERT_EQ(text.exit_code, 0);
  for (const char* k : {"Heart rate", "nn_rr", "pnn50", "tot_pwr", "lf_hf", "5:00.0"}) {
    EXPECT_NE(text.out.find(k), std::string::npos) << k;
  }
}

TEST(Program, BundledRecordingAgainstItsReferenceBeats) {
  const auto r = keloecg({"validate", "--json"});
  ASSERT_EQ(r.exit_code, 0) << r.err;
  const json v = r.json()["records"][0];
  EXPECT_EQ(v["reference_beats"], 371);
  EXPECT_GE(v["f1"].get<double>(), 0.99);
  EXPECT_EQ(v["tp"].get<int>() + v["fn"].get<int>(), 371);
}

TEST(Program, WfdbAt360HzWithAnnotations) {
  TempDir dir;
  const auto s = synthetic(360, 40);
  const auto adc = kelo::test::to_adc(s.mv, 200, 1024);
  kelo::test::write_wfdb(dir.path(), "syn", 212, 360, {adc, adc}, {"MLII", "V1"}, 200, 1024, 11);
  std::vector<std::pair<long, int>> anns = {{5, 28}};  // a rhythm annotation, not a beat
  for (double t : s.beat_s) anns.push_back({std::lround(t * 360), 1});
  kelo::test::write_mit_annotations(dir / "syn.atr", anns);

  const auto r = keloecg({"qrs", "--json", (dir / "syn").string()});
  ASSERT_EQ(r.exit_code, 0) << r.err;
  const json j = r.json();
  EXPECT_EQ(j["recording"]["format"], "WFDB 212");
  EXPECT_EQ(j["recording"]["samples_200hz"], 8000);
  EXPECT_DOUBLE_EQ(j["recording"]["full_scale"].get<double>(), 5.12);
  expect_beats_at_true_times(j["qrs"], s);

  const auto v = keloecg({"validate", "--json", (dir / "syn.hea").string()});  // finds syn.atr
  ASSERT_EQ(v.exit_code, 0) << v.err;
  const json c = v.json()["total"];
  EXPECT_EQ(c["reference_beats"], s.beat_s.size());
  EXPECT_EQ(c["fn"], 0);
  EXPECT_EQ(c["fp"], 0);
}

TEST(Program, EdfAt250HzIsResampled) {
  TempDir dir;
  const auto s = synthetic(250, 40, 12);
  std::vector<double> uv(s.mv.size());
  for (std::size_t i = 0; i < uv.size(); ++i) uv[i] = 1000.0 * s.mv[i];
  kelo::test::write_edf(dir / "syn.edf", false, 250, {std::vector<double>(uv.size(), 0.0), uv}, {"Pleth", "ECG"},
                        "uV", 8000.0);
  const auto r = keloecg({"qrs", "--json", "--lead", "ECG", (dir / "syn.edf").string()});
  ASSERT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(r.json()["recording"]["lead"]["index"], 1);
  expect_beats_at_true_times(r.json()["qrs"], s);
}

TEST(Program, CsvAndRawInput) {
  TempDir dir;
  const auto s200 = synthetic(200, 30, 13);
  kelo::test::write_csv(dir / "syn.csv", "seconds,ecg", s200.mv);
  auto r = keloecg({"qrs", "--json", "--fs", "200", "--lead", "ecg", (dir / "syn.csv").string()});
  ASSERT_EQ(r.exit_code, 0) << r.err;
  expect_beats_at_true_times(r.json()["qrs"], s200);

  const auto s360 = synthetic(360, 30, 14);
  kelo::test::write_f32(dir / "syn.f32", s360.mv);
  r = keloecg({"qrs", "--json", "--fs", "360", (dir / "syn.f32").string()});
  ASSERT_EQ(r.exit_code, 0) << r.err;
  expect_beats_at_true_times(r.json()["qrs"], s360);

  const auto s500 = synthetic(500, 30, 15);
  kelo::test::write_f64(dir / "syn.raw", s500.mv);
  r = keloecg({"qrs", "--csv", "--format", "f64", "--fs", "500", (dir / "syn.raw").string()});
  ASSERT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(r.out.substr(0, r.out.find('\n')), "beat,time_s,sample_200hz,sample_original");
  EXPECT_EQ(static_cast<std::size_t>(std::count(r.out.begin(), r.out.end(), '\n')), s500.beat_s.size() + 1);
}

TEST(Program, StartAndDurationChooseTheExcerpt) {
  TempDir dir;
  const auto s = synthetic(200, 60, 16);
  kelo::test::write_f32(dir / "syn.f32", s.mv);
  const auto r = keloecg({"qrs", "--json", "--fs", "200", "--start", "20", "--duration", "30", (dir / "syn.f32").string()});
  ASSERT_EQ(r.exit_code, 0) << r.err;
  const json q = r.json()["qrs"];
  EXPECT_EQ(q["excerpt"]["start_sample_200hz"], 4000);
  EXPECT_EQ(q["excerpt"]["samples_200hz"], 6000);
  EXPECT_EQ(q["window_grades"].size(), 3u);
  // Positions count from the start of the recording, not of the excerpt.
  std::size_t inside = 0;
  for (double t : s.beat_s) inside += t >= 20.1 && t < 49.9;
  const auto peaks = q["r_peaks"]["sample_200hz"].get<std::vector<long>>();
  ASSERT_GE(peaks.size(), inside);
  EXPECT_GE(peaks.front(), 4000);
  EXPECT_LT(peaks.back(), 10000);
}

// Each problem gives exit status 2 and one line on standard error that
// names the file, and writes no output file.
void expect_error(const std::vector<std::string>& args, const std::string& file, const std::string& problem,
                  const fs::path& output = {}) {
  const auto r = keloecg(args);
  EXPECT_EQ(r.exit_code, 2) << r.err;
  const auto lines = r.err_lines();
  ASSERT_EQ(lines.size(), 1u) << r.err;
  EXPECT_EQ(lines[0].rfind("keloecg: error: " + file, 0), 0u) << lines[0];
  EXPECT_NE(lines[0].find(problem), std::string::npos) << lines[0];
  EXPECT_TRUE(r.out.empty()) << r.out;
  if (!output.empty()) {
    EXPECT_FALSE(fs::exists(output)) << output;
  }
}

TEST(Program, ClearErrors) {
  TempDir dir;
  const std::string missing = (dir / "missing.edf").string();
  expect_error({"qrs", missing}, missing, ": no such file");
  expect_error({"hrv", dir.path().string()}, dir.path().string(), ": is a directory, not a file");

  const std::string unknown = (dir / "ecg.xyz").string();
  kelo::test::write_text(unknown, "1 2 3");
  expect_error({"qrs", unknown}, unknown, ": unknown format");

  const std::string wfdb = (kData / "mitdb100-10s.hea").string();
  expect_error({"qrs", "--lead", "3", wfdb}, wfdb, ": lead 3 does not exist (the recording has 2 leads: 0 MLII, 1 V5)");
  expect_error({"qrs", wfdb, "--start", "9"}, wfdb, ": recording too short: 0:01.0 in the chosen excerpt");

  const std::string nan_csv = (dir / "nan.csv").string();
  kelo::test::write_text(nan_csv, "0.1\n0.2\nNaN\n0.3\n");
  expect_error({"report", "--fs", "200", nan_csv, "-o", (dir / "r.html").string()}, nan_csv,
               ": line 3: the sample is not a number (NaN)", dir / "r.html");
  const std::string nan_f32 = (dir / "nan.f32").string();
  kelo::test::write_f32(nan_f32, {0.1, std::nan(""), 0.2});
  expect_error({"qrs", "--json", "--fs", "250", nan_f32, "-o", (dir / "q.json").string()}, nan_f32,
               ": sample 1 (at 0.004 s) is not a number (NaN)", dir / "q.json");
  expect_error({"qrs", nan_f32}, nan_f32, ": the sampling rate is not stored in this format: give it with --fs");

  // Long enough to detect beats, too short for HRV.
  const std::string minute = (dir / "minute.f32").string();
  kelo::test::write_f32(minute, synthetic(200, 60).mv);
  expect_error({"hrv", "--fs", "200", minute}, minute, ": recording too short: 1:00.0, HRV needs at least 3 minutes");
  expect_error({"qrs", "--fs", "60000", minute}, minute, ": a sampling rate of 60000 Hz cannot be brought to 200 Hz");
  // Options are checked too (CLI's own message, exit status 2).
  EXPECT_EQ(keloecg({"qrs", "--window", "zero"}).exit_code, 2);
  EXPECT_EQ(keloecg({"frobnicate"}).exit_code, 2);
}

TEST(Program, ValidateSeveralRecordsWithTotals) {
  TempDir dir;
  const auto a = synthetic(200, 30, 21), b = synthetic(200, 30, 22);
  kelo::test::write_f32(dir / "a.f32", a.mv);
  kelo::test::write_f32(dir / "b.f32", b.mv);
  std::string refs;
  for (double t : a.beat_s) refs += std::to_string(std::lround(t * 200)) + " N\n";
  kelo::test::write_text(dir / "a.beats.txt", refs);
  // b's reference misses its first two beats and has a spurious one.
  refs = "1000 V\n";
  for (std::size_t i = 2; i < b.beat_s.size(); ++i) refs += std::to_string(std::lround(b.beat_s[i] * 200)) + " N\n";
  kelo::test::write_text(dir / "b-ref.txt", refs);

  const auto r = keloecg({"validate", "--json", "--fs", "200", (dir / "a.f32").string(), (dir / "b.f32").string(),
                          "--annotations", (dir / "a.beats.txt").string(), "--annotations", (dir / "b-ref.txt").string()});
  ASSERT_EQ(r.exit_code, 0) << r.err;
  const json j = r.json();
  ASSERT_EQ(j["records"].size(), 2u);
  EXPECT_EQ(j["records"][0]["fp"], 0);
  EXPECT_EQ(j["records"][1]["fp"], 2);
  EXPECT_EQ(j["records"][1]["fn"], 1);
  EXPECT_EQ(j["total"]["tp"], j["records"][0]["tp"].get<int>() + j["records"][1]["tp"].get<int>());

  const auto text = keloecg({"validate", "--fs", "200", (dir / "a.f32").string(), (dir / "b.f32").string(),
                             "--annotations", (dir / "a.beats.txt").string(), "--annotations", (dir / "b-ref.txt").string()});
  EXPECT_NE(text.out.find("\ntotal "), std::string::npos) << text.out;
  expect_error({"validate", "--fs", "200", (dir / "a.f32").string(), (dir / "b.f32").string(), "--annotations",
                (dir / "a.beats.txt").string()},
               "give one --annotations per FILE", "(2 files, 1 annotation files)");
}

TEST(Program, BatchEqualsSingleRuns) {
  TempDir in, out;
  // Long enough for HRV (3 minutes), with references, in three formats.
  const auto a = synthetic(360, 200, 31);
  const auto adc = kelo::test::to_adc(a.mv, 200, 0);
  kelo::test::write_wfdb(in.path(), "a", 16, 360, {adc}, {"ECG"}, 200, 0, 16);
  std::vector<std::pair<long, int>> anns;
  for (double t : a.beat_s) anns.push_back({std::lround(t * 360), 1});
  kelo::test::write_mit_annotations(in / "a.atr", anns);
  const auto b = synthetic(250, 190, 32);
  kelo::test::write_edf(in / "b.bdf", true, 250, {b.mv}, {"ECG"}, "mV", 10.0);
  kelo::test::write_f32(in / "c.f32", synthetic(200, 40, 33).mv);  // too short for HRV
  kelo::test::write_text(in / "c.info", "fs=200\n");
  kelo::test::write_f32(in / "d.f32", {0.5, std::nan("")});  // broken
  kelo::test::write_text(in / "d.info", "fs=200\n");

  const auto r = keloecg({"batch", in.path().string(), "--out", out.path().string(), "--jobs", "2"});
  EXPECT_EQ(r.exit_code, 2);
  const auto err = r.err_lines();
  ASSERT_EQ(err.size(), 2u) << r.err;
  EXPECT_NE(err[1].find((in / "d.f32").string() + ": sample 1"), std::string::npos) << err[1];

  std::set<std::string> written;
  for (const auto& e : fs::directory_iterator(out.path())) written.insert(e.path().filename().string());
  EXPECT_EQ(written, (std::set<std::string>{"a.json", "b.json", "c.json", "summary.csv"}));
  const auto summary = kelo::test::read_file(out / "summary.csv");
  EXPECT_EQ(std::count(summary.begin(), summary.end(), '\n'), 5);  // header and four rows

  for (const std::string name : {"a.hea", "b.bdf", "c.f32"}) {
    const fs::path file = in / name;
    const json batch = json::parse(kelo::test::read_file(out / (file.stem().string() + ".json")));
    const auto qrs = keloecg({"qrs", "--json", file.string()});
    ASSERT_EQ(qrs.exit_code, 0) << qrs.err;
    EXPECT_EQ(batch["qrs"], qrs.json()["qrs"]) << name;
    EXPECT_EQ(batch["recording"], qrs.json()["recording"]) << name;
    if (name != "c.f32") {
      const auto hrv = keloecg({"hrv", "--json", file.string()});
      ASSERT_EQ(hrv.exit_code, 0) << hrv.err;
      EXPECT_EQ(batch["hrv"], hrv.json()["hrv"]) << name;
      EXPECT_EQ(batch["hrv"]["status"], 0) << name;
    } else {
      EXPECT_EQ(batch["hrv"]["computed"], false);
    }
  }
  const auto v = keloecg({"validate", "--json", (in / "a.hea").string()});
  ASSERT_EQ(v.exit_code, 0) << v.err;
  const json batch_a = json::parse(kelo::test::read_file(out / "a.json"));
  EXPECT_EQ(batch_a["validation"], v.json()["records"][0]);
  EXPECT_EQ(batch_a["validation"]["fn"], 0);
}

}  // namespace
