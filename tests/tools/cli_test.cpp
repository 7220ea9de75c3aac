// The real program on the bundled recording and on generated recordings of
// every format: beats where they belong (also after resampling), outputs,
// validation, batch runs equal to single runs, and every input error.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cmath>
#include <set>
#include <sstream>
#include <thread>

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

// MIT annotations of the true beats, after the given ones.
void write_atr(const fs::path& p, const Synthetic& s, std::vector<std::pair<long, int>> anns = {}) {
  for (double t : s.beat_s) anns.push_back({std::lround(t * s.fs), 1});
  kelo::test::write_mit_annotations(p, anns);
}

// The JSON a successful run prints (an empty object after a failure).
json run_json(const std::vector<std::string>& args) {
  const auto r = keloecg(args);
  EXPECT_EQ(r.exit_code, 0) << r.err;
  return r.exit_code == 0 ? r.json() : json::object();
}

TEST(Program, BundledRecordingInEveryOutput) {
  const json q = run_json({"qrs", "--json"})["qrs"];
  EXPECT_EQ(q["status"], 0);
  EXPECT_EQ(q["excerpt_grade"], 1);
  EXPECT_NEAR(q["heart_rate_bpm"].get<double>(), 74, 3);
  EXPECT_EQ(q["window_grades"].size(), 30u);
  EXPECT_NEAR(q["r_peaks"]["count"].get<double>(), 371, 3);

  const json h = run_json({"hrv", "--json"})["hrv"];
  EXPECT_EQ(h["status"], 0);
  EXPECT_EQ(h["r_peaks"], q["r_peaks"]["count"]);  // the same 5 minutes
  const json& t = h["time_domain"];
  EXPECT_NEAR(t["avnn"].get<double>(), 0.81, 0.02);
  EXPECT_EQ(t["sdann"], nullptr);  // one 5-minute segment
  EXPECT_EQ(t["sdnnidx"], t["sdnn"]);
  const json& f = h["frequency_domain"];
  for (const char* k : {"tot_pwr", "ulf_pwr", "vlf_pwr", "lf_pwr", "hf_pwr"}) EXPECT_TRUE(f[k].is_number()) << k;
  EXPECT_NEAR(f["lf_hf"].get<double>(), f["lf_pwr"].get<double>() / f["hf_pwr"].get<double>(), 1e-12);

  const auto text = keloecg({"hrv"});
  EXPECT_EQ(text.exit_code, 0);
  for (const char* k : {"Heart rate", "nn_rr", "pnn50", "tot_pwr", "lf_hf", "5:00.0"}) {
    EXPECT_NE(text.out.find(k), std::string::npos) << k;
  }
  const auto csv = keloecg({"qrs", "--csv"});
  EXPECT_EQ(std::count(csv.out.begin(), csv.out.end(), '\n'), q["r_peaks"]["count"].get<int>() + 1);

  const json v = run_json({"validate", "--json"})["records"][0];  // against its reference beats
  EXPECT_EQ(v["reference_beats"], 371);
  EXPECT_EQ(v["tp"].get<int>() + v["fn"].get<int>(), 371);
  EXPECT_GE(v["f1"].get<double>(), 0.99);
  EXPECT_EQ(v["classes"]["N"]["reference_beats"].get<int>() + v["classes"]["S"]["reference_beats"].get<int>(), 371);
}

TEST(Program, EveryBeatLabelledOrTheNormalShapedOnes) {
  // By default every beat, each with its label; HRV over NN intervals,
  // counting those left out.
  const json all = run_json({"hrv", "--json"});
  const json& peaks = all["qrs"]["r_peaks"];
  ASSERT_EQ(peaks["label"].size(), peaks["count"].get<std::size_t>());
  const auto normal_count = peaks["label_counts"]["normal"].get<std::size_t>();
  EXPECT_LT(normal_count, peaks["count"].get<std::size_t>());  // the first beat is added by the second pass
  EXPECT_EQ(all["settings"]["beats"], "all");
  EXPECT_EQ(all["hrv"]["intervals"].get<std::size_t>() + 1, peaks["count"].get<std::size_t>());
  EXPECT_EQ(all["hrv"]["excluded_intervals"], 1);
  // --beats normal: the normal-shaped beats alone, as detectWaves gives them.
  const json normal = run_json({"hrv", "--json", "--beats", "normal"});
  EXPECT_EQ(normal["qrs"]["r_peaks"]["count"].get<std::size_t>(), normal_count);
  EXPECT_FALSE(normal["qrs"]["r_peaks"].contains("label"));
  EXPECT_FALSE(normal["hrv"].contains("excluded_intervals"));
  // Scoring from a time on leaves the earlier beats out.
  const json from = run_json({"validate", "--json", "--from", "60"});
  EXPECT_EQ(from["score_from_s"], 60.0);
  EXPECT_EQ(from["records"][0]["reference_beats"], 297);
  EXPECT_EQ(keloecg({"qrs", "--beats", "some"}).exit_code, 2);
}

