#include "keelhouse/propagate/pushed_parts.h"

#include <gtest/gtest.h>

namespace paddock::keelhouse {
namespace {

TEST(PushedParts, areNamedInTheOrderOfTheirBits) {
  EXPECT_EQ(pushedWords(63), "owner, group, owner-perm, group-perm, world-perm, acl");
  EXPECT_EQ(pushedWords(33), "owner, acl");
}

TEST(PushedParts, noneAreNothing) {
  EXPECT_EQ(pushedWords(0), "nothing");
  EXPECT_EQ(pushedWords(64), "nothing");
}

}  // namespace
}  // namespace paddock::keelhouse
