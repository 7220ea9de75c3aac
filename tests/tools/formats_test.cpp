// The readers of every input format: WFDB against hand-made bytes and a
// real excerpt of record 100, EDF/BDF, CSV and raw floats, and reference
// beats. The errors a person meets are checked through the program itself
// (cli_test).
#include <gtest/gtest.h>

#include <array>
#include <sstream>

#include "annotations.hpp"
#include "errors.hpp"
#include "file_util.hpp"
#include "fixtures.hpp"
#include "recording.hpp"
#include "wfdb.hpp"

namespace {

using namespace keloecg;
using kelo::test::TempDir;

const std::filesystem::path kData = KELO_TOOLS_TEST_DATA;

Recording load(const std::filesystem::path& p, const std::string& lead = "", std::optional<double> fs = std::nullopt) {
  LoadOptions o;
  o.lead = lead;
  o.fs = fs;
  return load_recording(p, o);
}

TEST(Wfdb, DecodesFormats212And16) {
  // 0x123 and 0x456: low byte of the first, high nibbles, low byte of the second.
  EXPECT_EQ(wfdb::decode_212(std::vector<std::uint8_t>{0x23, 0x41, 0x56}, 2), (std::vector<int>{0x123, 0x456}));
  EXPECT_EQ(wfdb::decode_212(std::vector<std::uint8_t>{0xFF, 0x8F, 0x00}, 2), (std::vector<int>{-1, -2048}));
  // An odd count stops after the first sample of the last pair.
  EXPECT_EQ(wfdb::decode_212(std::vector<std::uint8_t>{0x01, 0x00, 0x02, 0xFF, 0x07}, 3),
            (std::vector<int>{1, 2, 0x7FF}));
  EXPECT_EQ(wfdb::decode_16(std::vector<std::uint8_t>{0x01, 0x00, 0xFF, 0xFF, 0x00, 0x80, 0x34, 0x12}, 4),
            (std::vector<int>{1, -1, -32768, 0x1234}));
}

std::string describe(const wfdb::SignalLine& s) {
  const auto opt = [](std::optional<int> v) { return v ? std::to_string(*v) : "none"; };
  std::ostringstream o;
  o << s.file << " " << s.format << "+" << s.byte_offset << " " << s.gain << "(" << s.baseline << ")/" << s.units
    << " bits " << s.adc_resolution << " zero " << s.adc_zero << " init " << opt(s.initial_value) << " sum "
    << opt(s.checksum) << " [" << s.description << "]";
  return o.str();
}

TEST(Wfdb, HeaderFieldsAndDefaults) {
  const auto h = wfdb::parse_header(
      "# a comment before the record line\n"
      "rec 3 360/1000(0) 7200 10:00:00\n"
      "rec.dat 212 200 11 1024 995 -22131 0 MLII\n"
      "   # a comment between signal lines\n"
      "other.dat 16x1:0+512 100(-12)/uV 16 5 7 3 0 chest lead V1\n"
      "rec.dat 212\n",
      "rec.hea");
  EXPECT_EQ(std::tuple(h.record, h.signal_count, h.fs, h.samples_per_signal.value_or(-1)),
            std::tuple("rec", 3, 360.0, 7200LL));
  ASSERT_EQ(h.signals.size(), 3u);
  // No baseline given: the ADC zero; everything after the format omitted:
  // gain 200, 12 bits, no checksum.
  EXPECT_EQ(describe(h.signals[0]), "rec.dat 212+0 200(1024)/mV bits 11 zero 1024 init 995 sum -22131 [MLII]");
  EXPECT_EQ(describe(h.signals[1]), "other.dat 16+512 100(-12)/uV bits 16 zero 5 init 7 sum 3 [chest lead V1]");
  EXPECT_EQ(describe(h.signals[2]), "rec.dat 212+0 200(0)/mV bits 12 zero 0 init none sum none []");
  EXPECT_DOUBLE_EQ(wfdb::parse_header("r 1\nr.dat 16 0\n", "r.hea").signals[0].gain, 200.0);  // gain 0 means 200
  EXPECT_DOUBLE_EQ(wfdb::parse_header("r 0\n", "r.hea").fs, 250.0);                          // default rate
}

TEST(Wfdb, MalformedHeadersNameTheLine) {
  const std::pair<const char*, const char*> cases[] = {
      {"x 2 360\nx.dat 212\n", "x.hea: the record line announces 2 signals but only 1 signal lines follow"},
      {"x/2 1 360\n", "x.hea: line 1: multi-segment records are not supported"},
      {"x 1 fast\n", "x.hea: line 1: bad sampling frequency \"fast\""},
      {"x 1 360\n\nx.dat 212 2oo\n", "x.hea: line 3: bad gain \"2oo\""},
      {"x 1 360\nx.dat 212q\n", "x.hea: line 2: bad signal format \"212q\""},
      {"# only a comment\n", "x.hea: empty header (no record line)"}};
  for (auto [text, message] : cases) {
    try {
      wfdb::parse_header(text, "x.hea");
      ADD_FAILURE() << "no error for " << text;
    } catch (const InputError& e) {
      EXPECT_EQ(std::string(e.what()), message);
    }
  }
}

TEST(Wfdb, AdcRangeAroundTheAdcZero) {
  wfdb::SignalLine s;
  s.adc_resolution = 11;
  for (auto [zero, lo, hi] : {std::array{1024, 0, 2047}, std::array{0, -1024, 1023}}) {
    s.adc_zero = zero;
    EXPECT_EQ(std::pair(wfdb::adc_range(s).min, wfdb::adc_range(s).max), std::pair(lo, hi)) << zero;
  }
}

TEST(Wfdb, RealExcerptChecksumAndDamagedRecords) {
  const auto real = kData / "mitdb100-10s.hea";
  EXPECT_EQ(wfdb::checksum16(wfdb::read_signal(wfdb::parse_header(read_text(real), "hea"), real, 0).adc), -17352);

  TempDir dir;
  const auto hea = kelo::test::write_wfdb(dir.path(), "r", 212, 360, {{1, 2, 3, 4}}, {"I"});
  auto h = wfdb::parse_header(read_text(hea), "r.hea");
  h.signals[0].checksum = 99;
  h.signals[0].initial_value = 5;
  const auto data = wfdb::read_signal(h, hea, 0);
  ASSERT_EQ(data.warnings.size(), 2u);
  EXPECT_NE(data.warnings[0].find("initial value 5"), std::string::npos);
  EXPECT_NE(data.warnings[1].find("checksum 10 differs from the header's 99"), std::string::npos);

  h.samples_per_signal = 10;
  EXPECT_THROW(wfdb::read_signal(h, hea, 0), InputError);  // truncated
  h.samples_per_signal.reset();
  EXPECT_EQ(wfdb::read_signal(h, hea, 0).adc.size(), 4u);  // no count: as many as the file holds
  h.signals[0].format = 310;
  EXPECT_THROW(wfdb::read_signal(h, hea, 0), InputError);
}

TEST(Wfdb, AnnotationSkipAndModifiers) {
  // N at 5; SKIP 100000 then V 3 later with SUB 2, CHN 1, NUM 7 and an odd
  // AUX; then a '+' 1 later; end.
  std::vector<std::uint8_t> b = {
      5, 1 << 2,                           // N, +5
      0, 59 << 2, 0x01, 0x00, 0xA0, 0x86,  // SKIP 0x000186A0 = 100000
      3, 5 << 2,                           // V, +3
      2, 61 << 2, 1, 62 << 2, 7, 60 << 2,  // SUB 2, CHN 1, NUM 7
      3, 63 << 2, 'a', 'b', 'c', 0,        // AUX "abc" padded to even
      1, 28 << 2,                          // +, +1
      0, 0};
  const auto anns = wfdb::parse_annotations(b, "x");
  ASSERT_EQ(anns.size(), 3u);
  EXPECT_EQ(anns[0].sample, 5);
  const auto& v = anns[1];
  EXPECT_EQ(std::tuple(v.sample, v.symbol, v.subtype, v.chan, v.num, v.aux),
            std::tuple(100008LL, std::string("V"), 2, 1, 7, std::string("abc")));
  EXPECT_EQ(anns[2].sample, 100009);
  EXPECT_EQ(anns[2].chan, 1);  // the channel carries over
  EXPECT_EQ(anns[2].subtype, 0);

  b.resize(18);  // cut inside the AUX bytes
  EXPECT_THROW(wfdb::parse_annotations(b, "x"), InputError);
}

// What the writer encodes the reader decodes: long intervals (SKIP), every
// modifier, codes and their mnemonics both ways.
TEST(Wfdb, AnnotationsWrittenReadBack) {
  std::vector<wfdb::Annotation> anns(5);
  anns[0] = {0, 1, "N", 0, 0, 0, ""};
  anns[1] = {1023, 5, "V", 2, 1, 7, "odd"};
  anns[2] = {1024 + 1023, 28, "+", 0, 1, 7, "(AFIB"};
  anns[3] = {5000000, 1, "N", 0, 0, 0, ""};
  anns[4] = {5000000, 14, "~", 0, 0, 0, ""};
  const std::string bytes = wfdb::encode_annotations(anns);
  const auto read = wfdb::parse_annotations(std::vector<std::uint8_t>(bytes.begin(), bytes.end()), "x");
  ASSERT_EQ(read.size(), anns.size());
  for (std::size_t i = 0; i < anns.size(); ++i) {
    const auto& a = anns[i];
    const auto& b = read[i];
    EXPECT_EQ(std::tuple(a.sample, a.code, a.symbol, a.subtype, a.chan, a.num, a.aux),
              std::tuple(b.sample, b.code, b.symbol, b.subtype, b.chan, b.num, b.aux)) << i;
  }
  for (int code = 1; code < 42; ++code) {
    if (!wfdb::code_symbol(code).empty()) {
      EXPECT_EQ(wfdb::symbol_code(wfdb::code_symbol(code)), code);
    }
  }
  EXPECT_EQ(wfdb::symbol_code("NN"), 0);
  std::swap(anns[0], anns[1]);
  EXPECT_THROW(wfdb::encode_annotations(anns), std::invalid_argument);  // out of order
}

TEST(Wfdb, BeatSymbols) {
  for (const char* s : {"N", "L", "R", "B", "A", "a", "J", "S", "V", "r", "F", "e", "j", "n", "E", "/", "f", "Q", "?"}) {
    EXPECT_TRUE(wfdb::is_beat_symbol(s)) << s;
  }
  for (const char* s : {"+", "~", "|", "\"", "x", "[", "!", "", "NN"}) EXPECT_FALSE(wfdb::is_beat_symbol(s)) << s;
  EXPECT_EQ((std::array{wfdb::code_symbol(1), wfdb::code_symbol(30), wfdb::code_symbol(41), wfdb::code_symbol(55)}),
            (std::array<std::string_view, 4>{"N", "?", "r", ""}));
}

TEST(Formats, WfdbRecordByNameHeaderOrData) {
  for (const char* given : {"mitdb100-10s", "mitdb100-10s.hea", "mitdb100-10s.dat"}) {
    const auto rec = load(kData / given);
    EXPECT_EQ(std::tuple(rec.format, rec.name, rec.fs, rec.lead_name()), std::tuple("WFDB 212", "mitdb100-10s", 360.0, "MLII"));
    ASSERT_EQ(rec.samples.size(), 3600u);
    EXPECT_DOUBLE_EQ(rec.samples[0], (995 - 1024) / 200.0);
    EXPECT_EQ(rec.full_scale, 5.12);  // 11 bits around 1024, gain 200
    ASSERT_TRUE(rec.annotations.has_value());
    EXPECT_EQ(rec.annotations->filename(), "mitdb100-10s.atr");
    EXPECT_TRUE(rec.warnings.empty());  // initial values and checksums match
  }
  const auto v5 = load(kData / "mitdb100-10s", "v5");  // names match without regard to case
  EXPECT_EQ(v5.samples[0], (1011 - 1024) / 200.0);
  EXPECT_TRUE(v5.warnings.empty());
  EXPECT_EQ(load(kData / "mitdb100-10s", "1").lead_name(), "V5");
}

TEST(Formats, Wfdb16WithInvalidSamplesAndMicrovolts) {
  TempDir dir;
  kelo::test::write_wfdb(dir.path(), "r16", 16, 500, {{-32768, 100, 300, -32768, -200}}, {"ECG"}, 1000, 0, 16);
  auto text = kelo::test::read_file(dir / "r16.hea");
  kelo::test::write_text(dir / "r16.hea", text.replace(text.find("1000(0)"), 7, "1000(0)/uV"));  // 1000 units per uV
  const auto rec = load(dir / "r16.hea");
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
    const auto rec = load(path, "ECG II");
    EXPECT_EQ(std::tuple(rec.format, rec.fs, rec.lead_index, rec.units), std::tuple(bdf ? "BDF+" : "EDF+", 250.0, 1, "mV"));
    ASSERT_EQ(rec.samples.size(), 750u);
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
  const auto rec = load(dir / "a.csv", "mlii", 200);
  EXPECT_EQ(rec.samples, (std::vector<double>{0.5, -0.25, 0.1}));
  EXPECT_EQ(rec.lead_names, (std::vector<std::string>{"time", "MLII", "V5"}));
  EXPECT_EQ(rec.full_scale, std::nullopt);

  kelo::test::write_text(dir / "b.txt", "  1.5\t2\n -3 4\n");  // no header, white space
  EXPECT_EQ(load(dir / "b.txt", "1", 200).samples, (std::vector<double>{2, 4}));
  EXPECT_EQ(load(dir / "b.txt", "", 200).samples, (std::vector<double>{1.5, -3}));
}

TEST(Formats, RawFloatsWithSidecar) {
  TempDir dir;
  const std::vector<double> x = {0.25, -1.5, 3.0};
  kelo::test::write_raw<float>(dir / "r.f32", x);
  kelo::test::write_raw<double>(dir / "r64.f64", x);
  kelo::test::write_text(dir / "r.info", "fs=360\nfull_scale=4\nlead=II\n");
  const auto rec = load(dir / "r.f32");
  EXPECT_EQ(std::tuple(rec.samples, rec.fs, rec.full_scale.value_or(0), rec.lead_name()), std::tuple(x, 360.0, 4.0, "II"));
  EXPECT_DOUBLE_EQ(load(dir / "r.f32", "", 128).fs, 128.0);  // --fs wins over the sidecar
  EXPECT_EQ(load(dir / "r64.f64", "", 128).samples, x);
}

// A part of a recording (from_s to to_s) is the same stretch of samples as
// in the whole recording, in every format; WFDB files are read from an odd
// frame of two interleaved signals on.
TEST(Formats, PartsAreTheSameSamplesAsInTheWhole) {
  TempDir dir;
  std::vector<int> a(1001), b(1001);
  std::vector<double> mv(1000);
  for (int i = 0; i < 1001; ++i) a[static_cast<std::size_t>(i)] = (i * 37) % 1500 - 700, b[static_cast<std::size_t>(i)] = -i;
  for (std::size_t i = 0; i < mv.size(); ++i) mv[i] = std::sin(0.1 * static_cast<double>(i));
  kelo::test::write_wfdb(dir.path(), "w212", 212, 100, {b, a}, {"I", "II"});
  kelo::test::write_wfdb(dir.path(), "w16", 16, 100, {a}, {"II"});
  kelo::test::write_raw<float>(dir / "r.f32", mv);
  kelo::test::write_edf(dir / "r.edf", false, 100, {mv}, {"ECG"}, "mV", 5.0);
  std::string csv;
  for (double v : mv) csv += std::to_string(v) + "\n";
  kelo::test::write_text(dir / "r.csv", csv);
  for (const char* name : {"w212.hea", "w16.hea", "r.f32", "r.edf", "r.csv"}) {
    SCOPED_TRACE(name);
    LoadOptions o;
    o.lead = std::string(name) == "w212.hea" ? "II" : "";
    o.fs = std::string(name).starts_with("r.") && std::string(name) != "r.edf" ? std::optional(100.0) : std::nullopt;
    const auto whole = load_recording(dir / name, o);
    o.from_s = 3.33;
    o.to_s = 7.1;
    const auto part = load_recording(dir / name, o);
    EXPECT_EQ(std::tuple(part.first_sample, part.total_samples, part.samples.size()),
              std::tuple(std::int64_t{333}, whole.total_samples, std::size_t{378}));
    EXPECT_TRUE(std::equal(part.samples.begin(), part.samples.end(), whole.samples.begin() + 333));
    o.from_s = 5.0;
    o.to_s.reset();  // to the end
    EXPECT_EQ(load_recording(dir / name, o).samples.size(), whole.samples.size() - 500);
  }
}

// Text beyond a double's range: too small reads as the zero of its sign (a
// subnormal as itself), too large is refused; a sidecar's rate or full scale
// must be a positive finite number.
TEST(Formats, NumbersBeyondTheRangeOfADoubleAndDamagedSidecars) {
  TempDir dir;
  kelo::test::write_text(dir / "tiny.csv", "1e-400\n-1e-400\n0.00000000000000000001e-310\n1e-310\n-7e-99999999999999999999\n");
  const auto tiny = load(dir / "tiny.csv", "", 200).samples;
  EXPECT_EQ(tiny, (std::vector<double>{0.0, 0.0, 0.0, 1e-310, 0.0}));
  const std::vector<bool> negative = {false, true, false, false, true};
  for (std::size_t i = 0; i < tiny.size(); ++i) EXPECT_EQ(std::signbit(tiny[i]), negative[i]) << i;
  for (const char* big : {"1e400", "-1e400", "123456789e301", "0.0001e313", "1e99999999999999999999"}) {
    kelo::test::write_text(dir / "big.csv", std::string("0.5\n") + big + "\n");
    try {
      load(dir / "big.csv", "", 200);
      ADD_FAILURE() << big;
    } catch (const InputError& e) {
      EXPECT_EQ(e.problem(), "line 2: the sample is infinite") << big;
    }
  }

  kelo::test::write_raw<float>(dir / "r.f32", {0.25, -1.5});
  for (const char* key : {"fs", "full_scale"}) {
    for (const char* value : {"1e-400", "0", "-5", "1e400", "inf", "abc", ""}) {
      kelo::test::write_text(dir / "r.info", std::string("fs=360\nfull_scale=4\n") + key + "=" + value + "\n");
      try {
        load(dir / "r.f32");
        ADD_FAILURE() << key << "=" << value;
      } catch (const InputError& e) {
        EXPECT_EQ(e.file(), (dir / "r.info").string());
        EXPECT_EQ(e.problem(), std::string(key) + " \"" + value + "\" is not a positive finite number");
      }
    }
  }
}

// A header and nothing after it, without a final newline, is an input
// error (it once read past the end of the text).
TEST(Formats, AHeaderAloneIsAnInputError) {
  TempDir dir;
  for (const char* text : {"time,ecg", "ecg", "time;ecg\n"}) {
    kelo::test::write_text(dir / "h.csv", text);
    EXPECT_THROW(load(dir / "h.csv", "", 200), InputError) << text;
  }
}

// A file that held more bytes when it was opened than can be read has
// shrunk meanwhile: an error, not a shorter recording.
TEST(Formats, AFileThatShrinksWhileReadIsAnError) {
  std::istringstream whole("abcd"), cut("abc");
  EXPECT_EQ(read_all(whole, 4, "x.f32").size(), 4u);
  EXPECT_EQ(read_all(whole, std::nullopt, "x.f32").size(), 0u);  // size unknown: what is there
  try {
    read_all(cut, 4, "x.f32");
    ADD_FAILURE() << "no error";
  } catch (const InputError& e) {
    EXPECT_EQ(std::string(e.what()), "x.f32: the file shrank while being read (4 bytes when opened, 3 read)");
  }
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