TEST(Program, EveryFormatFindsTheBeatsAtItsOwnRateAndValidates) {
  TempDir dir;
  const auto s360 = synthetic(360, 40), s250 = synthetic(250, 40, 12);
  const auto s200 = synthetic(200, 30, 13), s500 = synthetic(500, 30, 15);
  const auto adc = kelo::test::to_adc(s360.mv, 200, 1024);
  kelo::test::write_wfdb(dir.path(), "syn", 212, 360, {adc, adc}, {"MLII", "V1"}, 200, 1024, 11);
  write_atr(dir / "syn.atr", s360, {{5, 28}});  // with a rhythm annotation, not a beat
  std::vector<double> uv;
  for (double v : s250.mv) uv.push_back(1000.0 * v);
  kelo::test::write_edf(dir / "syn.edf", false, 250, {std::vector<double>(uv.size(), 0.0), uv}, {"Pleth", "ECG"},
                        "uV", 8000.0);
  std::string csv = "seconds,ecg\n";
  for (std::size_t i = 0; i < s200.mv.size(); ++i) csv += std::to_string(i / 200.0) + "," + std::to_string(s200.mv[i]) + "\n";
  kelo::test::write_text(dir / "syn.csv", csv);
  kelo::test::write_raw<double>(dir / "syn.raw", s500.mv);
  // A minute of which --start 20 --duration 30 keeps the beats in [20, 50) s;
  // positions still count from the start of the recording.
  auto minute = synthetic(200, 60, 16), excerpt = minute;
  kelo::test::write_raw<float>(dir / "minute.f32", minute.mv);
  std::erase_if(excerpt.beat_s, [](double t) { return t < 20 || t >= 50; });

  struct Case {
    std::vector<std::string> args;
    const Synthetic& s;
    json expected;  // values at JSON pointers into the output
  };
  const Case cases[] = {
      {{(dir / "syn").string()}, s360,
       {{"/recording/format", "WFDB 212"}, {"/recording/samples_200hz", 8000}, {"/recording/full_scale", 5.12}}},
      {{"--lead", "ECG", (dir / "syn.edf").string()}, s250, {{"/recording/lead", {{"index", 1}, {"name", "ECG"}}}}},
      {{"--fs", "200", "--lead", "ecg", (dir / "syn.csv").string()}, s200, json::object()},
      {{"--format", "f64", "--fs", "500", (dir / "syn.raw").string()}, s500, json::object()},
      {{"--fs", "200", "--start", "20", "--duration", "30", (dir / "minute.f32").string()}, excerpt,
       {{"/qrs/excerpt/start_sample_200hz", 4000}, {"/qrs/excerpt/samples_200hz", 6000}, {"/qrs/window_grades", {0, 0, 0}}}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args.back());
    auto args = c.args;
    args.insert(args.begin(), {"qrs", "--json"});
    json j = run_json(args);
    for (const auto& [at, value] : c.expected.items()) EXPECT_EQ(j[json::json_pointer(at)], value) << at;
    expect_beats_at_true_times(j["qrs"], c.s);
  }

  // Two records with their references: the CSV's misses its first two beats
  // and has a spurious one. Lead 1 is the ECG in both.
  std::string refs = "1000 V\n";
  for (std::size_t i = 2; i < s200.beat_s.size(); ++i) refs += std::to_string(std::lround(s200.beat_s[i] * 200)) + " N\n";
  kelo::test::write_text(dir / "csv-ref.txt", refs);
  std::vector<std::string> args = {"validate", "--fs", "200", (dir / "syn.hea").string(), (dir / "syn.csv").string(),
                                   "--lead", "1", "--annotations", (dir / "syn.atr").string(),
                                   (dir / "csv-ref.txt").string()};
  const auto text = keloecg(args);
  EXPECT_NE(text.out.find("\ntotal "), std::string::npos) << text.out;
  args.push_back("--json");
  const json j = run_json(args);
  ASSERT_EQ(j["records"].size(), 2u);
  EXPECT_EQ(j["records"][0]["reference_beats"], s360.beat_s.size());
  EXPECT_EQ(std::pair(j["records"][0]["fn"], j["records"][0]["fp"]), std::pair(json(0), json(0)));
  EXPECT_EQ(std::pair(j["records"][1]["fn"], j["records"][1]["fp"]), std::pair(json(1), json(2)));
  EXPECT_EQ(j["total"]["tp"], j["records"][0]["tp"].get<int>() + j["records"][1]["tp"].get<int>());
}

