// What group_membership.h promises, of the double and of the Linux one over "/Local".
#include "platform/group_membership.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <thread>

#include "base/guid.h"
#include "directory_subject.h"
#include "platform/linux/accounts/directory_group_membership.h"
#include "platform/testing/in_memory_membership.h"

namespace paddock::contract {
namespace {

using User = InMemoryGroupMembership::User;
using Group = InMemoryGroupMembership::Group;

// Ids that no account of the host has.
constexpr std::uint32_t kAnna = 2'011'000'001;
constexpr std::uint32_t kBert = 2'011'000'002;
constexpr std::uint32_t kFirstGid = 2'012'000'000;

class GroupSubject {
 public:
  virtual ~GroupSubject() = default;
  virtual GroupMembership& membership() = 0;
  virtual void add(const User& user) = 0;
  virtual void add(const Group& group) = 0;
};

class InMemoryGroupSubject final : public GroupSubject {
 public:
  GroupMembership& membership() override { return membership_; }
  void add(const User& user) override { membership_.add(user); }
  void add(const Group& group) override { membership_.add(group); }

 private:
  InMemoryGroupMembership membership_;
};

class LinuxGroupSubject final : public GroupSubject {
 public:
  GroupMembership& membership() override { return membership_; }
  void add(const User& user) override {
    Dictionary attributes{{schema::kUniqueID, std::to_string(user.uid)}};
    setId(attributes, schema::kPrimaryGroupID, user.primaryGid);
    setGuids(attributes, schema::kGeneratedUID, listOf(user.guid));
    addRecord(user.name, schema::kUsers, attributes);
  }
  void add(const Group& group) override {
    Dictionary attributes;
    setId(attributes, schema::kPrimaryGroupID, group.gid);
    setGuids(attributes, schema::kGeneratedUID, listOf(group.guid));
    setGuids(attributes, schema::kGroupMembers, group.memberGuids);
    setGuids(attributes, schema::kNestedGroups, group.nestedGuids);
    Array names;
    for (const std::string& name : group.memberNames) names.emplace_back(name);
    if (!names.empty()) attributes.set(schema::kGroupMembership, names);
    addRecord(group.name, schema::kGroups, attributes);
  }

 private:
  static std::vector<Guid> listOf(const std::optional<Guid>& guid) {
    return guid ? std::vector<Guid>{*guid} : std::vector<Guid>();
  }
  static void setId(Dictionary& attributes, const char* attribute,
                    const std::optional<std::uint32_t>& id) {
    if (id) attributes.set(attribute, std::to_string(*id));
  }
  static void setGuids(Dictionary& attributes, const char* attribute,
                       const std::vector<Guid>& guids) {
    Array texts;
    for (const Guid& guid : guids) texts.emplace_back(guidText(guid));
    if (!texts.empty()) attributes.set(attribute, texts);
  }
  void addRecord(const std::string& name, const char* type, const Dictionary& attributes) {
    directory_.service()
        .openLocal()
        ->localNode()
        ->newRecord(name, type)
        ->setAttributesAndValues(attributes);
  }

  LinuxSubject directory_;
  NssUserGroups hostGroups_;
  DirectoryGroupMembership membership_{directory_.service(), hostGroups_};
};

struct GroupSubjectKind {
  const char* name;
  std::unique_ptr<GroupSubject> (*make)();
};
const GroupSubjectKind kKinds[] = {
    {"InMemory", [] { return std::unique_ptr<GroupSubject>(new InMemoryGroupSubject); }},
    {"Linux", [] { return std::unique_ptr<GroupSubject>(new LinuxGroupSubject); }},
};

Guid guidNumber(std::uint32_t number) {
  Guid guid = *parseGuid("DEADBEEF-0000-4000-8000-000000000000");
  for (std::size_t i = 0; i < 4; ++i)
    guid.bytes[12 + i] = static_cast<std::uint8_t>(number >> (24 - 8 * i));
  return guid;
}
Guid computedFor(std::uint32_t gid) { return computedGuid({PrincipalType::group, gid}); }

// A group as the comparisons write it: "staff by member", "all by nestedGroup of staff".
std::string described(const UserMembership& membership, const HoldingGroup& group) {
  switch (group.by) {
    case HeldBy::primaryGroup:
      return group.name + " by primary";
    case HeldBy::member:
      return group.name + " by member";
    case HeldBy::nestedGroup:
      return group.name + " around " + membership.groups.at(group.through.value()).name;
  }
  return "?";
}

class GroupMembershipContract : public ::testing::TestWithParam<GroupSubjectKind> {
 protected:
  UserMembership membershipOf(std::uint32_t uid) {
    UserMembership membership;
    membership.error = "stale";
    EXPECT_EQ(subject_->membership().membershipOf(uid, membership), 0);
    EXPECT_EQ(membership.error, "");
    return membership;
  }
  std::vector<std::string> groupsOf(std::uint32_t uid) {
    const UserMembership membership = membershipOf(uid);
    std::vector<std::string> texts;
    for (const HoldingGroup& group : membership.groups) {
      EXPECT_EQ(group.node, "/Local") << group.name;
      EXPECT_EQ(group.through.has_value(), group.by == HeldBy::nestedGroup) << group.name;
      texts.push_back(described(membership, group));
    }
    return texts;
  }
  void add(const User& user) { subject_->add(user); }
  void add(const Group& group) { subject_->add(group); }
  // A group "gN" with the gid N above the first, a GUID of its own, and groups in it by number.
  void addNumbered(std::uint32_t number, const std::vector<std::uint32_t>& nested,
                   const std::vector<std::string>& members = {}) {
    Group group{
        "g" + std::to_string(number), kFirstGid + number, guidNumber(number), members, {}, {}};
    for (const std::uint32_t one : nested) group.nestedGuids.push_back(guidNumber(one));
    add(group);
  }

