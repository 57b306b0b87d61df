// Group membership over several nodes and the host, and what it costs them.
#include "platform/linux/accounts/directory_group_membership.h"

#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>

#include <algorithm>
#include <cerrno>
#include <random>
#include <set>

#include "base/guid.h"
#include "platform/directory.h"
#include "platform/linux/accounts/node_groups.h"
#include "platform/linux/directory/linux_directory.h"
#include "platform/linux/process/case_fold.h"
#include "platform/testing/fault_plan.h"
#include "platform/testing/forwarding_directory.h"
#include "platform/testing/in_memory_directory.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::uint32_t kAnna = 5001;
constexpr std::uint32_t kBert = 5002;
constexpr const char* kSite = "/LDAP/site";

class HostGroups final : public UserGroups {
 public:
  int groupsOf(std::uint32_t uid, std::vector<std::uint32_t>& gids) override {
    gids = uid == kAnna ? anna : std::vector<std::uint32_t>();
    return error;
  }
  std::vector<std::uint32_t> anna;
  int error = 0;
};

Guid guidNumber(std::uint32_t number) {
  Guid guid = *parseGuid("DEADBEEF-0000-4000-8000-000000000000");
  guid.bytes[14] = static_cast<std::uint8_t>(number >> 8U);
  guid.bytes[15] = static_cast<std::uint8_t>(number);
  return guid;
}
std::string guidTextOf(std::uint32_t number) { return guidText(guidNumber(number)); }
std::string computedText(std::uint32_t gid) {
  return guidText(computedGuid({PrincipalType::group, gid}));
}

class NestedGroupMembership : public ::testing::Test {
 protected:
  void SetUp() override {
    directory_.addNode("/System", "ReadOnly");
    directory_.addNode(kSite, "ReadWrite");
  }
  void addUser(const std::string& node, const std::string& name, std::uint32_t uid,
               Dictionary attributes = {}) {
    attributes.set(schema::kUniqueID, std::to_string(uid));
    directory_.addRecord(node, schema::kUsers, name, attributes);
  }
  void addGroup(const std::string& node, const std::string& name, const Dictionary& attributes) {
    directory_.addRecord(node, schema::kGroups, name, attributes);
  }
  static Dictionary group(std::uint32_t gid, const Dictionary& more = {}) {
    Dictionary attributes = more;
    attributes.set(schema::kPrimaryGroupID, std::to_string(gid));
    return attributes;
  }

  UserMembership membershipOf(std::uint32_t uid) {
    UserMembership membership;
    EXPECT_EQ(membership_.membershipOf(uid, membership), 0) << membership.error;
    EXPECT_EQ(directory_.openSessions(), 0);
    return membership;
  }
  // "GID NODE", or a GUID where there is no gid.
  std::vector<std::string> groupsOf(std::uint32_t uid) {
    std::vector<std::string> texts;
    for (const HoldingGroup& one : membershipOf(uid).groups)
      texts.push_back((one.gid ? std::to_string(*one.gid) : guidText(one.guids.front())) + " " +
                      one.node);
    return texts;
  }
  // Through a directory in which the plan's call fails.
  int tryWith(FaultPlan& plan, UserMembership& membership) {
    ForwardingDirectory faulty(directory_, plan);
    return DirectoryGroupMembership(faulty, hostGroups_).membershipOf(kAnna, membership);
  }

  InMemoryDirectory directory_{caseFold};
  HostGroups hostGroups_;
  DirectoryGroupMembership membership_{directory_, hostGroups_};
};

TEST_F(NestedGroupMembership, FindsGroupsOfEveryNodeAndHost) {
  addUser("/Local", "anna", kAnna, {{schema::kPrimaryGroupID, "10"}});
  addUser("/System", "anna", kAnna, {{schema::kPrimaryGroupID, "20"}});
  addUser(kSite, "anna", kAnna, {{schema::kPrimaryGroupID, "30"}});
  hostGroups_.anna = {20, 21};
  addGroup("/Local", "l", group(11, {{schema::kGroupMembership, Array{"anna"}}}));
  addGroup(kSite, "s", group(31, {{schema::kGroupMembership, Array{"anna"}}}));
  addGroup(kSite, "t", group(32, {{schema::kNestedGroups, Array{computedText(21)}}}));
  EXPECT_THAT(groupsOf(kAnna), ElementsAre("10 /Local", "20 /System", "30 /LDAP/site", "21 /System",
                                           "11 /Local", "31 /LDAP/site", "32 /LDAP/site"));
}