// Each problem gives exit status 2, one line on standard error that names
// the file, nothing on standard output and no output file.
TEST(Program, EveryInputErrorIsOneLineAndWritesNothing) {
  TempDir dir;
  for (auto [name, text] : {std::pair{"nan.csv", "0.1\n0.2\nNaN\n0.3\n"}, {"word.csv", "ecg\n1\n2\nabc\n"},
                            {"short.csv", "t,ecg\n1,2\n3\n"}, {"empty.csv", "# nothing\n"}, {"nofs.csv", "1\n2\n"},
                            {"odd.f32", "12345"}, {"cut.edf", "0       this is not an EDF header"},
                            {"refs.txt", "10 N\nabc\n"}, {"ecg.xyz", "1 2 3"}}) {
    kelo::test::write_text(dir / name, text);
  }
  kelo::test::write_text(dir / "bad.edf", "0       " + std::string(600, 'x'));
  kelo::test::write_text(dir / "empty.f32", "");
  kelo::test::write_text(dir / "binary.csv", std::string("1\n\x01\x02\x00\x7f", 6));
  // Ten records of one second, cut in the middle of the sixth: EDF+ adds an
  // annotation signal, so the header is 3 x 256 bytes and a record holds
  // 200 samples and 57 annotation words, 514 bytes.
  kelo::test::write_edf(dir / "half.edf", false, 200, {std::vector<double>(2000, 0.1)}, {"ECG"}, "mV", 5.0);
  ASSERT_EQ(fs::file_size(dir / "half.edf"), 768u + 10 * 514);
  fs::resize_file(dir / "half.edf", 768 + 5 * 514 + 257);
  kelo::test::write_raw<float>(dir / "nan.f32", {0.1, std::nan(""), 0.2});
  kelo::test::write_raw<float>(dir / "flat.f32", std::vector<double>(4000, 0.0));
  kelo::test::write_raw<float>(dir / "minute.f32", synthetic(200, 60).mv);  // beats, but too short for HRV
  const std::string wfdb = (kData / "mitdb100-10s.hea").string(), minute = (dir / "minute.f32").string();
  const std::string refs = (dir / "refs.txt").string(), flat = (dir / "flat.f32").string();

  struct Case {
    std::vector<std::string> args;  // the file is added last
    std::string file, problem;      // the line is "keloecg: error: FILE: PROBLEM"
    bool named = true;              // false: the problem is not about one file
  };
  const Case cases[] = {
      {{"qrs"}, "missing.edf", "no such file"},
      {{"qrs"}, "missing", "no such file"},
      {{"hrv"}, dir.path().string(), "is a directory, not a file"},
      {{"qrs"}, "ecg.xyz", "unknown format (known: WFDB .hea, EDF/EDF+/BDF, CSV/text, raw .f32/.f64; or choose one with --format)"},
      {{"qrs", "--format", "mp3"}, "ecg.xyz", "unknown --format \"mp3\" (use auto, wfdb, edf, csv, f32 or f64)", false},
      {{"qrs", "--lead", "2"}, wfdb, "lead 2 does not exist (the recording has 2 leads: 0 MLII, 1 V5)"},
      {{"qrs", "--lead", "aVF"}, wfdb, "no lead is named \"aVF\" (the recording has 2 leads: 0 MLII, 1 V5)"},
      {{"qrs", "--fs", "200", "--lead", "1"}, "flat.f32", "lead 1 does not exist (the recording has 1 lead: 0)"},
      {{"qrs", "--start", "9"}, wfdb, "recording too short: 0:01.0 in the chosen excerpt, R-peak detection needs at least 15 s"},
      {{"report", "--fs", "200"}, "nan.csv", "line 3: the sample is not a number (NaN)"},
      {{"qrs", "--fs", "200"}, "word.csv", "line 4: \"abc\" is not a number"},
      {{"qrs", "--fs", "200", "--lead", "1"}, "short.csv", "line 3 has 1 column, column 1 is needed"},
      {{"qrs", "--fs", "200"}, "empty.csv", "holds no samples"},
      {{"qrs"}, "nofs.csv", "the sampling rate is not stored in this format: give it with --fs"},
      {{"qrs", "--json", "--fs", "250"}, "nan.f32", "sample 1 (at 0.004 s) is not a number (NaN)"},
      {{"qrs", "--fs", "200"}, "odd.f32", "size 5 bytes is not a whole number of float32 samples"},
      {{"qrs"}, "cut.edf", "cannot read an EDF/BDF header (the file is too short or damaged)"},
      {{"qrs"}, "bad.edf", "not a valid EDF/BDF file (its header has format errors)"},
      {{"hrv", "--fs", "200"}, minute, "recording too short: 1:00.0, HRV needs at least 3 minutes"},
      {{"qrs", "--fs", "60000", minute}, "", "--fs: \"60000\" is not a sampling rate keloecg analyses (50 to 10000 Hz) (see keloecg --help)", false},
      {{"validate", "--fs", "200", minute, "--annotations"}, refs, "line 2: expected \"sample [symbol]\""},
      {{"validate", "--fs", "200", minute, flat, "--annotations", refs}, "",
       "give one --annotations per FILE (2 files, 1 annotation files)", false},
      {{"qrs", "--fs", "200"}, "empty.f32", "holds no samples"},
      {{"qrs"}, "half.edf", "truncated: the header announces 10 data records of 514 bytes, the file holds 5 whole ones"},
      {{"qrs", "--fs", "200"}, "binary.csv", "not a text table: byte 2 is 0x01 (binary data; for raw samples give --format f32 or f64)"},
      {{"qrs", "--window", "zero"}, "", "(see keloecg --help)", false},  // options are checked too
      // Range checks say what is wanted.
      {{"qrs", "--fs", "0.79", minute}, "", "--fs: \"0.79\" is not a sampling rate keloecg analyses (50 to 10000 Hz) (see keloecg --help)", false},
      {{"qrs", "--start=-5", minute}, "", "--start: \"-5\" is not a time: give seconds (90, 5.5) or [h:]mm:ss (1:30, 1:30:00) (see keloecg --help)", false},
      {{"qrs", "--duration", "1:75", minute}, "", "--duration: \"1:75\" is not a positive time: give seconds (90, 5.5) or [h:]mm:ss (1:30, 1:30:00) (see keloecg --help)", false},
      {{"validate", "-j", "0", minute}, "", "--jobs: \"0\" is not a number of jobs from 1 to 4096 (see keloecg --help)", false},
      {{"frobnicate"}, "", "unknown command \"frobnicate\" (the commands are qrs, hrv, report, validate and batch; see keloecg --help)", false}};
  const fs::path output = dir / "out";
  for (const auto& c : cases) {
    const std::string file = c.file.empty() ? "" : (dir / c.file).string();
    auto args = c.args;
    if (!file.empty()) args.push_back(file);
    args.insert(args.end(), {"-o", output.string()});
    const auto r = keloecg(args);
    EXPECT_EQ(r.exit_code, 2) << file;
    const auto lines = r.err_lines();
    ASSERT_EQ(lines.size(), 1u) << r.err;
    const bool usage = c.problem.starts_with("(");  // after the option parser's own words
    const std::string expected = "keloecg: error: " + (c.named ? file + ": " : "") + c.problem;
    EXPECT_TRUE(usage ? lines[0].starts_with("keloecg: error: ") && lines[0].ends_with(c.problem)
                      : lines[0] == expected)
        << lines[0];
    EXPECT_EQ(r.out, "");
    EXPECT_FALSE(fs::exists(output)) << lines[0];
  }
}

