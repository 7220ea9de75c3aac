// The WFDB reader: header syntax, the two sample formats, annotation files,
// checked against hand-made bytes and a real excerpt of record 100.
#include "wfdb.hpp"

#include <gtest/gtest.h>

#include "errors.hpp"
#include "file_util.hpp"
#include "fixtures.hpp"

namespace {

using namespace keloecg;
using kelo::test::TempDir;

const std::filesystem::path kData = KELO_TOOLS_TEST_DATA;

TEST(Wfdb, Format212UnpacksTwelveBitPairsWithSign) {
  // 0x123 and 0x456: low byte of the first, high nibbles, low byte of the second.
  EXPECT_EQ(wfdb::decode_212(std::vector<std::uint8_t>{0x23, 0x41, 0x56}, 2), (std::vector<int>{0x123, 0x456}));
  // -1 (0xFFF) and -2048 (0x800).
  EXPECT_EQ(wfdb::decode_212(std::vector<std::uint8_t>{0xFF, 0x8F, 0x00}, 2), (std::vector<int>{-1, -2048}));
  // An odd count stops after the first sample of the last pair.
  EXPECT_EQ(wfdb::decode_212(std::vector<std::uint8_t>{0x01, 0x00, 0x02, 0xFF, 0x07}, 3),
            (std::vector<int>{1, 2, 0x7FF}));
  // The test writer packs what the decoder unpacks.
  const std::vector<int> stream = {0, 1, -1, 2047, -2048, 995, 1011, -500, 7};
  EXPECT_EQ(wfdb::decode_212(kelo::test::pack_212(stream), stream.size()), stream);
}

TEST(Wfdb, Format16IsLittleEndianSigned) {
  EXPECT_EQ(wfdb::decode_16(std::vector<std::uint8_t>{0x01, 0x00, 0xFF, 0xFF, 0x00, 0x80, 0x34, 0x12}, 4),
            (std::vector<int>{1, -1, -32768, 0x1234}));
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
  EXPECT_EQ(h.record, "rec");
  EXPECT_EQ(h.signal_count, 3);
  EXPECT_DOUBLE_EQ(h.fs, 360.0);
  EXPECT_EQ(h.samples_per_signal, 7200);
  ASSERT_EQ(h.signals.size(), 3u);

  const auto& a = h.signals[0];
  EXPECT_EQ(a.format, 212);
  EXPECT_DOUBLE_EQ(a.gain, 200.0);
  EXPECT_DOUBLE_EQ(a.baseline, 1024.0);  // no baseline given: the ADC zero
  EXPECT_EQ(a.adc_resolution, 11);
  EXPECT_EQ(a.initial_value, 995);
  EXPECT_EQ(a.checksum, -22131);
  EXPECT_EQ(a.units, "mV");
  EXPECT_EQ(a.description, "MLII");

  const auto& b = h.signals[1];
  EXPECT_EQ(b.format, 16);
  EXPECT_EQ(b.byte_offset, 512);
  EXPECT_DOUBLE_EQ(b.gain, 100.0);
  EXPECT_DOUBLE_EQ(b.baseline, -12.0);
  EXPECT_EQ(b.units, "uV");
  EXPECT_EQ(b.adc_zero, 5);
  EXPECT_EQ(b.description, "chest lead V1");

  const auto& c = h.signals[2];  // everything after the format omitted
  EXPECT_DOUBLE_EQ(c.gain, 200.0);
  EXPECT_EQ(c.adc_resolution, 12);
  EXPECT_FALSE(c.checksum.has_value());

  EXPECT_DOUBLE_EQ(wfdb::parse_header("r 1\nr.dat 16 0\n", "r.hea").signals[0].gain, 200.0);  // gain 0 means 200
  EXPECT_DOUBLE_EQ(wfdb::parse_header("r 0\n", "r.hea").fs, 250.0);                          // default rate
}

TEST(Wfdb, MalformedHeadersNameTheLine) {
  auto message = [](const char* text) {
    try {
      wfdb::parse_header(text, "x.hea");
    } catch (const InputError& e) {
      return std::string(e.what());
    }
    return std::string("no error");
  };
  EXPECT_EQ(message("x 2 360\nx.dat 212\n"), "x.hea: the record line announces 2 signals but only 1 signal lines follow");
  EXPECT_EQ(message("x/2 1 360\n"), "x.hea: line 1: multi-segment records are not supported");
  EXPECT_EQ(message("x 1 fast\n"), "x.hea: line 1: bad sampling frequency \"fast\"");
  EXPECT_EQ(message("x 1 360\n\nx.dat 212 2oo\n"), "x.hea: line 3: bad gain \"2oo\"");
  EXPECT_EQ(message("x 1 360\nx.dat 212q\n"), "x.hea: line 2: bad signal format \"212q\"");
  EXPECT_EQ(message("# only a comment\n"), "x.hea: empty header (no record line)");
}

TEST(Wfdb, AdcRangeGivesTheFullScale) {
  wfdb::SignalLine s;
  s.adc_resolution = 11;
  s.adc_zero = 1024;
  EXPECT_EQ(wfdb::adc_range(s).min, 0);
  EXPECT_EQ(wfdb::adc_range(s).max, 2047);
  s.adc_zero = 0;
  EXPECT_EQ(wfdb::adc_range(s).min, -1024);
  EXPECT_EQ(wfdb::adc_range(s).max, 1023);
}

TEST(Wfdb, RealRecordExcerptReadsWithMatchingChecksums) {
  const auto hea = kData / "mitdb100-10s.hea";
  const auto h = wfdb::parse_header(read_text(hea), "hea");
  const auto mlii = wfdb::read_signal(h, hea, 0);
  const auto v5 = wfdb::read_signal(h, hea, 1);
  EXPECT_TRUE(mlii.warnings.empty());
  EXPECT_TRUE(v5.warnings.empty());
  ASSERT_EQ(mlii.adc.size(), 3600u);
  EXPECT_EQ(mlii.adc.front(), 995);
  EXPECT_EQ(v5.adc.front(), 1011);
  EXPECT_EQ(wfdb::checksum16(mlii.adc), -17352);
}

TEST(Wfdb, DamagedRecordsAreReported) {
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
  EXPECT_THROW(wfdb::read_signal(h, hea, 0), InputError);  // "truncated"
  h.samples_per_signal.reset();
  EXPECT_EQ(wfdb::read_signal(h, hea, 0).adc.size(), 4u);  // no count: as many as the file holds
  h.signals[0].format = 310;
  EXPECT_THROW(wfdb::read_signal(h, hea, 0), InputError);
}

TEST(Wfdb, AnnotationsOfTheRealExcerpt) {
  const auto anns = wfdb::parse_annotations(read_bytes(kData / "mitdb100-10s.atr"), "atr");
  ASSERT_EQ(anns.size(), 14u);
  EXPECT_EQ(anns[0].symbol, "+");
  EXPECT_EQ(anns[0].sample, 18);
  EXPECT_EQ(anns[0].aux, "(N");
  const std::vector<long long> first = {77, 370, 662, 946, 1231};
  for (std::size_t i = 0; i < first.size(); ++i) {
    EXPECT_EQ(anns[i + 1].sample, first[i]);
    EXPECT_EQ(anns[i + 1].symbol, "N");
  }
  EXPECT_EQ(anns[8].symbol, "A");
  EXPECT_EQ(anns[8].sample, 2044);
  EXPECT_EQ(anns.back().sample, 3560);
}

TEST(Wfdb, AnnotationSkipAndModifiers) {
  // N at 5; SKIP 100000 then V 3 later; SUB 2, CHN 1, NUM 7 and an odd AUX
  // on the V; then a '+' 1 later; end.
  std::vector<std::uint8_t> b = {
      5, 1 << 2,                  // N, +5
      0, 59 << 2, 0x01, 0x00, 0xA0, 0x86,  // SKIP 0x000186A0 = 100000
      3, 5 << 2,                  // V, +3
      2, 61 << 2, 1, 62 << 2, 7, 60 << 2,  // SUB 2, CHN 1, NUM 7
      3, 63 << 2, 'a', 'b', 'c', 0,        // AUX "abc" padded to even
      1, 28 << 2,                 // +, +1
      0, 0};
  const auto anns = wfdb::parse_annotations(b, "x");
  ASSERT_EQ(anns.size(), 3u);
  EXPECT_EQ(anns[0].sample, 5);
  EXPECT_EQ(anns[1].sample, 100008);
  EXPECT_EQ(anns[1].symbol, "V");
  EXPECT_EQ(anns[1].subtype, 2);
  EXPECT_EQ(anns[1].chan, 1);
  EXPECT_EQ(anns[1].num, 7);
  EXPECT_EQ(anns[1].aux, "abc");
  EXPECT_EQ(anns[2].sample, 100009);
  EXPECT_EQ(anns[2].chan, 1);  // the channel carries over
  EXPECT_EQ(anns[2].subtype, 0);

  b.resize(18);  // cut inside the AUX bytes
  EXPECT_THROW(wfdb::parse_annotations(b, "x"), InputError);

  // The test writer's SKIP for long gaps reads back.
  TempDir dir;
  kelo::test::write_mit_annotations(dir / "a.atr", {{100, 1}, {650000, 5}});
  const auto far = wfdb::parse_annotations(read_bytes(dir / "a.atr"), "a");
  ASSERT_EQ(far.size(), 2u);
  EXPECT_EQ(far[1].sample, 650000);
}

TEST(Wfdb, BeatSymbols) {
  for (const char* s : {"N", "L", "R", "B", "A", "a", "J", "S", "V", "r", "F", "e", "j", "n", "E", "/", "f", "Q", "?"}) {
    EXPECT_TRUE(wfdb::is_beat_symbol(s)) << s;
  }
  for (const char* s : {"+", "~", "|", "\"", "x", "[", "!", "", "NN"}) EXPECT_FALSE(wfdb::is_beat_symbol(s)) << s;
  EXPECT_EQ(wfdb::code_symbol(1), "N");
  EXPECT_EQ(wfdb::code_symbol(30), "?");
  EXPECT_EQ(wfdb::code_symbol(41), "r");
  EXPECT_EQ(wfdb::code_symbol(55), "");
}

}  // namespace
