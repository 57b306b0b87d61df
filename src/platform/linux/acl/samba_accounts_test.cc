#include "platform/linux/acl/samba_accounts.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "base/principal.h"
#include "platform/linux/acl/sid_forms.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* kUsers =
    "---------------\n"
    "Unix username:        root\nNT username:          \nAccount Flags:        [U          ]\n"
    "User SID:             S-1-5-21-1-2-3-1000\nPrimary Group SID:    S-1-5-21-1-2-3-513\n"
    "Full Name:            User SID: S-1-5-21-9-9-9-9\n"
    "---------------\n"
    "Unix username:        gone\nUser SID:             S-1-5-21-1-2-3-1001\n"
    "Primary Group SID:    (NULL SID)\n";

nt_acl::Sid sid(const char* text) { return *nt_acl::parseSid(text); }

TEST(SambaUsers, AreReadFromWhatIsPrinted) {
  EXPECT_THAT(
      parseSambaUsers(kUsers),
      ElementsAre(SambaAccount{"root", sid("S-1-5-21-1-2-3-1000"), sid("S-1-5-21-1-2-3-513")},
                  SambaAccount{"gone", sid("S-1-5-21-1-2-3-1001"), std::nullopt}));
  EXPECT_THAT(parseSambaUsers("User SID: S-1-5-21-1-2-3-1000\nUnix username: x\n"), IsEmpty());
  EXPECT_THAT(parseSambaUsers(""), IsEmpty());
}

TEST(SambaGroups, AreReadFromWhatIsPrinted) {
  EXPECT_THAT(parseSambaGroups("Users (all) (S-1-5-32-545) -> users\n"
                               "x (S-1-5-21-1-2-3-1005) -> 4711\nbroken\n(S-1) -> y\n"),
              ElementsAre(SambaGroup{sid("S-1-5-32-545"), "users"},
                          SambaGroup{sid("S-1-5-21-1-2-3-1005"), "4711"}));
}

TEST(SambaParameters, AreFoundByName) {
  EXPECT_EQ(sambaParameter("[global]\n\tprivate dir = /a b/c\n\tx = y\n", "private dir"), "/a b/c");
  EXPECT_EQ(sambaParameter("[global]\n", "private dir"), "");
}

// Programs in the place of Samba's, in a tree.
class SambaPrograms : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(folder_.path("usr/bin"));
    script("testparm", "[global]\n\tprivate dir = " + folder_.path() +
                           "\n\tpassdb backend = tdbsam\n"
                           "\tstate directory = " +
                           folder_.path() + "\n");
    script("pdbedit", kUsers);
  }
  void script(const std::string& name, const std::string& text) const {
    const std::string path = folder_.path("usr/bin/" + name);
    writeWholeFile(
        path, "#!/bin/sh\necho run >>" + folder_.path("runs") + "\ncat <<'END'\n" + text + "END\n");
    ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
  }
  void makeDatabase() const { writeWholeFile(folder_.path("secrets.tdb"), ""); }

  TestFolder folder_;
};

TEST_F(SambaPrograms, AnswerWhoASidIs) {
  makeDatabase();
  SambaAccountSids sids(std::make_shared<SambaAccountReader>(folder_.path()));
  Principal principal;
  ASSERT_EQ(sids.principalOf(sid("S-1-5-21-1-2-3-1000"), principal), 0);
  EXPECT_EQ(principal, (Principal{PrincipalType::user, 0}));
  EXPECT_EQ(sids.principalOf(sid("S-1-5-21-1-2-3-1001"), principal), ENOENT);
  EXPECT_EQ(sids.principalOf(sid("S-1-5-21-4-5-6-1000"), principal), ENOENT);
}

TEST_F(SambaPrograms, AreAskedOnceInAWhile) {
  makeDatabase();
  SambaAccountReader reader(folder_.path());
  std::string why;
  ASSERT_TRUE(reader.read(why));
  ASSERT_TRUE(reader.read(why));
  EXPECT_EQ(readWholeFile(folder_.path("runs")), "run\nrun\n");
}

TEST_F(SambaPrograms, AreNotRunWithoutServerDatabase) {
  SambaAccountReader reader(folder_.path());
  std::string why;
  EXPECT_FALSE(reader.read(why));
  EXPECT_THAT(why, HasSubstr("secrets.tdb is missing"));
  EXPECT_EQ(readWholeFile(folder_.path("runs")), "run\n");
}

TEST_F(SambaPrograms, ThatAreMissingAreSaid) {
  SambaAccountReader reader(folder_.path("nothing"));
  std::string why;
  EXPECT_FALSE(reader.read(why));
  EXPECT_THAT(why, HasSubstr("testparm: No such file or directory"));
}

TEST_F(SambaPrograms, TellGroupsOfTheHost) {
  makeDatabase();
  writeWholeFile(folder_.path("group_mapping.tdb"), "");
  script("net", "Roots (S-1-5-21-1-2-3-1005) -> root\n");
  SambaAccountSids sids(std::make_shared<SambaAccountReader>(folder_.path()));
  Principal principal;
  ASSERT_EQ(sids.principalOf(sid("S-1-5-21-1-2-3-1005"), principal), 0);
  EXPECT_EQ(principal, (Principal{PrincipalType::group, 0}));
}

TEST(WellKnownPrincipals, HaveTheGuidsOfTheirSids) {
  for (const WellKnownPrincipal& one : kWellKnownPrincipals)
    EXPECT_EQ(guidText(nt_acl::foreignGuid(sid(std::string(one.sid).c_str()))), one.guid)
        << one.sid;
}

}  // namespace
}  // namespace paddock