TEST(Program, BatchEqualsSingleRuns) {
  TempDir in, out;
  // Long enough for HRV (3 minutes), with references, in three formats.
  const auto a = synthetic(360, 200, 31);
  kelo::test::write_wfdb(in.path(), "a", 16, 360, {kelo::test::to_adc(a.mv, 200, 0)}, {"ECG"}, 200, 0, 16);
  write_atr(in / "a.atr", a);
  kelo::test::write_edf(in / "b.bdf", true, 250, {synthetic(250, 190, 32).mv}, {"ECG"}, "mV", 10.0);
  kelo::test::write_raw<float>(in / "c.f32", synthetic(200, 40, 33).mv);  // too short for HRV
  kelo::test::write_raw<float>(in / "d.f32", {0.5, std::nan("")});          // broken
  for (const char* info : {"c.info", "d.info"}) kelo::test::write_text(in / info, "fs=200\n");

  const auto r = keloecg({"batch", in.path().string(), "--out", out.path().string(), "--jobs", "2"});
  EXPECT_EQ(r.exit_code, 2);
  auto err = r.err_lines();
  std::erase_if(err, [](const std::string& l) { return l.ends_with(" done") || l.ends_with(" failed"); });  // progress
  ASSERT_EQ(err.size(), 2u) << r.err;
  EXPECT_NE(err[1].find((in / "d.f32").string() + ": sample 1"), std::string::npos) << err[1];

  std::set<std::string> written;
  for (const auto& e : fs::directory_iterator(out.path())) written.insert(e.path().filename().string());
  EXPECT_EQ(written, (std::set<std::string>{"a.json", "b.json", "c.json", "summary.csv"}));
  const auto summary = kelo::test::read_file(out / "summary.csv");
  EXPECT_EQ(std::count(summary.begin(), summary.end(), '\n'), 5);  // header and four rows

  for (const std::string name : {"a.hea", "b.bdf", "c.f32"}) {
    SCOPED_TRACE(name);
    const fs::path file = in / name;
    json batch = json::parse(kelo::test::read_file(out / (file.stem().string() + ".json")));
    const json qrs = run_json({"qrs", "--json", file.string()});
    EXPECT_EQ(batch["qrs"], qrs["qrs"]);
    EXPECT_EQ(batch["recording"], qrs["recording"]);
    if (name == "c.f32") {
      EXPECT_EQ(batch["hrv"]["computed"], false);
      continue;
    }
    EXPECT_EQ(batch["hrv"], run_json({"hrv", "--json", file.string()})["hrv"]);
    EXPECT_EQ(batch["hrv"]["status"], 0);
  }
  json batch_a = json::parse(kelo::test::read_file(out / "a.json"));
  EXPECT_EQ(batch_a["validation"], run_json({"validate", "--json", (in / "a.hea").string()})["records"][0]);
  EXPECT_EQ(batch_a["validation"]["fn"], 0);
}

