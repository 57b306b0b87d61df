#include "platform/accounts.h"

#include <gtest/gtest.h>

namespace paddock {
namespace {

TEST(GroupEntry, MemberlessGroupTakesItsLineAndTwoPointers) {
  EXPECT_EQ(groupEntrySize("grp", 250, {}), 16U + 16U) << "grp:x:250:";
  EXPECT_EQ(groupEntrySize("com.veltro.access_backup", 250, {}), 40U + 16U);
}

TEST(GroupEntry, EachMemberTakesItsNameAndAPointer) {
  EXPECT_EQ(groupEntrySize("grp", 250, {"anna"}), 16U + 24U) << "grp:x:250:anna";
  EXPECT_EQ(groupEntrySize("grp", 250, {"anna", "b"}), 24U + 32U) << "grp:x:250:anna,b";
}

TEST(GroupEntry, ByteBeyondAlignmentTakesAnotherPointer) {
  EXPECT_EQ(groupEntrySize("grp", 250, {"1234"}), 16U + 24U);
  EXPECT_EQ(groupEntrySize("grp", 250, {"12345"}), 24U + 24U);
}

TEST(GroupEntry, ALargerIdTakesItsDigits) {
  EXPECT_EQ(groupEntrySize("grp", 4294967294, {}), 24U + 16U) << "grp:x:4294967294:";
}

}  // namespace
}  // namespace paddock
