#include "keelhouse/core/shell_word.h"

#include <gtest/gtest.h>

namespace paddock::keelhouse {
namespace {

TEST(ShellWord, staysAsItIsWhereAShellTakesItSo) {
  EXPECT_EQ(shellWord("/srv/a-b_c.d"), "/srv/a-b_c.d");
  EXPECT_EQ(shellWord("host.example:/srv/a"), "host.example:/srv/a");
}

TEST(ShellWord, standsInQuotesWhereItWouldBeTakenApart) {
  EXPECT_EQ(shellWord(""), "''");
  EXPECT_EQ(shellWord("a b"), "'a b'");
  EXPECT_EQ(shellWord("$(reboot);`x`"), "'$(reboot);`x`'");
  EXPECT_EQ(shellWord("it's"), "'it'\\''s'");
  EXPECT_EQ(shellWord("\xC3\xA9"), "'\xC3\xA9'");
}

}  // namespace
}  // namespace paddock::keelhouse