// What is not computed is null in JSON and empty in CSV, never 0: SDANN
// over one 5-minute segment, every HRV figure of a run without usable
// beats, and the grade of an excerpt without usable beats.
TEST(Program, FiguresNotComputedAreNullAndEmpty) {
  const json bundled = run_json({"hrv", "--json"})["hrv"];
  EXPECT_EQ(bundled["time_domain"]["sdann"], nullptr);
  EXPECT_EQ(bundled["notes"]["sdann"], "not formed: needs two 5-minute segments");
  EXPECT_TRUE(bundled["time_domain"]["sdnnidx"].is_number());
  const auto csv = keloecg({"hrv", "--csv"}).out;
  const auto columns = [](const std::string& line) {
    std::vector<std::string> out;  // every field, a last empty one too
    for (std::size_t from = 0;;) {
      const auto comma = line.find(',', from);
      out.push_back(line.substr(from, comma == std::string::npos ? std::string::npos : comma - from));
      if (comma == std::string::npos) return out;
      from = comma + 1;
    }
  };
  const auto header = columns(csv.substr(0, csv.find('\n')));
  const auto row = columns(csv.substr(csv.find('\n') + 1));
  const auto at = [&](const std::string& name) {
    const auto it = std::find(header.begin(), header.end(), name);
    return it == header.end() || static_cast<std::size_t>(it - header.begin()) >= row.size()
               ? std::string("?")
               : row[static_cast<std::size_t>(it - header.begin())];
  };
  EXPECT_EQ(at("sdann_s"), "");
  EXPECT_NE(at("sdnn_s"), "");

  TempDir dir;
  kelo::test::write_raw<float>(dir / "flat.f32", std::vector<double>(200 * 240, 0.0));  // 4 minutes, no beat
  const std::string flat = (dir / "flat.f32").string();
  const json j = run_json({"hrv", "--json", "--fs", "200", flat});
  EXPECT_EQ(j["qrs"]["status"], 3);
  EXPECT_EQ(j["qrs"]["excerpt_grade"], nullptr);  // not "1 usable"
  EXPECT_EQ(j["qrs"]["excerpt_grade_text"], "not graded: no usable beats");
  for (const auto& group : {"time_domain", "frequency_domain"}) {
    for (const auto& [name, value] : j["hrv"][group].items()) EXPECT_EQ(value, nullptr) << name;
  }
  const auto flat_csv = keloecg({"hrv", "--csv", "--fs", "200", flat}).out;
  const auto flat_row = columns(flat_csv.substr(flat_csv.find('\n') + 1, flat_csv.size() - flat_csv.find('\n') - 2));
  ASSERT_EQ(flat_row.size(), header.size());
  for (std::size_t k = 8; k < header.size(); ++k) {
    if (header[k] != "ulf_meaningful") {
      EXPECT_EQ(flat_row[k], "") << header[k];
    }
  }
}

