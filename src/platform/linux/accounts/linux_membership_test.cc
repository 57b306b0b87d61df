#include "platform/linux/accounts/linux_membership.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "platform/directory.h"
#include "platform/linux/process/case_fold.h"
#include "platform/testing/in_memory_directory.h"

namespace paddock {
namespace {

const Guid kOwn = *parseGuid("DEADBEEF-0000-4000-8000-000000000001");

class MembershipGuids : public ::testing::Test {
 protected:
  void addUser(const std::string& name, std::uint32_t uid, const std::optional<Guid>& guid,
               const std::string& node = "/Local") {
    Dictionary attributes{{schema::kUniqueID, std::to_string(uid)}};
    if (guid) attributes.set(schema::kGeneratedUID, guidText(*guid));
    directory_.addRecord(node, schema::kUsers, name, attributes);
  }
  Guid userGuid(std::uint32_t uid) {
    Guid guid;
    EXPECT_EQ(membership_.uidToGuid(uid, guid), 0);
    return guid;
  }
  std::optional<Principal> principal(const Guid& guid) {
    Principal result;
    const int error = membership_.guidToId(guid, result.id, result.type);
    if (error == 0) return result;
    EXPECT_EQ(error, ENOENT);
    EXPECT_EQ(result.id, 0U);
    return std::nullopt;
  }

