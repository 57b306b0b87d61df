#include "base/printable.h"

#include <gtest/gtest.h>

namespace paddock {
namespace {

TEST(Printable, escapesControlsAndWhatIsNotUtf8) {
  EXPECT_EQ(printable("a\x1B[31m\n\t\x7F"), "a\\x1B[31m\\x0A\\x09\\x7F");
  EXPECT_EQ(printable("\xC2\x9B"), "\\xC2\\x9B");
  EXPECT_EQ(printable("\xFFz\xE6\xBC"), "\\xFFz\\xE6\\xBC");
  EXPECT_EQ(printable(std::string_view("a\0b", 3)), "a\\x00b");
}

TEST(Printable, escapesWhatReordersTheTextBehindIt) {
  // In two parts, so that they turn no line of this file around.
  const std::string general = "\xE2\x80";
  const std::string isolating = "\xE2\x81";
  EXPECT_EQ(printable("a" + general + "\xAEgpj.exe"), "a\\xE2\\x80\\xAEgpj.exe");
  for (const std::string& reordering : {general + "\xA8", general + "\xA9", general + "\xAA",
                                        isolating + "\xA6", isolating + "\xA9"}) {
    EXPECT_EQ(printable(reordering).size(), 12U) << reordering;
  }
}

TEST(Printable, leavesTextThatIsWrittenFromRightToLeft) {
  for (const char* text :
       {"\xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D", "\xD8\xA7\xD9\x84", "\xE2\x80\x8F", "\xE2\x80\xA7",
        "\xE2\x80\xAF", "\xE2\x81\xA5", "\xE2\x81\xAA", "\xF0\x9F\x93\x81"}) {
    EXPECT_EQ(printable(text), text);
  }
}

TEST(Printable, leavesOtherCharacters) {
  EXPECT_EQ(printable("/srv/\xC3\xA9 \xE6\xBC\xA2\xC2\xA0\\"),
            "/srv/\xC3\xA9 \xE6\xBC\xA2\xC2\xA0\\");
}

TEST(Printable, keepsLineFeedsInMessages) {
  EXPECT_EQ(printableLines("a\nb\r\x1B"), "a\nb\\x0D\\x1B");
}

}  // namespace
}  // namespace paddock