// qrs --csv gives the excerpt's status, heart rate and grade beside every
// beat (and in a row of its own when there is no beat); CSV columns carry
// their unit; window grades are named in JSON.
TEST(Program, CsvAndJsonSayWhatTheirNumbersAre) {
  const auto csv = keloecg({"qrs", "--csv"}).out;
  EXPECT_EQ(csv.substr(0, csv.find('\n')),
            "beat,time_s,sample_200hz,sample_original,label,rr_s,window,window_grade,window_grade_text,excerpt_start_s,"
            "excerpt_end_s,status,status_text,heart_rate_bpm,excerpt_grade,excerpt_grade_text");
  const auto first = csv.substr(csv.find('\n') + 1, csv.find('\n', csv.find('\n') + 1) - csv.find('\n') - 1);
  EXPECT_TRUE(first.ends_with(",,1,0,usable,0,300,0,success,74,1,usable")) << first;
  TempDir dir;
  kelo::test::write_raw<float>(dir / "flat.f32", std::vector<double>(4000, 0.0));
  const auto none = keloecg({"qrs", "--csv", "--fs", "200", (dir / "flat.f32").string()}).out;
  EXPECT_EQ(none.substr(none.find('\n') + 1),
            ",,,,,,,,,0,20,3,\"no usable beats (fewer than two R peaks, or heart rate outside 30-220 bpm)\",,,"
            "not graded: no usable beats\n");

  const auto hrv = keloecg({"hrv", "--csv"}).out;
  EXPECT_EQ(hrv.substr(0, hrv.find('\n')),
            "span,number,start_s,end_s,duration_s,r_peaks,heart_rate_bpm,status,nn_rr_fraction,avnn_s,sdnn_s,sdann_s,"
            "sdnnidx_s,rmssd_s,pnn50_fraction,tot_pwr_s2,ulf_pwr_s2,vlf_pwr_s2,lf_pwr_s2,hf_pwr_s2,lf_hf_ratio,"
            "ulf_meaningful,nn_intervals,excluded_intervals");
  EXPECT_TRUE(hrv.substr(hrv.find('\n') + 1).starts_with("excerpt (short analysis),,0,300,300,")) << hrv;

  // Times are read as [h:]mm:ss too.
  const json part = run_json({"qrs", "--json", "--start", "1:00", "--duration", "0:00:30.5"})["qrs"]["excerpt"];
  EXPECT_EQ(std::pair(part["start_s"], part["duration_s"]), std::pair(json(60.0), json(30.5)));

  const json q = run_json({"qrs", "--json"})["qrs"];
  EXPECT_EQ(q["window_grade_names"], json({{"0", "usable"}, {"3", "too few beats"}, {"5", "clipped"}, {"6", "irregular"}}));
  EXPECT_EQ(q["window_grade_counts"]["usable"], 30);
  // ULF power over 5 minutes is marked as meaningless.
  const json h = run_json({"hrv", "--json"})["hrv"];
  EXPECT_EQ(h["ulf_meaningful"], false);
  EXPECT_TRUE(h["notes"]["ulf_pwr"].get<std::string>().starts_with("not meaningful over less than an hour"));
  EXPECT_NE(keloecg({"hrv"}).out.find("not meaningful under an hour"), std::string::npos);
}

