#include "platform/linux/accounts/account_lines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class FakeHost : public HostAccounts {
 public:
  void add(PrincipalType type, const std::string& name, std::uint32_t id) {
    ids_[{type, name}] = id;
  }
  std::optional<std::uint32_t> idOf(PrincipalType type, const std::string& name) override {
    const auto found = ids_.find({type, name});
    return found != ids_.end() ? std::optional(found->second) : std::nullopt;
  }
  bool has(const Principal& principal) override {
    for (const auto& [key, id] : ids_)
      if (key.first == principal.type && id == principal.id) return true;
    return false;
  }

 private:
  std::map<std::pair<PrincipalType, std::string>, std::uint32_t> ids_;
};

UserRecord user(const std::string& name, const std::string& id) {
  UserRecord record;
  record.names = {name};
  record.id = id;
  return record;
}
GroupRecord group(const std::string& name, const std::string& id,
                  const std::vector<std::string>& members = {}) {
  return {{name}, id, members};
}

class AccountLineWriting : public ::testing::Test {
 protected:
  AccountLines lines() { return accountLines(records_, host_); }
  // The lines of one user alone.
  AccountLines linesOf(const UserRecord& record) { return accountLines({{record}, {}}, host_); }
  void expectLeftOut(const UserRecord& record, const std::string& why) {
    const AccountLines lines = linesOf(record);
    EXPECT_EQ(lines.passwd + lines.shadow, "") << why;
    ASSERT_EQ(lines.remarks.size(), 1U) << why;
    EXPECT_THAT(lines.remarks.front(), HasSubstr(why));
  }
  void expectWritten(const UserRecord& record) {
    const AccountLines lines = linesOf(record);
    EXPECT_THAT(lines.passwd, HasSubstr(record.names.front() + ":x:"));
    EXPECT_THAT(lines.remarks, IsEmpty());
  }

  AccountRecords records_;
  FakeHost host_;
};

TEST_F(AccountLineWriting, AUserHasEveryFieldOfItsRecord) {
  UserRecord anna = user("anna", "5001");
  anna.group = "5100";
  anna.realName = "Anna Ahrens, room 5";
  anna.home = "/srv/home/anna";
  anna.shell = "/bin/bash";
  anna.passwordHash = "$y$j9T$salt$hash";
  const AccountLines lines = linesOf(anna);
  EXPECT_EQ(lines.passwd, "anna:x:5001:5100:Anna Ahrens, room 5:/srv/home/anna:/bin/bash\n");
  EXPECT_EQ(lines.shadow, "anna:$y$j9T$salt$hash:::::::\n");
  EXPECT_EQ(lines.group, "");
  EXPECT_THAT(lines.remarks, IsEmpty());
}

TEST_F(AccountLineWriting, UserWithNameAndIdCannotLogIn) {
  const AccountLines lines = linesOf(user("anna", "5001"));
  EXPECT_EQ(lines.passwd, "anna:x:5001:65534::/nonexistent:/usr/sbin/nologin\n");
  EXPECT_EQ(lines.shadow, "anna:*:::::::\n");
}

TEST_F(AccountLineWriting, EmptyPathsAreAbsentOnes) {
  UserRecord anna = user("anna", "5001");
  anna.home = "";
  anna.shell = "";
  EXPECT_EQ(linesOf(anna).passwd, "anna:x:5001:65534::/nonexistent:/usr/sbin/nologin\n");
}

TEST_F(AccountLineWriting, PasswordIsWrittenOnlyForLoginShells) {
  UserRecord anna = user("anna", "5001");
  anna.passwordHash = "$y$hash";
  for (const char* shell : {"/usr/sbin/nologin", "/sbin/nologin", "/bin/false"}) {
    anna.shell = shell;
    EXPECT_EQ(linesOf(anna).shadow, "anna:*:::::::\n") << shell;
  }
  anna.shell = "/bin/sh";
  EXPECT_EQ(linesOf(anna).shadow, "anna:$y$hash:::::::\n");
  anna.passwordHash.reset();
  EXPECT_EQ(linesOf(anna).shadow, "anna:*:::::::\n");
}

