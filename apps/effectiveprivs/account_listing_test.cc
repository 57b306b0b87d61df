// The members of groups as listed are those found by a query for each user.
#include "effectiveprivs/account_listing.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>

#include "base/guid.h"
#include "platform/directory.h"
#include "platform/linux/accounts/directory_group_membership.h"
#include "platform/linux/process/case_fold.h"
#include "platform/testing/in_memory_directory.h"

namespace paddock::effectiveprivs {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr const char* kSite = "/LDAP/site";
// Ids that no account of the host has.
constexpr std::uint32_t kFirstUid = 2'041'000'000;
constexpr std::uint32_t kFirstGid = 2'042'000'000;

std::string guidNumber(std::uint32_t number) {
  Guid guid = *parseGuid("DEADBEEF-0000-4000-8000-000000000000");
  guid.bytes[14] = static_cast<std::uint8_t>(number >> 8U);
  guid.bytes[15] = static_cast<std::uint8_t>(number);
  return guidText(guid);
}
std::string computedText(std::uint32_t gid) {
  return guidText(computedGuid({PrincipalType::group, gid}));
}

class Listing : public ::testing::Test {
 protected:
  Listing() { directory_.addNode(kSite, "ReadWrite"); }

  void addUser(const std::string& name, std::uint32_t uid, Dictionary attributes = {},
               const std::string& node = "/Local") {
    attributes.set(schema::kUniqueID, std::to_string(uid));
    directory_.addRecord(node, schema::kUsers, name, attributes);
  }
  void addGroup(const std::string& name, std::uint32_t gid, Dictionary attributes = {},
                const std::string& node = "/Local") {
    attributes.set(schema::kPrimaryGroupID, std::to_string(gid));
    directory_.addRecord(node, schema::kGroups, name, attributes);
  }
  // The names of the group's members, each with the groups on the way.
  std::vector<std::string> heldBy(std::uint32_t gid) {
    AccountListing listing(directory_);
    const HeldUsers held = listing.heldBy(listing.groupWithGid(gid));
    std::vector<std::string> texts;
    for (const HeldUsers::Held& one : held.users) {
      std::string text = listing.users()[one.user].name;
      for (std::optional<std::size_t> step = one.step; step; step = held.steps[*step].outer)
        text += " " + listing.group(held.steps[*step].group).name;
      texts.push_back(text);
    }
    return texts;
  }

  InMemoryDirectory directory_{caseFold};
};

TEST_F(Listing, PrimaryGroupsNamesAndGuidsHoldUsers) {
  addUser("anna", kFirstUid, {{schema::kPrimaryGroupID, std::to_string(kFirstGid)}});
  addUser("bert", kFirstUid + 1);
  addUser("carl", kFirstUid + 2, {{schema::kGeneratedUID, guidNumber(1)}});
  addUser("dora", kFirstUid + 3);
  addGroup("g", kFirstGid,
           {{schema::kGroupMembership, Array{"BERT", "nobody-at-all"}},
            {schema::kGroupMembers, Array{guidNumber(1), guidNumber(77)}}});
  EXPECT_THAT(heldBy(kFirstGid), UnorderedElementsAre("anna g", "bert g", "carl g"));
}

TEST_F(Listing, NestedGroupsHoldThroughOneAnother) {
  addUser("anna", kFirstUid);
  addGroup("inner", kFirstGid, {{schema::kGroupMembership, "anna"}});
  addGroup("middle", kFirstGid + 1, {{schema::kNestedGroups, computedText(kFirstGid)}});
  addGroup("outer", kFirstGid + 2, {{schema::kNestedGroups, computedText(kFirstGid + 1)}});
  EXPECT_THAT(heldBy(kFirstGid + 2), ElementsAre("anna inner middle outer"));
}

TEST_F(Listing, GroupsThatHoldOneAnotherEnd) {
  addUser("anna", kFirstUid);
  addGroup(
      "a", kFirstGid,
      {{schema::kGroupMembership, "anna"}, {schema::kNestedGroups, computedText(kFirstGid + 1)}});
  addGroup("b", kFirstGid + 1, {{schema::kNestedGroups, computedText(kFirstGid)}});
  EXPECT_THAT(heldBy(kFirstGid + 1), ElementsAre("anna a b"));
}

TEST_F(Listing, AGroupOfTheHostMayBeNested) {
  addGroup("outer", kFirstGid, {{schema::kNestedGroups, computedText(0)}});
  EXPECT_THAT(heldBy(kFirstGid), ::testing::Contains("root  outer"));
}

TEST_F(Listing, ANameMeansTheNodesOwnUser) {
  addUser("anna", kFirstUid);
  addUser("anna", kFirstUid + 1, {}, kSite);
  addUser("bert", kFirstUid + 2);
  addGroup("sites", kFirstGid, {{schema::kGroupMembership, Array{"anna", "bert"}}}, kSite);
  AccountListing listing(directory_);
  std::vector<std::uint32_t> uids;
  for (const auto& one : listing.heldBy(listing.groupWithGid(kFirstGid)).users)
    uids.push_back(listing.users()[one.user].uid);
  EXPECT_THAT(uids, UnorderedElementsAre(kFirstUid + 1, kFirstUid + 2));
}

TEST_F(Listing, AGroupWithoutAnybodyHoldsNobody) { EXPECT_THAT(heldBy(kFirstGid), IsEmpty()); }

TEST_F(Listing, HostMembersAreTheHostsAlone) {
  addUser("anna", kFirstUid);
  addGroup("roots", 0, {{schema::kGroupMembership, "anna"}});
  AccountListing listing(directory_);
  const auto root = listing.userWithUid(0);
  ASSERT_TRUE(root);
  EXPECT_TRUE(listing.hostMembers(0).contains(*root));
  EXPECT_FALSE(listing.hostMembers(0).contains(listing.userWithUid(kFirstUid).value()));
}

TEST_F(Listing, ANodeThatCannotAnswerIsAnError) {
  directory_.failOpening(kSite, ETIMEDOUT);
  EXPECT_THROW(AccountListing{directory_}, DirectoryError);
}

// Of users and groups at random, on two nodes.
class RandomListing : public Listing {
 public:
  explicit RandomListing(unsigned seed) : random_(seed) {
    for (std::uint32_t user = 0; user < kUsers; ++user) addRandomUser(user);
    for (std::uint32_t group = 0; group < kGroups; ++group) addRandomGroup(group);
  }
  void compare() {
    DirectoryGroupMembership membership(directory_, hostGroups_);
    AccountListing listing(directory_);
    for (std::uint32_t number = 0; number < kGroups; ++number) {
      const std::uint32_t gid = kFirstGid + number;
      std::set<std::uint32_t> held;
      for (const auto& one : listing.heldBy(listing.groupWithGid(gid)).users)
        held.insert(listing.users()[one.user].uid);
      EXPECT_EQ(held, askedOf(membership, gid)) << gid;
    }
  }