// Notes about a recording go to standard error in every mode, batch
// reports each finished file when standard error is not a terminal, --fs
// given for a file that states its rate is said to be ignored, and a
// time column of a CSV file is not taken for the ECG.
TEST(Program, NotesAndProgressGoToStandardError) {
  TempDir dir;
  const auto s = synthetic(200, 40, 41);
  std::string csv = "time,ecg\n";
  for (std::size_t i = 0; i < s.mv.size(); ++i) csv += std::to_string(i / 200.0) + "," + std::to_string(s.mv[i]) + "\n";
  kelo::test::write_text(dir / "timed.csv", csv);
  const auto timed = keloecg({"qrs", "--fs", "200", (dir / "timed.csv").string()});
  EXPECT_EQ(timed.exit_code, 0);
  EXPECT_EQ(timed.out.find("Note"), std::string::npos);
  EXPECT_EQ(timed.err_lines(), std::vector<std::string>{"keloecg: warning: " + (dir / "timed.csv").string() +
                                                        ": column 0 (time) counts time, not ECG: column 1 (ecg) is "
                                                        "analysed (choose another with --lead)"});
  EXPECT_NE(timed.out.find("Status      0 success"), std::string::npos) << timed.out;
  // Without a header a column rising by a constant step is recognised too.
  kelo::test::write_text(dir / "bare.csv", csv.substr(csv.find('\n') + 1));
  expect_beats_at_true_times(run_json({"qrs", "--json", "--fs", "200", (dir / "bare.csv").string()})["qrs"], s);

  const auto wfdb = keloecg({"qrs", "--fs", "250", (kData / "mitdb100-10s.hea").string(), "--duration", "15"});
  EXPECT_NE(wfdb.err.find("--fs 250 ignored: the file gives its rate, 360 Hz"), std::string::npos) << wfdb.err;

  kelo::test::write_raw<float>(dir / "a.f32", synthetic(200, 30, 42).mv);
  kelo::test::write_raw<float>(dir / "b.f32", synthetic(200, 30, 43).mv);
  const auto batch = keloecg({"batch", "--fs", "200", "-j", "1", (dir / "a.f32").string(), (dir / "b.f32").string(),
                              "--out", (dir / "out").string()});
  EXPECT_EQ(batch.exit_code, 0);
  EXPECT_EQ(batch.err_lines(), (std::vector<std::string>{"keloecg: 1/2 a.f32 done", "keloecg: 2/2 b.f32 done"}));
}

// Without -o the report is named after the record, in the current folder,
// and the message says where it went.
TEST(Program, ReportWithoutOutputSaysWhereItWrote) {
  TempDir dir;
  const auto r = kelo::test::run_command(
      {"sh", "-c", "cd " + kelo::test::shell_quote(dir.path().string()) + " && " + KELOECG_PROGRAM + " report"});
  EXPECT_EQ(r.exit_code, 0) << r.err;
  const fs::path page = dir / "mitdb100-5min-report.html";
  EXPECT_TRUE(fs::exists(page));
  EXPECT_TRUE(r.out.starts_with("Report written to " + page.string() + " (")) << r.out;
  EXPECT_NE(r.out.find("no -o given"), std::string::npos);
}