TEST_F(AccountLineWriting, WhatIsNoHashIsNotWritten) {
  UserRecord anna = user("anna", "5001");
  anna.shell = "/bin/sh";
  for (const std::string hash : {"", "a:b", "a\nroot", "a b", "\xc3\xa4"}) {
    anna.passwordHash = hash;
    EXPECT_EQ(linesOf(anna).shadow, "anna:*:::::::\n") << hash;
  }
}

TEST_F(AccountLineWriting, AGroupHasItsMembersByName) {
  records_.users = {user("anna", "5001"), user("bert", "5002")};
  records_.groups = {group("staff", "5100", {"anna", "bert"}), group("empty", "5101")};
  EXPECT_EQ(lines().group, "staff:x:5100:anna,bert\nempty:x:5101:\n");
}

TEST_F(AccountLineWriting, MemberIsWrittenOnceByFirstRecordName) {
  UserRecord anna = user("anna", "5001");
  anna.names = {"anna", "Anna Ahrens"};
  records_.users = {anna};
  records_.groups = {group("staff", "5100", {"ANNA", "anna ahrens", "anna"})};
  EXPECT_EQ(lines().group, "staff:x:5100:anna\n");
}

TEST_F(AccountLineWriting, MemberWithoutRecordKeepsGivenName) {
  records_.groups = {group("staff", "5100", {"root", "Somebody Else"})};
  EXPECT_EQ(lines().group, "staff:x:5100:root,Somebody Else\n");
  EXPECT_THAT(lines().remarks, IsEmpty());
}

TEST_F(AccountLineWriting, OnlyUnwritableMemberIsOmitted) {
  records_.groups = {group("staff", "5100", {"a,b", "anna", "c:d", "e\nroot:x:0:", "", "+"})};
  EXPECT_EQ(lines().group, "staff:x:5100:anna\n");
  EXPECT_EQ(lines().remarks.size(), 5U);
}

TEST_F(AccountLineWriting, MemberNamedLikeOtherHostAccountIsOmitted) {
  host_.add(PrincipalType::user, "anna", 1000);
  records_.users = {user("anna", "5001")};
  records_.groups = {group("staff", "5100", {"anna"})};
  EXPECT_EQ(lines().group, "staff:x:5100:\n");
  EXPECT_THAT(lines().remarks,
              ElementsAre("user \"anna\" is left out: the host has a user of this name",
                          "group \"staff\": its member \"anna\" is left out"));
}

TEST_F(AccountLineWriting, AMemberWhoIsTheHostsOwnStays) {
  host_.add(PrincipalType::user, "anna", 1000);
  records_.users = {user("anna", "1000")};
  records_.groups = {group("staff", "5100", {"Anna"})};
  EXPECT_EQ(lines().group, "staff:x:5100:anna\n");
}

TEST_F(AccountLineWriting, MemberRecordWithoutIdMeansHostAccount) {
  UserRecord root = user("root", "");
  root.id.reset();
  records_.users = {root};
  records_.groups = {group("staff", "5100", {"root"})};
  EXPECT_EQ(lines().group, "staff:x:5100:root\n");
}

TEST_F(AccountLineWriting, MemberWithOmittedRecordIsOmitted) {
  UserRecord anna = user("anna", "5001");
  anna.home = "nowhere";
  records_.users = {anna};
  records_.groups = {group("staff", "5100", {"anna"})};
  EXPECT_EQ(lines().group, "staff:x:5100:\n");
}

TEST_F(AccountLineWriting, ARecordWithoutAnIdIsNoAccount) {
  UserRecord anna = user("anna", "");
  anna.id.reset();
  records_.users = {anna};
  records_.groups = {{{"staff"}, std::nullopt, {}}};
  EXPECT_EQ(lines().passwd + lines().shadow + lines().group, "");
  EXPECT_THAT(lines().remarks, IsEmpty());
}

TEST_F(AccountLineWriting, IdsThatAreNoneAreLeftOut) {
  expectLeftOut(user("anna", "0"), "its id is 0, and those below 500 are the host's own");
  expectLeftOut(user("anna", "00"), "its id is 0,");
  for (const char* id :
       {"", "-1", "4294967295", "4294967296", "99999999999999999999", "5001 ", "0x10", "5001\n0"})
    expectLeftOut(user("anna", id), "is no id");
  expectWritten(user("anna", "4294967294"));
}

