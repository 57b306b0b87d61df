#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "wire/json.h"

namespace paddock::wire {
namespace {

using namespace std::string_view_literals;

TEST(JsonWriter, WritesCompactTextWithOrderedKeys) {
  const Value value = Dictionary{
      {"b", Array{1, true, "x"}}, {"a", Dictionary{}}, {"c", Array{}}, {"d", Data{{'f'}}}};
  EXPECT_EQ(writeJson(value), R"({"a":{},"b":[1,true,"x"],"c":[],"d":{"$data":"Zg=="}})");
}

TEST(JsonWriter, WritesPrettyText) {
  const Value value =
      Dictionary{{"a", Array{1, Dictionary{{"k", "v"}}}}, {"d", Data{{'f'}}}, {"e", Array{}}};
  EXPECT_EQ(writeJsonPretty(value),
            "{\n  \"a\": [\n    1,\n    {\n      \"k\": \"v\"\n    }\n  ],\n"
            "  \"d\": {\"$data\": \"Zg==\"},\n  \"e\": []\n}");
}

TEST(JsonWriter, WritesSignedStatusesAndFullIntegerRanges) {
  EXPECT_EQ(writeJson(-1), "-1");
  EXPECT_EQ(writeJson(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
  EXPECT_EQ(writeJson(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
  EXPECT_EQ(writeJson(Value()), "null");
}

TEST(JsonWriter, EscapesQuotesBackslashesAndControls) {
  EXPECT_EQ(quoteJson("a\"b\\c\b\f\n\r\t\x01\x1F/"), R"("a\"b\\c\b\f\n\r\t\u0001\u001f/")");
  EXPECT_EQ(quoteJson("\0"sv), R"("\u0000")");
  EXPECT_EQ(quoteJson("\x7F\xC2\x9B\xC2\xA0"), "\"\\u007f\\u009b\xC2\xA0\"");
}

// Names in audit lines and in what "--json" prints come from anybody.
TEST(JsonWriter, EscapesTextReorderingCharacters) {
  // In two parts, so that they turn no line of this file around.
  const std::string general = "\xE2\x80";
  const std::string isolating = "\xE2\x81";
  EXPECT_EQ(quoteJson("a" + general + "\xAE" + "b" + isolating + "\xA6"), R"("a\u202eb\u2066")");
  EXPECT_EQ(quoteJson(general + "\x8E" + general + "\x8F\xD8\x9C"), R"("\u200e\u200f\u061c")");
  EXPECT_EQ(quoteJson(general + "\xA8" + general + "\xAA" + isolating + "\xA9"),
            R"("\u2028\u202a\u2069")");
  EXPECT_EQ(quoteJson("\xE2\x80\x8D\xD8\xA7"), "\"\xE2\x80\x8D\xD8\xA7\"");
}

TEST(JsonWriter, PreservesUtf8) {
  EXPECT_EQ(quoteJson("\xC3\xA9\xE6\xBC\xA2\xF0\x9F\x90\x8E"),
            "\"\xC3\xA9\xE6\xBC\xA2\xF0\x9F\x90\x8E\"");
}

TEST(JsonWriter, ReplacesEachInvalidByte) {
  EXPECT_EQ(quoteJson("a\xFFz"), "\"a\xEF\xBF\xBDz\"");
  EXPECT_EQ(quoteJson("\xE6\xBC"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\"");
}

TEST(JsonWriter, PreservesDictionaryShapedLikeData) {
  EXPECT_EQ(writeJson(Dictionary{{"$data", "Zg=="}}), R"({"$data":"Zg=="})");
}

}  // namespace
}  // namespace paddock::wire
