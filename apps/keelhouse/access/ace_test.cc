#include "keelhouse/access/ace.h"

#include <gtest/gtest.h>

namespace paddock::keelhouse {
namespace {

constexpr const char* kGuid = "2918733C-ACBF-4C23-AD09-B8FC000003E8";

TEST(AceDictionary, readsAsItsParts) {
  const Ace ace = readAce(Dictionary{{"displayName", "Anna B"},
                                     {"guid", kGuid},
                                     {"allowPermission", "NO"},
                                     {"bitmap", 0xFFFF},
                                     {"flags", 0xFFFF},
                                     {"isUser", 0}});
  EXPECT_EQ(ace.allow, false);
  EXPECT_EQ(ace.guidText, kGuid);
  ASSERT_TRUE(ace.guid);
  EXPECT_EQ(guidText(*ace.guid), kGuid);
  EXPECT_EQ(ace.displayName, "Anna B");
  EXPECT_EQ(ace.type, PrincipalType::user);
  EXPECT_EQ(ace.rights, 0x3FFEU);
  EXPECT_EQ(ace.inheritance, 0x1F0U);
}

TEST(AceDictionary, hasZeroForAUserAndOneForAGroup) {
  EXPECT_EQ(readAce(Dictionary{{"isUser", 0}}).type, PrincipalType::user);
  EXPECT_EQ(readAce(Dictionary{{"isUser", 1}}).type, PrincipalType::group);
  EXPECT_EQ(readAce(Dictionary{{"isUser", 1061109567}}).type, std::nullopt);
  EXPECT_EQ(readAce(Dictionary{}).type, std::nullopt);
}

TEST(AceDictionary, saysYesOrNoExactly) {
  EXPECT_EQ(readAce(Dictionary{{"allowPermission", "YES"}}).allow, true);
  for (const char* text : {"yes", "", "NO ", "1"}) {
    EXPECT_EQ(readAce(Dictionary{{"allowPermission", text}}).allow, std::nullopt) << text;
  }
}

TEST(AceDictionary, mayBeCutShortOrNoDictionary) {
  const Ace cut = readAce(Dictionary{{"displayName", "x"}, {"guid", "y"}});
  EXPECT_EQ(cut.allow, std::nullopt);
  EXPECT_EQ(cut.guid, std::nullopt);
  EXPECT_EQ(cut.guidText, "y");
  EXPECT_EQ(cut.rights, 0U);
  EXPECT_EQ(readAce("text").guidText, "");
}

TEST(AceDictionary, isSentBackWithWhatWritingTakes) {
  EXPECT_EQ(
      sentBack(readAce(Dictionary{{"displayName", "x"},
                                  {"guid", kGuid},
                                  {"allowPermission", "YES"},
                                  {"bitmap", 2},
                                  {"flags", 96},
                                  {"isUser", 1}})),
      (Dictionary{{"guid", kGuid}, {"allowPermission", "YES"}, {"bitmap", 2}, {"flags", 96}}));
}

TEST(AceDictionary, namesUsersAndGroupsByTheirIds) {
  EXPECT_EQ(principalKeys({PrincipalType::user, 1000}),
            (Dictionary{{"isUser", 0}, {"uniqueID", 1000}}));
  EXPECT_EQ(principalKeys({PrincipalType::group, 20}),
            (Dictionary{{"isUser", 1}, {"groupID", 20}}));
}

}  // namespace
}  // namespace paddock::keelhouse
