// Two hours of real ECG at 360 Hz (MIT-BIH records 100, 103, 113 and 119
// one after the other, tests/tools/data/mitdb-2h): beats over the whole
// span and at every seam of the detection segments, the long-term HRV with
// its 5-minute segments and its hours, every output with the span of each
// figure, and the detected beats as a WFDB annotation file read back.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <map>

#include "annotations.hpp"
#include "beat_match.hpp"
#include "beats.hpp"
#include "file_util.hpp"
#include "keloecgsolver/keloecgsolver.h"
#include "run_program.hpp"
#include "wfdb.hpp"

namespace {

using kelo::test::keloecg;
using kelo::test::TempDir;
using nlohmann::json;
namespace fs = std::filesystem;

const std::string kRecord = (fs::path(KELO_TOOLS_TEST_DATA) / "mitdb-2h.hea").string();

// The program's runs on the recording, made once for all tests. Each test
// runs in a process of its own and the runs take long under the
// sanitizers, so the first process makes them into a folder beside the
// program (under a file lock), and the others read them from there as long
// as the program is the one that made them.
struct Runs {
  fs::path dir = fs::path(KELOECG_PROGRAM).parent_path() / "long-recording-runs";
  json qrs, hrv;
  std::string hrv_text, hrv_csv, summary;
  fs::path annotations = dir / "mitdb-2h.qrs";
  Runs() {
    fs::create_directories(dir);
    const int lock = ::open((dir / ".lock").c_str(), O_CREAT | O_RDWR, 0644);
    EXPECT_GE(lock, 0);
    ::flock(lock, LOCK_EX);
    const auto made = fs::last_write_time(KELOECG_PROGRAM).time_since_epoch().count();
    const std::string stamp = std::to_string(made) + " " + kRecord + "\n";
    if (!fs::exists(dir / "stamp") || kelo::test::read_file(dir / "stamp") != stamp) {
      fs::remove(dir / "stamp");
      const auto q = keloecg({"qrs", "--json", kRecord, "--annotations-out", annotations.string()});
      const auto h = keloecg({"hrv", "--json", kRecord});
      const auto t = keloecg({"hrv", kRecord});
      const auto c = keloecg({"hrv", "--csv", kRecord});
      fs::remove_all(dir / "batch");
      const auto b = keloecg({"batch", kRecord, "--out", (dir / "batch").string()});
      for (const auto* r : {&q, &h, &t, &c, &b}) EXPECT_EQ(r->exit_code, 0) << r->err;
      kelo::test::write_text(dir / "qrs.json", q.out);
      kelo::test::write_text(dir / "hrv.json", h.out);
      kelo::test::write_text(dir / "hrv.txt", t.out);
      kelo::test::write_text(dir / "hrv.csv", c.out);
      if (!::testing::Test::HasFailure()) kelo::test::write_text(dir / "stamp", stamp);
    }
    qrs = json::parse(kelo::test::read_file(dir / "qrs.json"));
    hrv = json::parse(kelo::test::read_file(dir / "hrv.json"))["hrv"];
    hrv_text = kelo::test::read_file(dir / "hrv.txt");
    hrv_csv = kelo::test::read_file(dir / "hrv.csv");
    summary = kelo::test::read_file(dir / "batch" / "summary.csv");
    ::flock(lock, LOCK_UN);
    ::close(lock);
  }
};

const Runs& runs() {
  static const Runs r;
  return r;
}

std::vector<double> detected_seconds() {
  std::vector<double> t;
  for (const auto& s : runs().qrs["qrs"]["r_peaks"]["sample_200hz"]) t.push_back(s.get<double>() / 200.0);
  return t;
}

// Every reference beat is found over the whole two hours, in 12 segments of
// 10 minutes; around every seam each reference beat is matched once and no
// detection is left over, and nowhere are two detections closer than
// 150 ms (a beat counted twice).
TEST(LongRecording, BeatsOverTheWholeSpanAndAtEverySeam) {
  const json& q = runs().qrs["qrs"];
  EXPECT_EQ(q["excerpt"]["duration_s"].get<double>(), 1444445 / 200.0);
  EXPECT_EQ(q["detection"]["segments"], 12);
  EXPECT_EQ(q["detection"]["seams_joined_on_common_beats"], 11);

  const auto reference = keloecg::load_reference_beats(fs::path(KELO_TOOLS_TEST_DATA) / "mitdb-2h.atr", 360.0);
  std::vector<double> ref;
  for (std::size_t i = 0; i < reference.samples.size(); ++i) ref.push_back(reference.time_s(i));
  ASSERT_EQ(ref.size(), 8139u);
  const auto det = detected_seconds();
  const auto all = keloecg::match_beats(ref, det);
  EXPECT_LE(all.counts.false_negatives, 4);
  EXPECT_LE(all.counts.false_positives, 4);
  for (std::size_t i = 1; i < det.size(); ++i) ASSERT_GT(det[i] - det[i - 1], 0.15) << det[i];
  for (int seam = 1; seam < 12; ++seam) {
    const double at = 600.0 * seam;
    std::vector<double> r, d;
    for (double t : ref) if (std::abs(t - at) < 30.0) r.push_back(t);
    for (double t : det) if (std::abs(t - at) < 30.0) d.push_back(t);
    const auto m = keloecg::match_beats(r, d);
    EXPECT_EQ(std::pair(m.counts.false_negatives, m.counts.false_positives), std::pair(0L, 0L)) << "seam at " << at;
  }
}

// The long-term HRV over the NN intervals of the whole excerpt, of each of
// the 24 whole 5-minute segments and of each of the 2 whole hours (the
// last 22 s are neither), each equal to the library's own result over the
// labelled beats of its span; the means of the segments are theirs.
TEST(LongRecording, SegmentAndHourlyHrvTables) {
  const json& h = runs().hrv;
  EXPECT_EQ(h["analysis"], "long-term");
  EXPECT_EQ(h["status"], 0);
  EXPECT_EQ(h["span"]["end_s"], 1444445 / 200.0);
  ASSERT_EQ(h["five_minute_segments"]["count"], 24);
  ASSERT_EQ(h["hours"].size(), 2u);
  EXPECT_TRUE(h["time_domain"]["sdann"].is_number());  // 24 segments: formed
  EXPECT_EQ(h["ulf_meaningful"], true);

  const json& beats = runs().qrs["qrs"]["r_peaks"];
  const auto peaks = beats["sample_200hz"].get<std::vector<std::int64_t>>();
  const auto names = beats["label"].get<std::vector<std::string>>();
  auto check = [&](const json& row, double from, double to) {
    SCOPED_TRACE(from);
    EXPECT_EQ(row["span"]["start_s"], from);
    EXPECT_EQ(row["span"]["end_s"], to);
    std::vector<std::int64_t> in_span;
    std::vector<int> labels;
    for (std::size_t i = 0; i < peaks.size(); ++i) {
      if (peaks[i] >= from * 200 && peaks[i] < to * 200) {
        in_span.push_back(peaks[i]);
        labels.push_back(names[i] == "normal" ? keloecg::kNormalBeat : 2);
      }
    }
    ASSERT_EQ(row["r_peaks"], in_span.size());
    const auto series = keloecg::nn_series(in_span, labels);
    const auto hrv = keloecg::hrv_over_nn(series);
    EXPECT_EQ(row["intervals"], series.intervals);
    EXPECT_EQ(row["excluded_intervals"], series.excluded);
    EXPECT_EQ(row["status"], hrv.status);
    EXPECT_EQ(row["time_domain"]["sdnn"], hrv.time[2]);
    EXPECT_EQ(row["time_domain"]["rmssd"], hrv.time[5]);
    EXPECT_EQ(row["time_domain"]["pnn50"], hrv.time[6]);
    EXPECT_EQ(row["frequency_domain"]["lf_pwr"], hrv.freq[3]);
    EXPECT_EQ(row["frequency_domain"]["hf_pwr"], hrv.freq[4]);
    EXPECT_EQ(row["frequency_domain"]["lf_hf"], hrv.freq[5]);
  };
  for (int k = 0; k < 24; ++k) check(h["five_minute_segments"]["segments"][k], 300.0 * k, 300.0 * (k + 1));
  for (int k = 0; k < 2; ++k) check(h["hours"][k], 3600.0 * k, 3600.0 * (k + 1));

  for (const char* band : {"tot_pwr", "ulf_pwr", "vlf_pwr", "lf_pwr", "hf_pwr", "lf_hf"}) {
    double sum = 0;
    for (const auto& s : h["five_minute_segments"]["segments"]) sum += s["frequency_domain"][band].get<double>();
    EXPECT_NEAR(h["five_minute_segments"]["frequency_domain_mean"][band].get<double>(), sum / 24, 1e-12 * std::abs(sum))
        << band;
  }
  // The hours differ: record 119's ventricular beats (which detectWaves
  // finds, so they count as normal-shaped) make the second hour far more
  // variable than the first.
  EXPECT_GT(h["hours"][1]["time_domain"]["rmssd"].get<double>(), 3 * h["hours"][0]["time_domain"]["rmssd"].get<double>());
}

// Text, CSV and the batch summary say which span each figure covers.
TEST(LongRecording, EveryOutputStatesItsSpans) {
  const std::string& text = runs().hrv_text;
  for (const char* piece : {"Excerpt     0:00.0 to 2:00:22.2 (1444445 samples at 200 Hz)",
                            "Detection   12 segments of 10:00.0 overlapping by 30 s",
                            "HRV         long-term, over the whole excerpt: 0:00.0 to 2:00:22.2, ",
                            "Frequency domain, mean of 24 five-minute segments (0:00.0 to 2:00:00.0)",
                            "\n 2        1:00:00.0   2:00:00.0    ", "\n 24      1:55:00.0   2:00:00.0 "}) {
    EXPECT_NE(text.find(piece), std::string::npos) << piece;
  }

  std::map<std::string, int> rows;
  std::istringstream csv(runs().hrv_csv);
  std::string line;
  std::getline(csv, line);
  EXPECT_TRUE(line.starts_with("span,number,start_s,end_s,duration_s,")) << line;
  std::vector<std::string> spans;
  while (std::getline(csv, line)) {
    ++rows[line.substr(0, line.find(','))];
    spans.push_back(line.substr(0, line.find(',', line.find(',', line.find(',', line.find(',') + 1) + 1) + 1)));
  }
  EXPECT_EQ(rows, (std::map<std::string, int>{
                      {"whole excerpt", 1}, {"mean of 5-minute segments", 1}, {"hour", 2}, {"5-minute segment", 24}}));
  EXPECT_EQ(spans[0], "whole excerpt,,0,7222.225");
  EXPECT_EQ(spans[1], "mean of 5-minute segments,24,0,7200");
  EXPECT_EQ(spans[3], "hour,2,3600,7200");
  EXPECT_EQ(spans.back(), "5-minute segment,24,6900,7200");

  const std::string& summary = runs().summary;
  const auto header = summary.substr(0, summary.find('\n'));
  for (const char* column : {"excerpt_start_s", "excerpt_end_s", "detection_segments", "hrv_analysis", "hrv_start_s",
                             "hrv_end_s", "segments_5min", "mean_5min_lf_pwr_s2"}) {
    EXPECT_NE(header.find(std::string(",") + column + ","), std::string::npos) << column;
  }
  EXPECT_NE(summary.find(",0,7222.225,12,0,"), std::string::npos) << summary;
  EXPECT_NE(summary.find(",long-term,0,7222.225,0,"), std::string::npos) << summary;
}

// The beats written with --annotations-out read back through keloecg's own
// WFDB reader: one per R peak, at the recording's own rate, N for a normal
// beat and Q with its label as text for the others.
TEST(LongRecording, AnnotationFileReadsBack) {
  const auto bytes = keloecg::read_bytes(runs().annotations);
  const auto read = keloecg::wfdb::parse_annotations(bytes, "mitdb-2h.qrs");
  const auto original = runs().qrs["qrs"]["r_peaks"]["sample_original"].get<std::vector<long long>>();
  ASSERT_EQ(read.size(), original.size());
  for (std::size_t i = 0; i < read.size(); ++i) {
    ASSERT_EQ(read[i].sample, original[i]) << i;
    const std::string label = runs().qrs["qrs"]["r_peaks"]["label"][i];
    ASSERT_EQ(read[i].symbol, label == "normal" ? "N" : "Q") << i;
    ASSERT_EQ(read[i].aux, label == "normal" ? "" : label) << i;
  }
  EXPECT_GT(original.back(), 2590000);  // the whole span, numbered at 360 Hz
}

}  // namespace