  std::unique_ptr<GroupSubject> subject_ = GetParam().make();
};
std::string kindName(const ::testing::TestParamInfo<GroupSubjectKind>& info) {
  return info.param.name;
}
INSTANTIATE_TEST_SUITE_P(GroupMembership, GroupMembershipContract, ::testing::ValuesIn(kKinds),
                         kindName);

using Texts = std::vector<std::string>;

TEST_P(GroupMembershipContract, UnknownUidHasNoGroups) {
  add(Group{"staff", kFirstGid, {}, {"anna"}, {computedGuid({PrincipalType::user, kAnna})}, {}});
  const UserMembership membership = membershipOf(kAnna);
  EXPECT_FALSE(membership.isKnown);
  EXPECT_TRUE(membership.groups.empty());
  EXPECT_EQ(membership.guids, std::vector<Guid>{computedGuid({PrincipalType::user, kAnna})});
}

TEST_P(GroupMembershipContract, AUserWithoutAnyGroupIsKnown) {
  add(User{"anna", kAnna, {}, {}});
  const UserMembership membership = membershipOf(kAnna);
  EXPECT_TRUE(membership.isKnown);
  EXPECT_TRUE(membership.groups.empty());
}

TEST_P(GroupMembershipContract, UserHasOwnAndComputedGuid) {
  add(User{"anna", kAnna, guidNumber(7), {}});
  EXPECT_EQ(membershipOf(kAnna).guids,
            (std::vector<Guid>{guidNumber(7), computedGuid({PrincipalType::user, kAnna})}));
}

TEST_P(GroupMembershipContract, PrimaryGroupHoldsUserWithOrWithoutRecord) {
  add(User{"anna", kAnna, {}, kFirstGid});
  UserMembership membership = membershipOf(kAnna);
  ASSERT_EQ(membership.groups.size(), 1U);
  EXPECT_EQ(membership.groups[0].gid, kFirstGid);
  EXPECT_EQ(membership.groups[0].guids, std::vector<Guid>{computedFor(kFirstGid)});
  EXPECT_EQ(membership.groups[0].name, "");
  add(Group{"staff", kFirstGid, guidNumber(1), {}, {}, {}});
  membership = membershipOf(kAnna);
  ASSERT_EQ(membership.groups.size(), 1U);
  EXPECT_EQ(membership.groups[0].guids, (std::vector<Guid>{guidNumber(1), computedFor(kFirstGid)}));
  EXPECT_EQ(groupsOf(kAnna), Texts{"staff by primary"});
}

TEST_P(GroupMembershipContract, MembersMatchByCaseInsensitiveNameOrGuid) {
  add(User{"anna", kAnna, guidNumber(100), {}});
  add(User{"bert", kBert, {}, {}});
  addNumbered(1, {}, {"bert", "ANNA"});
  add(Group{"g2", kFirstGid + 2, {}, {}, {guidNumber(99), guidNumber(100)}, {}});
  add(Group{"g3", kFirstGid + 3, {}, {}, {computedGuid({PrincipalType::user, kAnna})}, {}});
  add(Group{"g4", kFirstGid + 4, {}, {"annabel"}, {guidNumber(101)}, {guidNumber(100)}});
  EXPECT_EQ(groupsOf(kAnna), (Texts{"g1 by member", "g2 by member", "g3 by member"}));
  EXPECT_EQ(groupsOf(kBert), Texts{"g1 by member"});
}

TEST_P(GroupMembershipContract, AGroupCountsOnceByTheFirstWay) {
  add(User{"anna", kAnna, guidNumber(100), kFirstGid + 1});
  add(Group{"g1", kFirstGid + 1, guidNumber(1), {"anna"}, {guidNumber(100)}, {guidNumber(2)}});
  addNumbered(2, {1}, {"anna"});
  EXPECT_EQ(groupsOf(kAnna), (Texts{"g1 by primary", "g2 by member"}));
}

TEST_P(GroupMembershipContract, NestedGroupsCountAndSayThroughWhich) {
  add(User{"anna", kAnna, {}, {}});
  addNumbered(3, {2});
  addNumbered(2, {1});
  addNumbered(1, {}, {"anna"});
  addNumbered(4, {5});
  EXPECT_EQ(groupsOf(kAnna), (Texts{"g1 by member", "g2 around g1", "g3 around g2"}));
}

TEST_P(GroupMembershipContract, NestedGroupMatchesByOwnOrComputedGuid) {
  add(User{"anna", kAnna, {}, kFirstGid + 1});
  addNumbered(1, {});
  add(Group{"own", kFirstGid + 2, {}, {}, {}, {guidNumber(1)}});
  add(Group{"computed", kFirstGid + 3, {}, {}, {}, {computedFor(kFirstGid + 1)}});
  EXPECT_EQ(groupsOf(kAnna), (Texts{"g1 by primary", "own around g1", "computed around g1"}));
}

TEST_P(GroupMembershipContract, GroupsThatHoldOneAnotherAreNoError) {
  add(User{"anna", kAnna, {}, {}});
  addNumbered(1, {1, 3}, {"anna"});
  addNumbered(2, {1});
  addNumbered(3, {2});
  EXPECT_EQ(groupsOf(kAnna), (Texts{"g1 by member", "g2 around g1", "g3 around g2"}));
}

TEST_P(GroupMembershipContract, SixteenLevelsOfNestingCountAndNoMore) {
  add(User{"anna", kAnna, {}, {}});
  addNumbered(0, {}, {"anna"});
  for (std::uint32_t number = 1; number <= 20; ++number) addNumbered(number, {number - 1});
  const Texts groups = groupsOf(kAnna);
  ASSERT_EQ(groups.size(), 1 + GroupMembership::kMostLevels);
  EXPECT_EQ(groups.back(), "g16 around g15");
}

TEST_P(GroupMembershipContract, TheShortestWayIsFoundFirst) {
  add(User{"anna", kAnna, {}, {}});
  addNumbered(1, {}, {"anna"});
  addNumbered(2, {1});
  addNumbered(3, {2, 1});
  addNumbered(4, {3, 2});
  EXPECT_EQ(groupsOf(kAnna),
            (Texts{"g1 by member", "g2 around g1", "g3 around g1", "g4 around g2"}));
}

TEST_P(GroupMembershipContract, GroupWithoutGidIsIdentifiedByGuid) {
  add(User{"anna", kAnna, {}, {}});
  add(Group{"people", {}, guidNumber(1), {"anna"}, {}, {}});
  add(Group{"all", {}, guidNumber(2), {}, {}, {guidNumber(1)}});
  const UserMembership membership = membershipOf(kAnna);
  ASSERT_EQ(membership.groups.size(), 2U);
  EXPECT_EQ(membership.groups[1].gid, std::nullopt);
  EXPECT_EQ(membership.groups[1].guids, std::vector<Guid>{guidNumber(2)});
  EXPECT_EQ(groupsOf(kAnna), (Texts{"people by member", "all around people"}));
}

TEST_P(GroupMembershipContract, GroupWithoutGidAndGuidIsSkipped) {
  add(User{"anna", kAnna, {}, {}});
  add(Group{"nameless", {}, {}, {"anna"}, {}, {}});
  EXPECT_EQ(groupsOf(kAnna), Texts{});
}

TEST_P(GroupMembershipContract, ManyGroupsAreAllFound) {
  constexpr std::uint32_t kMany = 160;
  add(User{"anna", kAnna, {}, {}});
  Texts expected;
  for (std::uint32_t number = 0; number < kMany; ++number) {
    addNumbered(number, {}, {"anna"});
    expected.push_back("g" + std::to_string(number) + " by member");
  }
  addNumbered(kMany, {kMany - 1});
  expected.emplace_back("g160 around g159");
  EXPECT_EQ(groupsOf(kAnna), expected);
}

TEST_P(GroupMembershipContract, AnyThreadMayAsk) {
  add(User{"anna", kAnna, {}, {}});
  addNumbered(1, {}, {"anna"});
  addNumbered(2, {1});
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([this] {
      for (int round = 0; round < 10; ++round) EXPECT_EQ(groupsOf(kAnna).size(), 2U);
    });
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace paddock::contract
