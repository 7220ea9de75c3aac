// Pieces of the outputs that are easy to get subtly wrong: base64 of the
// report's samples, template filling, CSV quoting, clock texts.
#include <gtest/gtest.h>

#include "output.hpp"
#include "report.hpp"
#include "text_util.hpp"

namespace {

using namespace keloecg;

TEST(Output, Base64OfTheStandardVectors) {
  const std::pair<const char*, const char*> cases[] = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}};
  for (auto [in, out] : cases) EXPECT_EQ(base64(in, std::strlen(in)), out) << in;
  const unsigned char high[] = {0xFF, 0xFE, 0x00};
  EXPECT_EQ(base64(high, 3), "//4A");
}

// The report's difference code, decoded as the page decodes it, gives the
// samples back in whole steps: small and large differences, signs, and
// the largest magnitudes.
TEST(Output, DifferenceCodeDecodesToTheSteps) {
  const std::vector<double> x = {0.0, 0.127, 0.0, -0.128, 5.0, 4.9995, -1e9, 1e9, 0.001, 0.0015, -0.0015};
  const std::string code = difference_code(x, 0.001);
  std::vector<long long> decoded;
  long long v = 0;
  for (std::size_t p = 0; p < code.size();) {
    int d = static_cast<std::int8_t>(code[p++]);
    if (d == -128) {
      std::uint32_t w = 0;
      for (int b = 0; b < 4; ++b) w |= static_cast<std::uint32_t>(static_cast<unsigned char>(code[p++])) << (8 * b);
      d = static_cast<std::int32_t>(w);
    }
    decoded.push_back(v += d);
  }
  EXPECT_EQ(decoded, (std::vector<long long>{0, 127, 0, -128, 5000, 5000, -1073741823, 1073741823, 1, 2, -2}));
  EXPECT_EQ(code.size(), 11u + 4 * 5);  // five differences beyond one byte
}

TEST(Output, TemplatePlaceholdersAreFilledOnceInOrder) {
  const std::string t = "<title>{{A}}</title><style>/*{{B}}*/</style>{{C}}";
  // Inserted text that looks like a placeholder is left alone.
  EXPECT_EQ(fill_template(t, {{"A", "x"}, {"B", "{{C}}"}, {"C", "z"}}), "<title>x</title><style>{{C}}</style>z");
  EXPECT_THROW(fill_template(t, {{"B", "1"}, {"A", "2"}}), std::logic_error);  // out of order
}

TEST(Output, CsvFieldsAreQuotedWhenNeeded) {
  EXPECT_EQ(csv_line({"a", "b c", "d,e", "say \"hi\"", ""}), "a,b c,\"d,e\",\"say \"\"hi\"\"\",\n");
}

TEST(Output, ClockTextsAreCutToTenthsAndReadBack) {
  EXPECT_EQ(clock_text(0), "0:00.0");
  EXPECT_EQ(clock_text(1805.56), "30:05.5");
  EXPECT_EQ(clock_text(179.99), "2:59.9");
  EXPECT_EQ(clock_text(300), "5:00.0");
  EXPECT_EQ(clock_text(-61.25), "-1:01.2");
  EXPECT_EQ(clock_text(1e300), "1e+300 s");
  // From an hour on, h:mm:ss (a day of ECG once printed as 1444:26.8).
  EXPECT_EQ(clock_text(3600), "1:00:00.0");
  EXPECT_EQ(clock_text(86666.88), "24:04:26.8");
  EXPECT_EQ(clock_text(3599.99), "59:59.9");
  EXPECT_EQ(clock_text(1.2345, 3), "0:01.234");
  // And back: seconds or [h:]mm:ss.
  const std::pair<const char*, double> read[] = {{"90", 90}, {"5.5", 5.5}, {"1:30", 90}, {"1:00:00.5", 3600.5}, {"0:00:00", 0}};
  for (auto [text, seconds] : read) EXPECT_EQ(parse_clock(text), seconds) << text;
  for (const char* bad : {"", "-5", "1:60", "1:2:3:4", "1.5:00", "abc", "1:", ":30", "inf"}) EXPECT_EQ(parse_clock(bad), std::nullopt) << bad;
}

TEST(Output, ValidationTableTotalsTheRecords) {
  Validation a, b;
  a.record = "100";
  a.match.counts = {100, 2, 1};
  b.record = "101";
  b.match.counts = {50, 0, 3};
  const auto text = validation_text({a, b});
  EXPECT_NE(text.find("100               102      101      100      2      1    98.04    99.01    98.52"), std::string::npos) << text;
  EXPECT_NE(text.find("total             152      154      150      2      4    98.68    97.40    98.04"), std::string::npos) << text;
  const auto csv = validation_csv({a, b});
  EXPECT_NE(csv.find("total,152,154,150,2,4,0.9868421053,0.974025974,0.9803921569"), std::string::npos) << csv;
}

}  // namespace