TEST_F(AccountLineWriting, GroupsIdsAreJudgedAlike) {
  for (const char* id : {"0", "-1", "4294967295", "x"}) {
    records_.groups = {group("staff", id)};
    EXPECT_EQ(lines().group, "") << id;
    EXPECT_EQ(lines().remarks.size(), 1U) << id;
  }
}

TEST_F(AccountLineWriting, InvalidPrimaryGroupOmitsUser) {
  UserRecord anna = user("anna", "5001");
  anna.group = "0";
  expectLeftOut(anna, "its PrimaryGroupID is 0,");
  anna.group = "staff";
  expectLeftOut(anna, "PrimaryGroupID \"staff\" is no id");
}

TEST_F(AccountLineWriting, FileBreakingNamesAreOmitted) {
  for (const std::string name : {"", "a:b", "a\nb", "a\tb", "a\x7f", "a\xc2\x85", "+anna", "-anna",
                                 "+", "#anna", "a,b", "a/b", " anna", "anna ", "5001", ".", ".."}) {
    expectLeftOut(user(name, "5001"), "its name cannot be that of a user");
    records_.groups = {group(name, "5100")};
    EXPECT_EQ(lines().group, "") << name;
    EXPECT_THAT(lines().remarks.front(), HasSubstr("its name cannot be that of a group"));
  }
  expectLeftOut(user(std::string(256, 'a'), "5001"), "its name cannot be that of a user");
}

TEST_F(AccountLineWriting, OtherNamesAreWritten) {
  for (const std::string name : {"a", "com.veltro.access_backup", "J\xc3\xbcrgen", "Domain User",
                                 "a-b+c#d", "5a", "...", "a@example"})
    expectWritten(user(name, "5001"));
  expectWritten(user(std::string(255, 'a'), "5001"));
}

TEST_F(AccountLineWriting, OnlyUnwritableRealNameIsOmitted) {
  UserRecord anna = user("anna", "5001");
  for (const char* name : {"a:b", "a\nroot::0:0:::", "a\x01"}) {
    anna.realName = name;
    const AccountLines lines = linesOf(anna);
    EXPECT_EQ(lines.passwd, "anna:x:5001:65534::/nonexistent:/usr/sbin/nologin\n");
    EXPECT_EQ(lines.remarks.size(), 1U);
  }
}

TEST_F(AccountLineWriting, InvalidPathOmitsUser) {
  for (const char* path : {"home", "/a:b", "/a\nb", "/a\x7f", " /a"}) {
    UserRecord anna = user("anna", "5001");
    anna.home = path;
    expectLeftOut(anna, "NFSHomeDirectory");
    anna.home.reset();
    anna.shell = path;
    expectLeftOut(anna, "UserShell");
  }
}

TEST_F(AccountLineWriting, WhatTheHostHasIsLeftOut) {
  host_.add(PrincipalType::user, "anna", 1000);
  host_.add(PrincipalType::group, "staff", 50);
  expectLeftOut(user("anna", "5001"), "the host has a user of this name");
  expectLeftOut(user("bert", "1000"), "the host has a user with the id 1000");
  records_.groups = {group("staff", "5100"), group("crew", "50"), group("anna", "1000")};
  EXPECT_EQ(lines().group, "anna:x:1000:\n") << "users and groups do not concern each other";
  EXPECT_EQ(lines().remarks.size(), 2U);
  expectWritten(user("Anna", "5001"));
}

TEST_F(AccountLineWriting, TheFirstRecordOfAnIdHasIt) {
  records_.users = {user("anna", "5001"), user("bert", "5001"), user("carl", "5002")};
  const AccountLines lines = this->lines();
  EXPECT_EQ(lines.passwd,
            "anna:x:5001:65534::/nonexistent:/usr/sbin/nologin\n"
            "carl:x:5002:65534::/nonexistent:/usr/sbin/nologin\n");
  EXPECT_THAT(lines.remarks,
              ElementsAre("user \"bert\" is left out: an earlier record has the id 5001"));
}

TEST_F(AccountLineWriting, OmittedRecordDoesNotClaimItsId) {
  UserRecord anna = user("anna", "5001");
  anna.shell = "sh";
  records_.users = {anna, user("bert", "5001")};
  EXPECT_THAT(lines().passwd, HasSubstr("bert:x:5001:"));
}