TEST_F(NestedGroupMembership, HostIsAskedAboutItsOwnGroups) {
  addUser("/System", "anna", kAnna, {});
  // As a host that lists its groups, but not their members.
  addGroup("/System", "listed", group(22, {{schema::kGroupMembership, Array{"anna"}}}));
  hostGroups_.anna = {21};
  EXPECT_THAT(groupsOf(kAnna), ElementsAre("21 /System"));
}

TEST_F(NestedGroupMembership, HostAccountWithoutRecordHasItsGroups) {
  hostGroups_.anna = {21};
  addGroup("/Local", "l", group(11, {{schema::kNestedGroups, Array{computedText(21)}}}));
  EXPECT_THAT(groupsOf(kAnna), ElementsAre("21 /System", "11 /Local"));
}

TEST_F(NestedGroupMembership, NameMeansUserOfSameNodeAsGroup) {
  addUser("/System", "anna", kAnna);
  addUser(kSite, "anna", kBert);  // another account of the same name
  addGroup("/Local", "l", group(11, {{schema::kGroupMembership, Array{"anna"}}}));
  addGroup(kSite, "s", group(31, {{schema::kGroupMembership, Array{"anna"}}}));
  EXPECT_THAT(groupsOf(kAnna), ElementsAre("11 /Local"));
  EXPECT_THAT(groupsOf(kBert), ElementsAre("31 /LDAP/site"));
}

TEST_F(NestedGroupMembership, UserIsMemberByEachOfItsNames) {
  addUser("/Local", "anna", kAnna, {{schema::kRecordName, Array{"anna", "anna.b"}}});
  addUser(kSite, "ab", kAnna);
  addGroup("/Local", "one", group(11, {{schema::kGroupMembership, Array{"Anna.B"}}}));
  addGroup(kSite, "two", group(31, {{schema::kGroupMembership, Array{"ab"}}}));
  addGroup(kSite, "three", group(32, {{schema::kGroupMembership, Array{"anna"}}}));
  EXPECT_THAT(groupsOf(kAnna), ElementsAre("11 /Local", "32 /LDAP/site", "31 /LDAP/site"));
}

TEST_F(NestedGroupMembership, RecordsWithSameGidFormOneGroup) {
  addUser("/System", "anna", kAnna);
  hostGroups_.anna = {21};
  addGroup(kSite, "site's", group(21, {{schema::kGeneratedUID, guidTextOf(2)}}));
  addGroup("/Local", "local", group(21, {{schema::kGeneratedUID, guidTextOf(1)}}));
  addGroup("/Local", "around", group(22, {{schema::kNestedGroups, Array{guidTextOf(2)}}}));
  const UserMembership membership = membershipOf(kAnna);
  ASSERT_EQ(membership.groups.size(), 2U);
  EXPECT_THAT(membership.groups[0].guids,
              ElementsAre(guidNumber(1), guidNumber(2), computedGuid({PrincipalType::group, 21})));
  EXPECT_EQ(membership.groups[0].name, "local");
  EXPECT_EQ(membership.groups[1].gid, 22U);
  EXPECT_EQ(membership.groups[1].through, 0U);
}

TEST_F(NestedGroupMembership, GroupsMayBeNestedAcrossNodes) {
  addUser(kSite, "anna", kAnna);
  addGroup(kSite, "a",
           {{schema::kGeneratedUID, guidTextOf(1)}, {schema::kGroupMembership, Array{"anna"}}});
  addGroup("/Local", "b",
           {{schema::kGeneratedUID, guidTextOf(2)}, {schema::kNestedGroups, Array{guidTextOf(1)}}});
  addGroup(kSite, "c", group(31, {{schema::kNestedGroups, Array{guidTextOf(2)}}}));
  EXPECT_THAT(groupsOf(kAnna), ElementsAre(guidTextOf(1) + " /LDAP/site", guidTextOf(2) + " /Local",
                                           "31 /LDAP/site"));
}

TEST_F(NestedGroupMembership, ComputedGuidAloneIdentifiesGroupOfGid) {
  addUser("/System", "anna", kAnna);
  hostGroups_.anna = {21};
  addGroup("/Local", "same",
           {{schema::kGeneratedUID, computedText(21)}, {schema::kGroupMembership, Array{"anna"}}});
  EXPECT_THAT(groupsOf(kAnna), ElementsAre("21 /System"));
}

