// Reading one lead from every input format. The errors a person meets are
// checked through the program itself (cli_test).
#include <gtest/gtest.h>

#include "annotations.hpp"
#include "errors.hpp"
#include "fixtures.hpp"
#include "recording.hpp"

namespace {

using namespace keloecg;
using kelo::test::TempDir;

const std::filesystem::path kData = KELO_TOOLS_TEST_DATA;

TEST(Formats, WfdbRecordByNameHeaderOrData) {
  for (const char* given : {"mitdb100-10s", "mitdb100-10s.hea", "mitdb100-10s.dat"}) {
    const auto rec = load_recording(kData / given, {});
    EXPECT_EQ(rec.format, "WFDB 212");
    EXPECT_EQ(rec.name, "mitdb100-10s");
    EXPECT_DOUBLE_EQ(rec.fs, 360.0);
    ASSERT_EQ(rec.samples.size(), 3600u);
    EXPECT_DOUBLE_EQ(rec.samples[0], (995 - 1024) / 200.0);
    EXPECT_EQ(rec.lead_name(), "MLII");
    EXPECT_EQ(rec.full_scale, 5.12);  // 11 bits around 1024, gain 200
    ASSERT_TRUE(rec.annotations.has_value());
    EXPECT_EQ(rec.annotations->filename(), "mitdb100-10s.atr");
    EXPECT_TRUE(rec.warnings.empty());  // initial values and checksums match
  }
  LoadOptions o;
  o.lead = "v5";  // names match without regard to case
  const auto v5 = load_recording(kData / "mitdb100-10s", o);
  EXPECT_EQ(v5.samples[0], (1011 - 1024) / 200.0);
  EXPECT_TRUE(v5.warnings.empty());
  o.lead = "1";
  EXPECT_EQ(load_recording(kData / "mitdb100-10s", o).lead_name(), "V5");
}

TEST(Formats, Wfdb16WithInvalidSamplesAndMicrovolts) {
  TempDir dir;
  kelo::test::write_wfdb(dir.path(), "r16", 16, 500, {{-32768, 100, 300, -32768, -200}}, {"ECG"}, 1000, 0, 16);
  auto text = kelo::test::read_file(dir / "r16.hea");
  kelo::test::write_text(dir / "r16.hea", text.replace(text.find("1000(0)"), 7, "1000(0)/uV"));  // 1000 units per uV
  const auto rec = load_recording(dir / "r16.hea", {});
  EXPECT_EQ(rec.format, "WFDB 16");
  // Invalid samples hold the last valid value (the first valid one at the start).
  const std::vector<double> expected = {0.1e-3, 0.1e-3, 0.3e-3, 0.3e-3, -0.2e-3};
  ASSERT_EQ(rec.samples.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) EXPECT_NEAR(rec.samples[i], expected[i], 1e-15);
  EXPECT_EQ(rec.units, "mV");
  EXPECT_EQ(rec.warnings, std::vector<std::string>{"2 invalid samples replaced by the last valid value"});
}

TEST(Formats, EdfAndBdfThroughEdflib) {
  TempDir dir;
  std::vector<double> ecg(750), resp(750, 50.0);
  for (std::size_t i = 0; i < ecg.size(); ++i) ecg[i] = 1000.0 * std::sin(0.01 * static_cast<double>(i));  // uV
  for (bool bdf : {false, true}) {
    const auto path = dir / (bdf ? "r.bdf" : "r.edf");
    kelo::test::write_edf(path, bdf, 250, {resp, ecg}, {"Resp", "ECG II"}, "uV", 5000.0);
    LoadOptions o;
    o.lead = "ECG II";
    const auto rec = load_recording(path, o);
    EXPECT_EQ(rec.format, bdf ? "BDF+" : "EDF+");
    EXPECT_DOUBLE_EQ(rec.fs, 250.0);
    EXPECT_EQ(rec.lead_index, 1);
    ASSERT_EQ(rec.samples.size(), 750u);
    EXPECT_EQ(rec.units, "mV");
    // Digital steps of 10000 uV / 65535 (EDF) are about 0.15 uV.
    for (std::size_t i = 0; i < ecg.size(); i += 37) EXPECT_NEAR(rec.samples[i], ecg[i] / 1000.0, 2e-4);
    EXPECT_EQ(rec.full_scale, 5.0);
  }
  // An EDF file is recognised by its content whatever its name.
  kelo::test::write_edf(dir / "edf.dat", false, 100, {std::vector<double>(200, 0.0)}, {"ECG"}, "mV", 5.0);
  EXPECT_EQ(detect_format(dir / "edf.dat"), "edf");
}

TEST(Formats, CsvColumnsHeadersAndDelimiters) {
  TempDir dir;
  kelo::test::write_text(dir / "a.csv", "# exported\ntime;\"MLII\";V5\n0;0.5;1\n0.005;-0.25;2\n\n0.01;1e-1;3\n");
  LoadOptions o;
  o.fs = 200;
  o.lead = "mlii";
  auto rec = load_recording(dir / "a.csv", o);
  EXPECT_EQ(rec.samples, (std::vector<double>{0.5, -0.25, 0.1}));
  EXPECT_EQ(rec.lead_names, (std::vector<std::string>{"time", "MLII", "V5"}));
  EXPECT_EQ(rec.full_scale, std::nullopt);

  kelo::test::write_text(dir / "b.txt", "  1.5\t2\n -3 4\n");  // no header, white space
  o.lead = "1";
  EXPECT_EQ(load_recording(dir / "b.txt", o).samples, (std::vector<double>{2, 4}));
  o.lead = "";
  EXPECT_EQ(load_recording(dir / "b.txt", o).samples, (std::vector<double>{1.5, -3}));
}

TEST(Formats, RawFloatsWithSidecar) {
  TempDir dir;
  const std::vector<double> x = {0.25, -1.5, 3.0};
  kelo::test::write_raw<float>(dir / "r.f32", x);
  kelo::test::write_raw<double>(dir / "r64.f64", x);
  kelo::test::write_text(dir / "r.info", "fs=360\nfull_scale=4\nlead=II\n");
  const auto rec = load_recording(dir / "r.f32", {});
  EXPECT_EQ(rec.samples, x);
  EXPECT_DOUBLE_EQ(rec.fs, 360.0);
  EXPECT_EQ(rec.full_scale, 4.0);
  EXPECT_EQ(rec.lead_name(), "II");
  LoadOptions o;
  o.fs = 128;  // --fs wins over the sidecar
  EXPECT_DOUBLE_EQ(load_recording(dir / "r.f32", o).fs, 128.0);
  EXPECT_EQ(load_recording(dir / "r64.f64", o).samples, x);
}

TEST(Formats, ReferenceBeatsFromAtrAndText) {
  const auto atr = load_reference_beats(kData / "mitdb100-10s.atr", 360);
  ASSERT_EQ(atr.samples.size(), 13u);  // the rhythm annotation at 18 is not a beat
  EXPECT_EQ(atr.other_annotations, 1u);
  EXPECT_EQ(std::vector(atr.samples.begin(), atr.samples.begin() + 5), (std::vector<std::int64_t>{77, 370, 662, 946, 1231}));
  EXPECT_EQ(std::pair(atr.samples[7], atr.symbols[7]), std::pair(std::int64_t{2044}, std::string("A")));
  EXPECT_EQ(atr.samples.back(), 3560);
  EXPECT_EQ(std::count(atr.symbols.begin(), atr.symbols.end(), "N"), 12);
  EXPECT_DOUBLE_EQ(atr.time_s(0), 77.0 / 360.0);

  TempDir dir;
  kelo::test::write_text(dir / "b.txt", "# sample symbol\n20 V\n10 N\n15 +\n30\n");
  const auto txt = load_reference_beats(dir / "b.txt", 200);
  EXPECT_EQ(txt.samples, (std::vector<std::int64_t>{10, 20, 30}));  // sorted, '+' left out
  EXPECT_EQ(txt.symbols, (std::vector<std::string>{"N", "V", "N"}));
}

}  // namespace
