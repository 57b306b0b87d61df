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

TEST(Printable, leavesOtherCharacters) {
  EXPECT_EQ(printable("/srv/\xC3\xA9 \xE6\xBC\xA2\xC2\xA0\\"),
            "/srv/\xC3\xA9 \xE6\xBC\xA2\xC2\xA0\\");
}

TEST(Printable, keepsLineFeedsInMessages) {
  EXPECT_EQ(printableLines("a\nb\r\x1B"), "a\nb\\x0D\\x1B");
}

}  // namespace
}  // namespace paddock
