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

TEST(Output, TemplatePlaceholdersAreFilledOnceInOrder) {
  const std::string t = "<title>{{A}}</title><style>/*{{B}}*/</style>{{C}}";
  // Inserted text that looks like a placeholder is left alone.
  EXPECT_EQ(fill_template(t, {{"A", "x"}, {"B", "{{C}}"}, {"C", "z"}}), "<title>x</title><style>{{C}}</style>z");
  EXPECT_THROW(fill_template(t, {{"B", "1"}, {"A", "2"}}), std::logic_error);  // out of order
}

TEST(Output, CsvFieldsAreQuotedWhenNeeded) {
  EXPECT_EQ(csv_line({"a", "b c", "d,e", "say \"hi\"", ""}), "a,b c,\"d,e\",\"say \"\"hi\"\"\",\n");
}

TEST(Output, ClockTextIsCutToTenths) {
  EXPECT_EQ(clock_text(0), "0:00.0");
  EXPECT_EQ(clock_text(1805.56), "30:05.5");
  EXPECT_EQ(clock_text(179.99), "2:59.9");
  EXPECT_EQ(clock_text(300), "5:00.0");
  EXPECT_EQ(clock_text(-61.25), "-1:01.2");
  EXPECT_EQ(clock_text(1e300), "1e+300 s");
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
