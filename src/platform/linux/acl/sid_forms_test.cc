#include "platform/linux/acl/sid_forms.h"

#include <gtest/gtest.h>

namespace paddock::nt_acl {

namespace {

Guid guidOf(const char* text) { return parseGuid(text).value(); }

TEST(SidForms, UsersAndGroupsHaveSambasUnixSids) {
  const Principal user{PrincipalType::user, 1000};
  const Principal group{PrincipalType::group, 4294967295U};
  EXPECT_EQ(sidText(unixSid(user)), "S-1-22-1-1000");
  EXPECT_EQ(sidText(unixSid(group)), "S-1-22-2-4294967295");
  EXPECT_EQ(unixPrincipal(unixSid(user)), user);
  EXPECT_EQ(unixPrincipal(unixSid(group)), group);
}

TEST(SidForms, OtherSidsNameNoUnixPrincipal) {
  for (const char* text :
       {"S-1-22", "S-1-22-1", "S-1-22-0-5", "S-1-22-3-5", "S-1-22-1-5-5", "S-1-5-1-5", "S-1-1-0"})
    EXPECT_EQ(unixPrincipal(parseSid(text).value()), std::nullopt) << text;
}

TEST(SidForms, GuidIsFourSubAuthoritiesOfOwnAuthority) {
  const Guid guid = guidOf("00112233-4455-6677-8899-AABBCCDDEEFF");
  EXPECT_EQ(guidSid(guid), (Sid{0x506164646F63, {0x00112233, 0x44556677, 0x8899AABB, 0xCCDDEEFF}}));
  EXPECT_EQ(sidText(guidSid(guid)), "S-1-0x506164646f63-1122867-1146447479-2291772091-3437096703");
  EXPECT_EQ(sidGuid(guidSid(guid)), guid);
}

TEST(SidForms, OtherSidsHoldNoGuid) {
  EXPECT_EQ(sidGuid(markerSid()), std::nullopt);
  EXPECT_EQ(sidGuid({kOwnAuthority, {1, 2, 3}}), std::nullopt);
  EXPECT_EQ(sidGuid({kOwnAuthority, {1, 2, 3, 4, 5}}), std::nullopt);
  EXPECT_EQ(sidGuid({5, {1, 2, 3, 4}}), std::nullopt);
}

TEST(SidForms, TheMarkerIsOfTheOwnAuthority) {
  EXPECT_EQ(sidText(markerSid()), "S-1-0x506164646f63-0");
}

// Made with: printf '\x01\x01\0\0\0\0\0\x01\0\0\0\0' | sha256sum, and so on.
TEST(SidForms, ForeignSidHasGuidOfItsHash) {
  EXPECT_EQ(guidText(foreignGuid({1, {0}})), "5349443A-85A0-85C3-9E19-9D2B4E6E0C32");
  EXPECT_EQ(guidText(foreignGuid({5, {21, 1, 2, 3, 1104}})),
            "5349443A-0133-858E-A213-BC0335A00E2B");
}

TEST(SidForms, AForeignGuidIsKnownByItsForm) {
  for (std::uint32_t number = 0; number < 1000; ++number)
    EXPECT_TRUE(isForeignGuid(foreignGuid({5, {21, number}}))) << number;
  EXPECT_FALSE(isForeignGuid({}));
  EXPECT_FALSE(isForeignGuid(computedGuid({PrincipalType::user, 0})));
  EXPECT_FALSE(isForeignGuid(guidOf("5349443A-0000-4000-8000-000000000000")));
  EXPECT_FALSE(isForeignGuid(guidOf("5349443A-0000-8000-4000-000000000000")));
  EXPECT_FALSE(isForeignGuid(guidOf("5349443B-0000-8000-8000-000000000000")));
  EXPECT_TRUE(isForeignGuid(guidOf("5349443A-0000-8000-8000-000000000000")));
}

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
