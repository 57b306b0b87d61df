// Group membership with a directory server of the site: members by name and by entry, nested
// groups, and a server that does not answer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "platform/directory.h"
#include "platform/linux/accounts/directory_group_membership.h"
#include "platform/linux/directory/linux_directory.h"
#include "support/slapd_server.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Ids that no account of the host has.
constexpr std::uint32_t kAnna = 2'011'000'001;
constexpr std::uint32_t kBert = 2'011'000'002;

class LdapGroupMembership : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = whyNoSlapd(); !why.empty()) GTEST_SKIP() << why;
    slapd_.emplace();
    for (const auto& [name, uid] : {std::pair{"anna", kAnna}, std::pair{"bert", kBert}})
      slapd_->add(std::string("dn: uid=") + name + "," + SlapdServer::kPeople +
                  "\nobjectClass: inetOrgPerson\nobjectClass: posixAccount\nuid: " + name +
                  "\ncn: x\nsn: x\nuidNumber: " + std::to_string(uid) +
                  "\ngidNumber: 2012000000\nhomeDirectory: /\n");
    LdapOptions options = slapd_->nodeOptions("site");
    options.timeout = std::chrono::seconds(1);
    directory_.emplace(LinuxDirectoryOptions{.databasePath = folder_.path("directory.sqlite"),
                                             .adminGroup = "x",
                                             .ldap = {options},
                                             .pam = std::nullopt});
    membership_.emplace(*directory_, hostGroups_);
  }

  static std::string user(const std::string& name) {
    return "uid=" + name + "," + SlapdServer::kPeople;
  }
  static std::string group(const std::string& name) {
    return "cn=" + name + "," + SlapdServer::kGroups;
  }
  void addPosixGroup(const std::string& name, std::uint32_t gid, const std::string& member) {
    slapd_->add("dn: " + group(name) + "\nobjectClass: posixGroup\ncn: " + name +
                "\ngidNumber: " + std::to_string(gid) + "\nmemberUid: " + member + "\n");
  }
  void addGroupOfNames(const std::string& name, const std::vector<std::string>& members) {
    std::string entry = "dn: " + group(name) + "\nobjectClass: groupOfNames\ncn: " + name + "\n";
    for (const std::string& member : members) entry += "member: " + member + "\n";
    slapd_->add(entry);
  }
  void addLocalGroup(const std::string& name, const Dictionary& attributes) {
    directory_->openLocal()
        ->localNode()
        ->newRecord(name, schema::kGroups)
        ->setAttributesAndValues(attributes);
  }
  // "NAME", or "NAME around NAME".
  std::vector<std::string> groupsOf(std::uint32_t uid) {
    UserMembership found;
    EXPECT_EQ(membership_->membershipOf(uid, found), 0) << found.error;
    std::vector<std::string> texts;
    for (const HoldingGroup& one : found.groups)
      texts.push_back(one.name + (one.through ? " around " + found.groups[*one.through].name : ""));
    return texts;
  }

  TestFolder folder_;
  std::optional<SlapdServer> slapd_;
  std::optional<LinuxDirectoryService> directory_;
  NssUserGroups hostGroups_;
  std::optional<DirectoryGroupMembership> membership_;
};

TEST_F(LdapGroupMembership, PrimaryDirectAndNestedGroupsCount) {
  addPosixGroup("everybody", 2012000000, "nobody");
  addPosixGroup("staff", 2012000001, "anna");
  addGroupOfNames("editors", {user("bert"), user("anna")});
  addGroupOfNames("site", {group("editors")});
  addGroupOfNames("world", {group("site"), user("nobody")});
  addGroupOfNames("others", {user("bert")});
  EXPECT_THAT(groupsOf(kAnna), ElementsAre("everybody", "staff", "editors", "site around editors",
                                           "world around site"));
  EXPECT_THAT(groupsOf(kBert), ElementsAre("everybody", "editors", "others", "site around editors",
                                           "world around site"));
}

TEST_F(LdapGroupMembership, GroupsThatHoldOneAnotherAreNoError) {
  addGroupOfNames("a", {user("anna"), group("b")});
  addGroupOfNames("b", {group("a")});
  EXPECT_THAT(groupsOf(kAnna), ElementsAre("", "a", "b around a"));
}

TEST_F(LdapGroupMembership, SiteGroupMayBeNestedInLocalGroup) {
  addPosixGroup("staff", 2012000001, "anna");
  UserMembership found;
  ASSERT_EQ(membership_->membershipOf(kAnna, found), 0);
  ASSERT_EQ(found.groups.size(), 2U);
  addLocalGroup("local", {{schema::kPrimaryGroupID, "2012000009"},
                          {schema::kNestedGroups, Array{guidText(found.groups[1].guids.front())}}});
  EXPECT_THAT(groupsOf(kAnna), ElementsAre("", "staff", "local around staff"));
}

TEST_F(LdapGroupMembership, SilentServerFailsAfterOneTimeout) {
  addPosixGroup("staff", 2012000001, "anna");
  for (int number = 0; number < 100; ++number)
    addLocalGroup("g" + std::to_string(number),
                  {{schema::kPrimaryGroupID, std::to_string(2012001000 + number)},
                   {schema::kGroupMembership, Array{"anna"}}});
  slapd_->freeze();
  UserMembership found;
  const auto began = std::chrono::steady_clock::now();
  EXPECT_EQ(membership_->membershipOf(kAnna, found), ETIMEDOUT) << found.error;
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(20));
  EXPECT_THAT(found.groups, IsEmpty());
  EXPECT_THAT(found.error, ::testing::HasSubstr("/LDAP/site"));
  slapd_->thaw();
}

TEST_F(LdapGroupMembership, AServerThatIsGoneIsAnError) {
  slapd_->stop();
  UserMembership found;
  EXPECT_NE(membership_->membershipOf(kAnna, found), 0);
  EXPECT_THAT(found.groups, IsEmpty());
  EXPECT_NE(found.error, "");
}

}  // namespace
}  // namespace paddock
