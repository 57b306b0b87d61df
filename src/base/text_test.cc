#include "base/text.h"

#include <gtest/gtest.h>

namespace paddock {

namespace {

TEST(ParseInteger, ReadsAnOptionalSignAndDigits) {
  EXPECT_EQ(parseInteger("0"), 0);
  EXPECT_EQ(parseInteger("-12"), -12);
  EXPECT_EQ(parseInteger("+12"), 12);
  EXPECT_EQ(parseInteger("9223372036854775807"), INT64_MAX);
}

TEST(ParseInteger, RefusesEverythingElse) {
  for (const char* text : {"", "-", "+", "+-1", " 1", "1 ", "0x1", "1.0", "9223372036854775808"}) {
    EXPECT_EQ(parseInteger(text), std::nullopt) << text;
  }
}

TEST(Utf8, AcceptsWellFormedText) {
  for (const char* text : {"", "abc", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
                           "\xED\x9F\xBF", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_TRUE(isValidUtf8(text)) << text;
  }
}

TEST(Utf8, RefusesIllFormedText) {
  for (const char* text :
       {"\x80", "\xC3", "\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xED\xA0\x80", "\xF0\x80\x80\x80",
        "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "a\xC3", "\xE2\x82", "\xC3\x28"}) {
    EXPECT_FALSE(isValidUtf8(text)) << testing::PrintToString(text);
  }
}

TEST(Utf8, FindsIllFormedByteAnywhereInLongText) {
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

TEST(Utf8, CountsAndCutsByCharacters) {
  const std::string_view text = "a\xC3\xA9\xF0\x9F\x98\x80z";
  EXPECT_EQ(utf8Length(text), 4U);
  EXPECT_EQ(utf8Prefix(text, 0), "");
  EXPECT_EQ(utf8Prefix(text, 2), "a\xC3\xA9");
  EXPECT_EQ(utf8Prefix(text, 3), "a\xC3\xA9\xF0\x9F\x98\x80");
  EXPECT_EQ(utf8Prefix(text, 9), text);
}

TEST(Printable, EscapesControlCharactersAndInvalidUtf8) {
  EXPECT_EQ(printable("a\x1B[31m\n\t\x7F"), "a\\x1B[31m\\x0A\\x09\\x7F");
  EXPECT_EQ(printable("\xC2\x9B"), "\\xC2\\x9B");
  EXPECT_EQ(printable("\xFFz\xE6\xBC"), "\\xFFz\\xE6\\xBC");
  EXPECT_EQ(printable(std::string_view("a\0b", 3)), "a\\x00b");
}

TEST(Printable, EscapesTextReorderingCharacters) {
  // In two parts, so that they turn no line of this file around.
  const std::string general = "\xE2\x80";
  const std::string isolating = "\xE2\x81";
  EXPECT_EQ(printable("a" + general + "\xAEgpj.exe"), "a\\xE2\\x80\\xAEgpj.exe");
  for (const std::string& reordering :
       {general + "\x8E", general + "\x8F", general + "\xA8", general + "\xA9", general + "\xAA",
        isolating + "\xA6", isolating + "\xA9"}) {
    EXPECT_EQ(printable(reordering).size(), 12U) << printable(reordering);
    EXPECT_TRUE(isUnprintable(reordering)) << printable(reordering);
  }
  EXPECT_EQ(printable("\xD8\x9C"), "\\xD8\\x9C");
}

// In ISO 8859 terminals such a byte alone begins a control sequence.
TEST(Printable, EscapesEveryHighControlAsCharacterAndAsLoneByte) {
  for (int code = 0x80; code < 0xA0; ++code) {
    const std::string byte(1, static_cast<char>(code));
    EXPECT_EQ(printable(byte).size(), 4U) << code;
    EXPECT_EQ(printable("\xC2" + byte).size(), 8U) << code;
  }
}

TEST(Printable, KeepsRightToLeftText) {
  for (const char* text :
       {"\xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D", "\xD8\xA7\xD9\x84", "\xE2\x80\x8D", "\xE2\x80\xA7",
        "\xE2\x80\xAF", "\xE2\x81\xA5", "\xE2\x81\xAA", "\xF0\x9F\x93\x81"}) {
    EXPECT_EQ(printable(text), text);
  }
}

TEST(Printable, KeepsOtherCharacters) {
  EXPECT_EQ(printable("/srv/\xC3\xA9 \xE6\xBC\xA2\xC2\xA0\\"),
            "/srv/\xC3\xA9 \xE6\xBC\xA2\xC2\xA0\\");
}

TEST(Printable, KeepsLineFeedsInMessages) {
  EXPECT_EQ(printableLines("a\nb\r\x1B"), "a\nb\\x0D\\x1B");
}

TEST(TerminalText, AlignsColumnsByCharacters) {
  EXPECT_EQ(formatTable({{"PATH", "NAME"}, {"/srv/\xC3\xA9t\xC3\xA9", "x"}, {"/", "long"}}),
            "PATH      NAME\n/srv/\xC3\xA9t\xC3\xA9  x\n/         long\n");
}

}  // namespace

}  // namespace paddock
