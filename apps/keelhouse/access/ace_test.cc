#include "keelhouse/access/ace.h"

#include <gtest/gtest.h>

#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kGuid = "2918733C-ACBF-4C23-AD09-B8FC000003E8";

TEST(AceDictionary, ParsesIntoItsParts) {
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

TEST(AceDictionary, ReadsZeroAsUserAndOneAsGroup) {
  EXPECT_EQ(readAce(Dictionary{{"isUser", 0}}).type, PrincipalType::user);
  EXPECT_EQ(readAce(Dictionary{{"isUser", 1}}).type, PrincipalType::group);
  EXPECT_EQ(readAce(Dictionary{{"isUser", 1061109567}}).type, std::nullopt);
  EXPECT_EQ(readAce(Dictionary{}).type, std::nullopt);
}

TEST(AceDictionary, AcceptsOnlyExactYesOrNo) {
  EXPECT_EQ(readAce(Dictionary{{"allowPermission", "YES"}}).allow, true);
  for (const char* text : {"yes", "", "NO ", "1"}) {
    EXPECT_EQ(readAce(Dictionary{{"allowPermission", text}}).allow, std::nullopt) << text;
  }
}

TEST(AceDictionary, AcceptsTruncatedOrNonDictionaryInput) {
  const Ace cut = readAce(Dictionary{{"displayName", "x"}, {"guid", "y"}});
  EXPECT_EQ(cut.allow, std::nullopt);
  EXPECT_EQ(cut.guid, std::nullopt);
  EXPECT_EQ(cut.guidText, "y");
  EXPECT_EQ(cut.rights, 0U);
  EXPECT_EQ(readAce("text").guidText, "");
}

TEST(AceDictionary, SendsBackOnlyKeysForWriting) {
  EXPECT_EQ(
      sentBack(readAce(Dictionary{{"displayName", "x"},
                                  {"guid", kGuid},
                                  {"allowPermission", "YES"},
                                  {"bitmap", 2},
                                  {"flags", 96},
                                  {"isUser", 1}})),
      (Dictionary{{"guid", kGuid}, {"allowPermission", "YES"}, {"bitmap", 2}, {"flags", 96}}));
}

TEST(AceDictionary, IdentifiesUsersAndGroupsById) {
  EXPECT_EQ(principalKeys({PrincipalType::user, 1000}),
            (Dictionary{{"isUser", 0}, {"uniqueID", 1000}}));
  EXPECT_EQ(principalKeys({PrincipalType::group, 20}),
            (Dictionary{{"isUser", 1}, {"groupID", 20}}));
}

using Kind = PrincipalName::Kind;

TEST(PrincipalNames, ParseAsUserGroupGuidOrEither) {
  const auto check = [](const char* text, Kind kind, const char* name) {
    const PrincipalName read = parsePrincipal(text);
    EXPECT_EQ(read.kind, kind) << text;
    EXPECT_EQ(read.name, name) << text;
  };
  check("user:anna", Kind::user, "anna");
  check("group:domain users", Kind::group, "domain users");
  check("anna", Kind::either, "anna");
  check("User:anna", Kind::either, "User:anna");
  check("user:a:b", Kind::user, "a:b");
  check("2918733c-acbf-4c23-ad09-b8fc000003e8", Kind::guid, "2918733C-ACBF-4C23-AD09-B8FC000003E8");
  check("user:2918733c-acbf-4c23-ad09-b8fc000003e8", Kind::user,
        "2918733c-acbf-4c23-ad09-b8fc000003e8");
}

TEST(PrincipalNames, RoundTripUnchanged) {
  for (const char* text :
       {"user:anna", "group:staff", "anna", "2918733C-ACBF-4C23-AD09-B8FC000003E8"}) {
    EXPECT_EQ(formatPrincipal(parsePrincipal(text)), text);
  }
}

TEST(PrincipalNames, MustBeNonEmptyUtf8) {
  for (const char* text : {"", "user:", "group:", "user:\xFF", "\xC3"}) {
    EXPECT_THROW(parsePrincipal(text), Failure) << text;
  }
}

TEST(TypedEntries, AcceptOneWordOrThree) {
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{"deny", "user:anna", "read,delete:inherit"},
                                             {"deny user:anna read,delete:inherit"},
                                             {"  DENY   user:anna   READ,delete:Inherit  "}}) {
    const auto entries = parseEntries(words);
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_FALSE(entries[0].allow);
    EXPECT_EQ(formatPrincipal(entries[0].who), "user:anna");
    EXPECT_EQ(entries[0].rights, 2698U | 16U);
    EXPECT_EQ(entries[0].inheritance, 96U);
  }
}

TEST(TypedEntries, AcceptSeveralInBothForms) {
  const auto entries =
      parseEntries({"allow", "a", "read", "deny b full:file-inherit", "allow", "group:c", "none"});
  ASSERT_EQ(entries.size(), 3U);
  EXPECT_TRUE(entries[0].allow);
  EXPECT_EQ(entries[0].inheritance, 0U);
  EXPECT_FALSE(entries[1].allow);
  EXPECT_EQ(entries[1].who.name, "b");
  EXPECT_EQ(entries[1].inheritance, 32U);
  EXPECT_EQ(entries[2].who.kind, Kind::group);
  EXPECT_EQ(entries[2].rights, 0U);
}

TEST(TypedEntries, AcceptNamesWithBlanks) {
  EXPECT_EQ(parseEntries({"allow", "group:domain users", "read"})[0].who.name, "domain users");
  EXPECT_EQ(parseEntries({"allow group:domain users read"})[0].who.name, "domain users");
}

TEST(TypedEntries, MayBeEmpty) { EXPECT_TRUE(parseEntries({}).empty()); }

TEST(TypedEntries, RejectMalformedWords) {
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{""},
                                             {"allow"},
                                             {"allow", "user:anna"},
                                             {"permit user:anna read"},
                                             {"allow user:anna"},
                                             {"allow read"},
                                             {"allow  read"},
                                             {"user:anna read"},
                                             {"allow", "user:anna", "reads"},
                                             {"allow", "user:anna", "read:"},
                                             {"allow", "user:anna", ":inherit"},
                                             {"allow", "user:anna", "read:inherit:inherit"},
                                             {"allow", "user:anna", "read:only-inherit"},
                                             {"allow", "user:", "read"},
                                             {"allow", "", "read"},
                                             {"allow user:anna read", "x"}}) {
    EXPECT_THROW(parseEntries(words), Failure) << ::testing::PrintToString(words);
  }
}

}  // namespace

}  // namespace paddock::keelhouse
