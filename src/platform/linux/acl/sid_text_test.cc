#include "platform/linux/acl/sid_text.h"

#include <gtest/gtest.h>

namespace paddock::nt_acl {
namespace {

TEST(SidText, IsDecimalWithHyphens) {
  EXPECT_EQ(sidText({22, {1, 1000}}), "S-1-22-1-1000");
  EXPECT_EQ(sidText({1, {0}}), "S-1-1-0");
  EXPECT_EQ(sidText({5, {}}), "S-1-5");
  EXPECT_EQ(sidText({0xFFFFFFFF, {0xFFFFFFFF}}), "S-1-4294967295-4294967295");
}

TEST(SidText, ALargeAuthorityIsHexadecimal) {
  EXPECT_EQ(sidText({0x100000000, {1}}), "S-1-0x000100000000-1");
  EXPECT_EQ(sidText({0xFFFFFFFFFFFF, {}}), "S-1-0xffffffffffff");
}

TEST(SidText, ReadsWhatItWrites) {
  for (const Sid& sid :
       {Sid{22, {2, 100}}, Sid{5, {21, 1, 2, 3, 1104}}, Sid{0, {}},
        Sid{0x506164646F63, {1, 2, 3, 4}}, Sid{5, std::vector<std::uint32_t>(15, 0xFFFFFFFF)}})
    EXPECT_EQ(parseSid(sidText(sid)), sid) << sidText(sid);
}

TEST(SidText, ReadsAHexadecimalAuthorityWithoutLeadingZerosToo) {
  EXPECT_EQ(parseSid("S-1-0x10000000016-1"), (Sid{0x10000000016, {1}}));
  EXPECT_EQ(parseSid("S-1-0x5-1"), (Sid{5, {1}}));
}

TEST(SidText, RefusesEverythingElse) {
  for (const char* text : {"",
                           "S",
                           "S-1",
                           "S-1-",
                           "S-2-5-18",
                           "s-1-5-18",
                           "S-1-5-",
                           "S-1-5--18",
                           "S-1-5-18-",
                           " S-1-5-18",
                           "S-1-5-18 ",
                           "S-1-5-+1",
                           "S-1-5--1",
                           "S-1-5-4294967296",
                           "S-1-4294967296-1",
                           "S-1-0x-1",
                           "S-1-0x+5-1",
                           "S-1-0X5-1",
                           "S-1-0x0000000000000-1",
                           "S-1-0x00000000000g-1",
                           "S-1-5-0x10",
                           "S-1-5-a",
                           "S-1-5-1-2-3-4-5-6-7-8-9-10-11-12-13-14-15-16"})
    EXPECT_EQ(parseSid(text), std::nullopt) << text;
}

}  // namespace
}  // namespace paddock::nt_acl
