#include "keelhouse/access/typed_entry.h"

#include <gtest/gtest.h>

#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {
namespace {

using Kind = PrincipalName::Kind;

TEST(PrincipalNames, areAUserAGroupAGuidOrEither) {
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

TEST(PrincipalNames, readBackAsTheyWereWritten) {
  for (const char* text :
       {"user:anna", "group:staff", "anna", "2918733C-ACBF-4C23-AD09-B8FC000003E8"}) {
    EXPECT_EQ(formatPrincipal(parsePrincipal(text)), text);
  }
}

TEST(PrincipalNames, areNeverEmptyAndAlwaysUtf8) {
  for (const char* text : {"", "user:", "group:", "user:\xFF", "\xC3"}) {
    EXPECT_THROW(parsePrincipal(text), Failure) << text;
  }
}

TEST(TypedEntries, areOneWordOrThree) {
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

TEST(TypedEntries, canBeSeveralOfBothForms) {
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

TEST(TypedEntries, takeNamesWithBlanks) {
  EXPECT_EQ(parseEntries({"allow", "group:domain users", "read"})[0].who.name, "domain users");
  EXPECT_EQ(parseEntries({"allow group:domain users read"})[0].who.name, "domain users");
}

TEST(TypedEntries, canBeNone) { EXPECT_TRUE(parseEntries({}).empty()); }

TEST(TypedEntries, areRefusedWhenTheyAreNone) {
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