TEST_F(AccountLineWriting, TheOrderIsThatOfTheRecords) {
  records_.users = {user("z", "5009"), user("a", "5001"), user("m", "5005")};
  records_.groups = {group("z", "5009"), group("a", "5001")};
  EXPECT_THAT(lines().passwd, ::testing::MatchesRegex("z:.*\na:.*\nm:.*\n"));
  EXPECT_EQ(lines().group, "z:x:5009:\na:x:5001:\n");
}

TEST_F(AccountLineWriting, IdsBelow500AreTheHostsOwn) {
  UserRecord anna = user("anna", "499");
  anna.group = "100";
  UserRecord bert = user("bert", "5001");
  bert.group = "42";
  UserRecord carl = user("carl", "500");
  carl.group = "100";
  records_.users = {anna, bert, carl};
  records_.groups = {group("backup", "250", {"carl"}), group("people", "100"),
                     group("first", "500")};
  const AccountLines lines = this->lines();
  EXPECT_EQ(lines.passwd, "carl:x:500:100::/nonexistent:/usr/sbin/nologin\n");
  EXPECT_EQ(lines.group, "first:x:500:\n");
  EXPECT_THAT(
      lines.remarks,
      ElementsAre("user \"anna\" is left out: its id is 499, and those below 500 are the "
                  "host's own",
                  "user \"bert\" is left out: its PrimaryGroupID is 42, and those below 500 "
                  "are the host's own",
                  HasSubstr("group \"backup\" is left out: its id is 250,"),
                  HasSubstr("group \"people\" is left out: its id is 100,")));
}

constexpr const char* kPrivileged[] = {"admin", "wheel",  "docker", "lxd",        "libvirt",
                                       "disk",  "shadow", "sudo",   "root",       "adm",
                                       "kvm",   "kmem",   "incus",  "incus-admin"};

// A container's owner is root of the host; a package that comes later takes the group that is
// there.
TEST_F(AccountLineWriting, GroupsAsGoodAsRootAreNeverMade) {
  for (const std::string name : kPrivileged) {
    records_.groups = {group(name, "5100", {"anna"})};
    EXPECT_EQ(lines().group, "") << name;
    ASSERT_EQ(lines().remarks.size(), 1U) << name;
    EXPECT_EQ(lines().remarks.front(),
              "group \"" + name +
                  "\" is left out: members of a group of this name can become root on most hosts");
  }
  for (const std::string name : {"Docker", "WHEEL"}) {
    records_.groups = {group(name, "5100", {"anna"})};
    EXPECT_EQ(lines().group, "") << name;
  }
  records_.groups = {group("dockers", "5100"), group("my-admin", "5101")};
  EXPECT_EQ(lines().group, "dockers:x:5100:\nmy-admin:x:5101:\n");
}

TEST_F(AccountLineWriting, NobodysPrimaryGroupIsOneAsGoodAsRoot) {
  UserRecord anna = user("anna", "5001");
  anna.group = "998";
  anna.shell = "/bin/sh";
  anna.passwordHash = "$y$hash";
  for (const std::string name : kPrivileged) {
    host_ = FakeHost();
    expectWritten(anna);
    host_.add(PrincipalType::group, name, 998);
    expectLeftOut(anna, "its PrimaryGroupID 998 is that of the host's group \"" + name + "\"");
  }
  host_ = FakeHost();
  host_.add(PrincipalType::group, "video-editors", 998);
  expectWritten(anna);
}

TEST_F(AccountLineWriting, MembersOfHostsPrivilegedGroupsAreNotAdded) {
  host_.add(PrincipalType::group, "docker", 998);
  records_.users = {user("anna", "5001")};
  // By its name, by its number, and as a group that has the other names too.
  GroupRecord alias = group("crew", "998", {"anna"});
  alias.names = {"crew", "docker"};
  GroupRecord second = group("docker", "5100", {"anna"});
  second.names = {"docker", "crew"};
  for (const GroupRecord& attack : {group("docker", "998", {"anna"}), alias, second}) {
    records_.groups = {attack};
    EXPECT_EQ(lines().group, "") << attack.names.front();
  }
}

TEST_F(AccountLineWriting, RemarksCanBeShown) {
  expectLeftOut(user("a\x1b[2J", "5001"), "user \"a\\x1B[2J\" is left out");
}

}  // namespace
}  // namespace paddock