// A result that cannot be written (no such folder, a folder in the way, a
// file-size limit standing in for a full disk) is one error line with exit
// status 2, and leaves the file that was there, or none, and no temporary
// file.
TEST(Program, UnwritableResultsLeaveNoHalfWrittenFile) {
  TempDir dir;
  const std::string previous = "the previous report\n";
  kelo::test::write_text(dir / "kept.html", previous);
  fs::create_directory(dir / "folder.html");
  const std::string limit = "ulimit -f 4; exec \"$0\" \"$@\"";  // 2 KB at most per file
  struct Case {
    std::vector<std::string> prefix;  // run before the program (the limit)
    std::string output, problem;
  };
  const Case cases[] = {
      {{}, "missing/r.html", "cannot write: folder " + (dir / "missing").string() + " does not exist"},
      {{}, "folder.html", "cannot write: Is a directory"},
      {{"sh", "-c", limit}, "kept.html", "cannot write: File too large"},
      {{"sh", "-c", limit}, "new.html", "cannot write: File too large"}};
  for (const auto& c : cases) {
    auto args = c.prefix;
    args.insert(args.end(), {KELOECG_PROGRAM, "report", "-o", (dir / c.output).string()});
    const auto r = kelo::test::run_command(args);
    EXPECT_EQ(r.exit_code, 2) << c.output;
    EXPECT_EQ(r.err_lines(), std::vector<std::string>{"keloecg: error: " + (dir / c.output).string() + ": " + c.problem});
  }
  std::set<std::string> left;
  for (const auto& e : fs::directory_iterator(dir.path())) left.insert(e.path().filename().string());
  EXPECT_EQ(left, (std::set<std::string>{"kept.html", "folder.html"}));
  EXPECT_EQ(kelo::test::read_file(dir / "kept.html"), previous);
}

// Ctrl-C during a batch: the recording under way finishes, no other starts,
// the summary lists exactly the finished ones, and the exit status says the
// run was interrupted.
TEST(Program, InterruptedBatchSummarisesWhatFinished) {
  TempDir in, out, capture;
  kelo::test::write_raw<float>(in / "r.f32", synthetic(200, 20, 34).mv);
  kelo::test::write_text(in / "r.info", "fs=200\n");
  constexpr int kCopies = 400;  // far more than run before the signal lands
  std::vector<std::string> args = {KELOECG_PROGRAM, "batch", "--jobs", "1", "--out", out.path().string()};
  for (int i = 0; i < kCopies; ++i) args.push_back((in / "r.f32").string());
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, (capture / "out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, (capture / "err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  pid_t pid = 0;
  ASSERT_EQ(posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ), 0);
  posix_spawn_file_actions_destroy(&actions);
  const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  auto any_result = [&] {
    for (const auto& e : fs::directory_iterator(out.path())) {
      if (e.path().extension() == ".json") return true;
    }
    return false;
  };
  while (!any_result() && std::chrono::steady_clock::now() < give_up) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ::kill(pid, SIGINT);
  int status = 0;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 128 + SIGINT);

  std::size_t results = 0;
  for (const auto& e : fs::directory_iterator(out.path())) {
    const auto name = e.path().filename().string();
    EXPECT_NE(name.front(), '.') << "temporary file left: " << name;
    results += e.path().extension() == ".json" ? 1 : 0;
  }
  EXPECT_GE(results, 1u);
  EXPECT_LT(results, static_cast<std::size_t>(kCopies));
  const auto summary = kelo::test::read_file(out / "summary.csv");
  EXPECT_EQ(static_cast<std::size_t>(std::count(summary.begin(), summary.end(), '\n')), results + 1);
  const auto printed = kelo::test::read_file(capture / "out");
  EXPECT_NE(printed.find(std::to_string(results) + " recording" + (results == 1 ? "" : "s") + " analysed, 0 failed, " +
                         std::to_string(kCopies - results) + " not started (interrupted)"),
            std::string::npos)
      << printed;
  EXPECT_NE(kelo::test::read_file(capture / "err").find("keloecg: interrupted"), std::string::npos);
}

}  // namespace
