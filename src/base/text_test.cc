#include "base/text.h"

#include <gtest/gtest.h>

namespace paddock {
namespace {

TEST(ParseIntegerTest, ReadsAnOptionalSignAndDigits) {
  EXPECT_EQ(parseInteger("0"), 0);
  EXPECT_EQ(parseInteger("-12"), -12);
  EXPECT_EQ(parseInteger("+12"), 12);
  EXPECT_EQ(parseInteger("9223372036854775807"), INT64_MAX);
}

TEST(ParseIntegerTest, RefusesEverythingElse) {
  for (const char* text : {"", "-", "+", "+-1", " 1", "1 ", "0x1", "1.0", "9223372036854775808"}) {
    EXPECT_EQ(parseInteger(text), std::nullopt) << text;
  }
}

TEST(Utf8Test, AcceptsWellFormedText) {
  for (const char* text : {"", "abc", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
                           "\xED\x9F\xBF", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_TRUE(isValidUtf8(text)) << text;
  }
}

TEST(Utf8Test, RefusesIllFormedText) {
  for (const char* text :
       {"\x80", "\xC3", "\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xED\xA0\x80", "\xF0\x80\x80\x80",
        "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "a\xC3", "\xE2\x82", "\xC3\x28"}) {
    EXPECT_FALSE(isValidUtf8(text)) << testing::PrintToString(text);
  }
}

TEST(Utf8Test, FindsOneIllFormedByteAnywhereInLongText) {
  for (std::size_t length = 0; length < 40; ++length) {
    for (std::size_t at = 0; at < length; ++at) {
      std::string text(length, 'a');
      text.insert(at, "\xC3\xA9");
      EXPECT_TRUE(isValidUtf8(text)) << length << " " << at;
      text[at] = 'a';
      EXPECT_FALSE(isValidUtf8(text)) << length << " " << at;
    }
  }
}

TEST(Utf8Test, CountsAndCutsByCharacters) {
  const std::string_view text = "a\xC3\xA9\xF0\x9F\x98\x80z";
  EXPECT_EQ(utf8Length(text), 4U);
  EXPECT_EQ(utf8Prefix(text, 0), "");
  EXPECT_EQ(utf8Prefix(text, 2), "a\xC3\xA9");
  EXPECT_EQ(utf8Prefix(text, 3), "a\xC3\xA9\xF0\x9F\x98\x80");
  EXPECT_EQ(utf8Prefix(text, 9), text);
}

}  // namespace
}  // namespace paddock
