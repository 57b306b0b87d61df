#include "base/text_table.h"

#include <gtest/gtest.h>

namespace paddock {
namespace {

TEST(TerminalText, alignsColumnsByCharacters) {
  EXPECT_EQ(formatTable({{"PATH", "NAME"}, {"/srv/\xC3\xA9t\xC3\xA9", "x"}, {"/", "long"}}),
            "PATH      NAME\n/srv/\xC3\xA9t\xC3\xA9  x\n/         long\n");
}

}  // namespace
}  // namespace paddock