 private:
  void TestBody() override {}

  static constexpr std::uint32_t kUsers = 8;
  static constexpr std::uint32_t kGroups = 8;

  std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }
  const char* anyNode() { return below(2) == 0 ? "/Local" : kSite; }

  // Two users may have one name on two nodes, and two records one uid.
  void addRandomUser(std::uint32_t user) {
    Dictionary attributes;
    if (below(2) == 0) attributes.set(schema::kGeneratedUID, guidNumber(user));
    if (below(2) == 0)
      attributes.set(schema::kPrimaryGroupID, std::to_string(kFirstGid + below(kGroups)));
    const bool isOdd = user % 2 == 1;
    addUser("u" + std::to_string(user / 2), kFirstUid + below(kUsers), attributes,
            isOdd ? kSite : "/Local");
  }
  void addRandomGroup(std::uint32_t group) {
    Array names;
    Array guids;
    Array nested;
    for (std::uint32_t count = below(3); count > 0; --count)
      names.emplace_back((below(2) == 0 ? "u" : "U") + std::to_string(below(kUsers / 2)));
    for (std::uint32_t count = below(3); count > 0; --count)
      guids.emplace_back(guidNumber(below(kUsers)));
    for (std::uint32_t count = below(3); count > 0; --count)
      nested.emplace_back(below(2) == 0 ? guidNumber(100 + below(kGroups))
                                        : computedText(kFirstGid + below(kGroups)));
    Dictionary attributes;
    if (!names.empty()) attributes.set(schema::kGroupMembership, names);
    if (!guids.empty()) attributes.set(schema::kGroupMembers, guids);
    if (!nested.empty()) attributes.set(schema::kNestedGroups, nested);
    if (below(2) == 0) attributes.set(schema::kGeneratedUID, guidNumber(100 + group));
    addGroup("g" + std::to_string(group), kFirstGid + below(kGroups), attributes, anyNode());
  }

  static std::set<std::uint32_t> askedOf(GroupMembership& membership, std::uint32_t gid) {
    std::set<std::uint32_t> held;
    for (std::uint32_t uid = kFirstUid; uid < kFirstUid + kUsers; ++uid) {
      UserMembership found;
      EXPECT_EQ(membership.membershipOf(uid, found), 0) << found.error;
      for (const HoldingGroup& group : found.groups)
        if (group.gid == gid) held.insert(uid);
    }
    return held;
  }

  std::mt19937 random_;
  NssUserGroups hostGroups_;
};

TEST(ListingOfRandomDirectories, IsWhatAskingAboutEachUserGives) {
  for (unsigned seed = 0; seed < 200 && !::testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    RandomListing(seed).compare();
  }
}

}  // namespace
}  // namespace paddock::effectiveprivs