  InMemoryDirectory directory_{caseFold};
  LinuxMembership membership_{directory_};
};

TEST_F(MembershipGuids, IdsWithoutRecordMapToComputedGuids) {
  for (const std::uint32_t id : {0U, 89U, 1000U, 0xFFFFFFFEU}) {
    Guid user;
    Guid group;
    EXPECT_EQ(membership_.uidToGuid(id, user), 0);
    EXPECT_EQ(membership_.gidToGuid(id, group), 0);
    EXPECT_NE(user, group);
    EXPECT_EQ(principal(user), (Principal{PrincipalType::user, id}));
    EXPECT_EQ(principal(group), (Principal{PrincipalType::group, id}));
  }
}

TEST_F(MembershipGuids, RecordWithoutGuidHasComputedOne) {
  addUser("anna", 1000, std::nullopt);
  EXPECT_EQ(userGuid(1000), computedGuid({PrincipalType::user, 1000}));
}

TEST_F(MembershipGuids, ARecordsOwnGuidWinsBothWays) {
  addUser("anna", 1000, kOwn);
  EXPECT_EQ(userGuid(1000), kOwn);
  EXPECT_EQ(principal(kOwn), (Principal{PrincipalType::user, 1000}));
  Guid group;
  EXPECT_EQ(membership_.gidToGuid(1000, group), 0);
  EXPECT_EQ(group, computedGuid({PrincipalType::group, 1000}));
}

TEST_F(MembershipGuids, GroupIdIsItsPrimaryGroupId) {
  directory_.addRecord("/Local", schema::kGroups, "staff",
                       {{schema::kPrimaryGroupID, "50"}, {schema::kGeneratedUID, guidText(kOwn)}});
  Guid group;
  EXPECT_EQ(membership_.gidToGuid(50, group), 0);
  EXPECT_EQ(group, kOwn);
  EXPECT_EQ(principal(kOwn), (Principal{PrincipalType::group, 50}));
}

TEST_F(MembershipGuids, ComputedGuidRemainsAliasOfIdWithGuid) {
  addUser("anna", 1000, kOwn);
  EXPECT_EQ(principal(computedGuid({PrincipalType::user, 1000})),
            (Principal{PrincipalType::user, 1000}));
}

TEST_F(MembershipGuids, RecordHoldingComputedGuidWinsOverItsId) {
  addUser("anna", 1000, computedGuid({PrincipalType::user, 7}));
  EXPECT_EQ(principal(computedGuid({PrincipalType::user, 7})),
            (Principal{PrincipalType::user, 1000}));
}

TEST_F(MembershipGuids, TheFirstNodeOfTheSearchPathWins) {
  directory_.addNode("/LDAP/office", "ReadOnly");
  const Guid other = *parseGuid("DEADBEEF-0000-4000-8000-000000000002");
  addUser("anna", 1000, other, "/LDAP/office");
  EXPECT_EQ(userGuid(1000), other);
  addUser("anna", 1000, kOwn);
  EXPECT_EQ(userGuid(1000), kOwn);
  EXPECT_EQ(principal(other), (Principal{PrincipalType::user, 1000}));
}

TEST_F(MembershipGuids, InvalidGuidCountsAsNone) {
  directory_.addRecord("/Local", schema::kUsers, "anna",
                       {{schema::kUniqueID, "1000"}, {schema::kGeneratedUID, "none"}});
  EXPECT_EQ(userGuid(1000), computedGuid({PrincipalType::user, 1000}));
}

TEST_F(MembershipGuids, ARecordWithoutAnIdIsNobody) {
  directory_.addRecord("/Local", schema::kUsers, "anna", {{schema::kGeneratedUID, guidText(kOwn)}});
  EXPECT_EQ(principal(kOwn), std::nullopt);
  addUser("bert", 1001, kOwn);
  EXPECT_EQ(principal(kOwn), (Principal{PrincipalType::user, 1001}));
}

TEST_F(MembershipGuids, AnUnknownGuidIsNobody) {
  EXPECT_EQ(principal(kOwn), std::nullopt);
  EXPECT_EQ(principal(Guid{}), std::nullopt);
}

TEST_F(MembershipGuids, NodeAfterAnsweringOneIsNotAsked) {
  directory_.addNode("/LDAP/office", "ReadOnly");
  addUser("anna", 1000, kOwn);
  directory_.failOpening("/LDAP/office", ETIMEDOUT);
  EXPECT_EQ(userGuid(1000), kOwn);
  EXPECT_EQ(principal(kOwn), (Principal{PrincipalType::user, 1000}));
}

TEST_F(MembershipGuids, SilentNodeFailsUnknownButNotComputedGuids) {
  directory_.addNode("/LDAP/office", "ReadOnly");
  addUser("anna", 1000, std::nullopt);
  directory_.failOpening("/LDAP/office", ETIMEDOUT);
  const Principal anna{PrincipalType::user, 1000};
  EXPECT_EQ(userGuid(1000), computedGuid(anna));
  EXPECT_EQ(principal(computedGuid(anna)), anna);
  Guid guid;
  EXPECT_EQ(membership_.gidToGuid(1000, guid), 0);
  EXPECT_EQ(guid, computedGuid({PrincipalType::group, 1000}));
  Principal found;
  EXPECT_EQ(membership_.guidToId(kOwn, found.id, found.type), ETIMEDOUT);
}

TEST_F(MembershipGuids, NodeAfterSilentOneIsAsked) {
  directory_.addNode("/LDAP/office", "ReadOnly");
  directory_.addNode("/LDAP/home", "ReadOnly");
  addUser("anna", 1000, kOwn, "/LDAP/home");
  directory_.failOpening("/LDAP/office", ETIMEDOUT);
  EXPECT_EQ(userGuid(1000), kOwn);
  EXPECT_EQ(principal(kOwn), (Principal{PrincipalType::user, 1000}));
}

TEST_F(MembershipGuids, ADirectoryThatCannotAnswerGivesItsErrno) {
  directory_.failOpening("/Local", EIO);
  Guid guid = kOwn;
  EXPECT_EQ(membership_.uidToGuid(1, guid), EIO);
  EXPECT_EQ(guid, Guid{});
  std::uint32_t id = 5;
  PrincipalType type{};
  EXPECT_EQ(membership_.guidToId(kOwn, id, type), EIO);
  EXPECT_EQ(id, 0U);
}

TEST_F(MembershipGuids, SeveralHaveTheGuidsThatEachHasAlone) {
  const Guid far = *parseGuid("DEADBEEF-0000-4000-8000-000000000002");
  directory_.addNode("/LDAP/far", schema::kReadWrite);
  addUser("anna", 1000, kOwn);
  addUser("also anna", 1000, far, "/LDAP/far");
  addUser("bert", 1001, std::nullopt);
  addUser("bert", 1001, far, "/LDAP/far");
  directory_.addRecord("/LDAP/far", schema::kGroups, "staff",
                       {{schema::kPrimaryGroupID, "50"}, {schema::kGeneratedUID, guidText(far)}});
  const std::vector<Principal> principals{{PrincipalType::user, 1001},
                                          {PrincipalType::group, 50},
                                          {PrincipalType::user, 1000},
                                          {PrincipalType::user, 7},
                                          {PrincipalType::user, 1001}};
  const auto answers = membership_.toGuids(principals);
  ASSERT_EQ(answers.size(), principals.size());
  const std::vector<Guid> expected{far, far, kOwn, computedGuid(principals[3]), far};
  for (std::size_t at = 0; at < principals.size(); ++at) {
    EXPECT_EQ(answers[at].error, 0);
    EXPECT_EQ(answers[at].guid, expected[at]) << at;
    Guid alone;
    if (principals[at].type == PrincipalType::user)
      membership_.uidToGuid(principals[at].id, alone);
    else
      membership_.gidToGuid(principals[at].id, alone);
    EXPECT_EQ(answers[at].guid, alone) << at;
  }
  EXPECT_TRUE(membership_.toGuids({}).empty());
}

TEST_F(MembershipGuids, BatchUsesComputedGuidsForSilentNode) {
  directory_.addNode("/LDAP/office", schema::kReadWrite);
  directory_.failOpening("/LDAP/office", ETIMEDOUT);
  addUser("anna", 1000, kOwn);
  const auto answers =
      membership_.toGuids({{PrincipalType::user, 1000}, {PrincipalType::user, 1001}});
  EXPECT_EQ(answers.at(0).error, 0);
  EXPECT_EQ(answers.at(0).guid, kOwn);
  EXPECT_EQ(answers.at(1).error, 0);
  EXPECT_EQ(answers.at(1).guid, computedGuid({PrincipalType::user, 1001}));
  directory_.failOpening("/Local", EIO);
  const auto unanswered = membership_.toGuids({{PrincipalType::user, 1001}});
  EXPECT_EQ(unanswered.at(0).error, EIO);
  EXPECT_EQ(unanswered.at(0).guid, Guid{});
}

}  // namespace
}  // namespace paddock