TEST_F(NestedGroupMembership, InvalidIdsAndGuidsAreIgnored) {
  addUser("/Local", "anna", kAnna,
          {{schema::kPrimaryGroupID, "4294967296"}, {schema::kGeneratedUID, "no guid"}});
  addUser("/Local", "second", 7, {{schema::kUniqueID, Array{"7", std::to_string(kAnna)}}});
  addGroup("/Local", "a",
           {{schema::kPrimaryGroupID, "-1"},
            {schema::kGeneratedUID, "x"},
            {schema::kGroupMembership, Array{"anna", "second"}}});
  addGroup("/Local", "b", group(11, {{schema::kGroupMembership, Array{"second"}}}));
  const UserMembership membership = membershipOf(kAnna);
  EXPECT_THAT(membership.groups, IsEmpty()) << "an id is the first value";
  EXPECT_THAT(membership.guids, ElementsAre(computedGuid({PrincipalType::user, kAnna})));
}

TEST_F(NestedGroupMembership, FirstErrorEndsSearchAndIsReturned) {
  addUser("/Local", "anna", kAnna, {{schema::kPrimaryGroupID, "10"}});
  addGroup(kSite, "s", group(31, {{schema::kGroupMembership, Array{"anna"}}}));
  std::size_t failures = 0;
  for (std::size_t n = 1;; ++n) {
    FaultPlan plan(n);
    plan.setError(ETIMEDOUT);
    UserMembership membership;
    membership.guids = {guidNumber(1)};
    const int error = tryWith(plan, membership);
    if (!plan.fired()) {
      EXPECT_EQ(error, 0);
      break;
    }
    ++failures;
    EXPECT_EQ(error, ETIMEDOUT) << plan.failedCall();
    EXPECT_EQ(plan.callCount(), n) << "a node that does not answer is not asked again";
    EXPECT_THAT(membership.groups, IsEmpty());
    EXPECT_THAT(membership.guids, IsEmpty());
    EXPECT_NE(membership.error, "");
    EXPECT_EQ(directory_.openSessions(), 0);
  }
  EXPECT_GE(failures, 10U);
}

TEST_F(NestedGroupMembership, AnErrorWithoutAStatusIsEio) {
  FaultPlan plan(1);
  plan.setError(std::nullopt);
  UserMembership membership;
  EXPECT_EQ(tryWith(plan, membership), EIO);
}

TEST_F(NestedGroupMembership, AnErrorOfTheHostIsAnError) {
  addUser("/System", "anna", kAnna);
  hostGroups_.error = EIO;
  UserMembership membership;
  EXPECT_EQ(membership_.membershipOf(kAnna, membership), EIO);
  EXPECT_THAT(membership.error, HasSubstr("5001"));
}

TEST_F(NestedGroupMembership, MoreGroupsThanProcessLimitIsError) {
  addUser("/System", "anna", kAnna);
  for (std::uint32_t gid = 0; gid < 65536; ++gid) hostGroups_.anna.push_back(gid);
  addGroup("/Local", "one more", group(70000, {{schema::kGroupMembership, Array{"anna"}}}));
  UserMembership membership;
  EXPECT_EQ(membership_.membershipOf(kAnna, membership), ERANGE);
  EXPECT_THAT(membership.groups, IsEmpty());
  hostGroups_.anna.pop_back();
  EXPECT_EQ(membershipOf(kAnna).groups.size(), 65536U);
}

TEST_F(NestedGroupMembership, NodeQueryCountIsIndependentOfGroupCount) {
  addUser("/System", "anna", kAnna);
  addGroup("/Local", "around", group(90000, {{schema::kNestedGroups, Array{computedText(3)}}}));
  std::size_t calls = 0;
  for (const std::uint32_t count : {100U, 1000U, 10000U}) {
    hostGroups_.anna.clear();
    for (std::uint32_t gid = 1; gid <= count; ++gid) hostGroups_.anna.push_back(gid);
    FaultPlan plan;
    UserMembership membership;
    ASSERT_EQ(tryWith(plan, membership), 0);
    EXPECT_EQ(membership.groups.size(), count + 1);
    EXPECT_LE(plan.callCount(), 2 * NodeGroups::kMostLookUps + 40);
    if (count == 1000) calls = plan.callCount();
  }
  EXPECT_GT(calls, 0U);
}

// Groups nested at random over two nodes, and a plain search through them.
class RandomGroups {
 public:
  static constexpr std::uint32_t kCount = 40;
  static constexpr std::uint32_t kFirstGid = 10000;

