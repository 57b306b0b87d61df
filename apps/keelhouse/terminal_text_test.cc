#include "keelhouse/terminal_text.h"

#include <gtest/gtest.h>

namespace paddock::keelhouse {
namespace {

TEST(TerminalText, alignsColumnsByCharacters) {
  EXPECT_EQ(formatTable({{"PATH", "NAME"}, {"/srv/\xC3\xA9t\xC3\xA9", "x"}, {"/", "long"}}),
            "PATH      NAME\n/srv/\xC3\xA9t\xC3\xA9  x\n/         long\n");
}

}  // namespace
}  // namespace paddock::keelhouse
