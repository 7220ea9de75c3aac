// The WFDB reader against hand-made bytes and a real excerpt of record 100.
#include "wfdb.hpp"

#include <gtest/gtest.h>

#include <array>
#include <sstream>

#include "errors.hpp"
#include "file_util.hpp"
#include "fixtures.hpp"

namespace {

using namespace keloecg;

const std::filesystem::path kData = KELO_TOOLS_TEST_DATA;

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
  EXPECT_EQ(h.record, "rec");
  EXPECT_EQ(h.signal_count, 3);
  EXPECT_DOUBLE_EQ(h.fs, 360.0);
  EXPECT_EQ(h.samples_per_signal, 7200);
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

  kelo::test::TempDir dir;
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

TEST(Wfdb, BeatSymbols) {
  for (const char* s : {"N", "L", "R", "B", "A", "a", "J", "S", "V", "r", "F", "e", "j", "n", "E", "/", "f", "Q", "?"}) {
    EXPECT_TRUE(wfdb::is_beat_symbol(s)) << s;
  }
  for (const char* s : {"+", "~", "|", "\"", "x", "[", "!", "", "NN"}) EXPECT_FALSE(wfdb::is_beat_symbol(s)) << s;
  EXPECT_EQ((std::array{wfdb::code_symbol(1), wfdb::code_symbol(30), wfdb::code_symbol(41), wfdb::code_symbol(55)}),
            (std::array<std::string_view, 4>{"N", "?", "r", ""}));
}

}  // namespace