  RandomGroups(InMemoryDirectory& directory, std::mt19937& random) {
    for (std::uint32_t number = 0; number < kCount; ++number) {
      Array nested;
      for (int i = 0; i < 2; ++i) {
        const auto other = static_cast<std::uint32_t>(random() % kCount);
        nested.emplace_back(guidTextOf(other));
        around_[other].push_back(number);
      }
      Dictionary attributes{{schema::kPrimaryGroupID, std::to_string(kFirstGid + number)},
                            {schema::kGeneratedUID, guidTextOf(number)},
                            {schema::kNestedGroups, nested}};
      if (random() % 20 == 0) {
        attributes.set(schema::kGroupMembership, Array{"x", "anna"});
        direct_.insert(number);
      }
      directory.addRecord(random() % 2 == 0 ? "/Local" : kSite, schema::kGroups,
                          "g" + std::to_string(number), attributes);
    }
  }

  std::set<std::uint32_t> holdingGids() const {
    std::set<std::uint32_t> found = direct_;
    std::set<std::uint32_t> fresh = direct_;
    for (std::size_t level = 0; level < GroupMembership::kMostLevels; ++level) {
      std::set<std::uint32_t> next;
      for (const std::uint32_t number : fresh)
        for (const std::uint32_t outer : around_[number])
          if (found.insert(outer).second) next.insert(outer);
      fresh = next;
    }
    std::set<std::uint32_t> gids;
    for (const std::uint32_t number : found) gids.insert(kFirstGid + number);
    return gids;
  }

 private:
  std::set<std::uint32_t> direct_;
  // By number: the groups that it is nested in.
  std::vector<std::vector<std::uint32_t>> around_{kCount};
};

// With many groups of the host every node lists its groups; with one they are looked up.
class RandomGroupNesting : public ::testing::TestWithParam<std::uint32_t> {};
INSTANTIATE_TEST_SUITE_P(DirectoryGroupMembership, RandomGroupNesting, ::testing::Values(1U, 200U));

TEST_P(RandomGroupNesting, FindsWhatAPlainSearchFinds) {
  std::mt19937 random(7);
  std::size_t nested = 0;
  for (int round = 0; round < 40; ++round) {
    InMemoryDirectory directory(caseFold);
    directory.addNode("/System", "ReadOnly");
    directory.addNode(kSite, "ReadWrite");
    directory.addRecord("/Local", schema::kUsers, "anna",
                        {{schema::kUniqueID, std::to_string(kAnna)}});
    const RandomGroups groups(directory, random);
    HostGroups host;
    std::set<std::uint32_t> expected = groups.holdingGids();
    for (std::uint32_t gid = 20000; gid < 20000 + GetParam(); ++gid) {
      host.anna.push_back(gid);
      expected.insert(gid);
    }
    UserMembership membership;
    ASSERT_EQ(DirectoryGroupMembership(directory, host).membershipOf(kAnna, membership), 0);
    std::set<std::uint32_t> found;
    for (const HoldingGroup& one : membership.groups) {
      EXPECT_TRUE(found.insert(one.gid.value()).second) << "each group once";
      nested += one.by == HeldBy::nestedGroup ? 1 : 0;
    }
    EXPECT_EQ(found, expected);
  }
  EXPECT_GT(nested, 100U);
}

// The directory of this host itself.
TEST(DirectoryGroupMembershipOnThisHost, HostUserIsInHostGroups) {
  const TestFolder folder;
  LinuxDirectoryService directory(
      {.databasePath = folder.path("directory.sqlite"), .adminGroup = "x", .pam = std::nullopt});
  const passwd* account = ::getpwnam("daemon");
  ASSERT_NE(account, nullptr);
  const group* primary = ::getgrgid(account->pw_gid);
  ASSERT_NE(primary, nullptr);
  directory.openLocal()
      ->localNode()
      ->newRecord("staff here", schema::kGroups)
      ->setAttributesAndValues(
          {{schema::kPrimaryGroupID, "2012000001"}, {schema::kGroupMembership, Array{"daemon"}}});
  NssUserGroups hostGroups;
  UserMembership membership;
  ASSERT_EQ(
      DirectoryGroupMembership(directory, hostGroups).membershipOf(account->pw_uid, membership), 0);
  std::vector<std::uint32_t> gids;
  ASSERT_EQ(hostGroups.groupsOf(account->pw_uid, gids), 0);
  gids.push_back(2012000001);
  std::vector<std::uint32_t> found;
  for (const HoldingGroup& one : membership.groups) found.push_back(one.gid.value());
  EXPECT_EQ(found.front(), primary->gr_gid);
  EXPECT_EQ(membership.groups.front().by, HeldBy::primaryGroup);
  EXPECT_THAT(found, ::testing::UnorderedElementsAreArray(gids));
}

}  // namespace
}  // namespace paddock
