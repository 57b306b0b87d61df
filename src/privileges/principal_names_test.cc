#include "privileges/principal_names.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/directory.h"
#include "privileges/ace_dictionary.h"
#include "support/privileges_fixture.h"

namespace paddock {
namespace {

class PrincipalNameLookup : public PrivilegesFixture {
 protected:
  void expectName(const Guid& guid, const std::string& displayName, std::int64_t kind) {
    const PrincipalName name = principal_name(guid);
    EXPECT_EQ(name.displayName, displayName);
    EXPECT_EQ(name.kind, kind);
  }
  void expectUnknown(const Guid& guid) { expectName(guid, guidText(guid), 1061109567); }

  // A record without a GUID, found by its id.
  void addRecordWithId(const std::string& type, const std::string& name, const std::string& id,
                       const std::optional<std::string>& realName = std::nullopt) {
    const bool user = type == schema::kUsers;
    Dictionary attributes{{user ? schema::kUniqueID : schema::kPrimaryGroupID, id}};
    if (realName) attributes.set(schema::kRealName, *realName);
    directory.addRecord("/Local", type, name, attributes);
  }

  const Guid guid_ = guidNumber(1);
};

TEST_F(PrincipalNameLookup, GuidFindsUserWithFullName) {
  addPrincipal(schema::kUsers, "anna", guid_, "Anna Example");
  expectName(guid_, "Anna Example", 0);
}

TEST_F(PrincipalNameLookup, GuidFindsGroupWithFullName) {
  addPrincipal(schema::kGroups, "staff", guid_, "The Staff");
  expectName(guid_, "The Staff", 1);
}

TEST_F(PrincipalNameLookup, WithoutAFullNameTheShortNameServes) {
  addPrincipal(schema::kUsers, "anna", guid_);
  expectName(guid_, "anna", 0);
  addPrincipal(schema::kGroups, "staff", guidNumber(2));
  expectName(guidNumber(2), "staff", 1);
}

TEST_F(PrincipalNameLookup, TheFirstOfSeveralNamesServes) {
  directory.addRecord(
      "/Local", schema::kUsers, "anna",
      {{schema::kGeneratedUID, guidText(guid_)}, {schema::kRealName, Array{"First", "Second"}}});
  expectName(guid_, "First", 0);
}

TEST_F(PrincipalNameLookup, RecordGuidMatchesInEitherLetterCase) {
  directory.addRecord("/Local", schema::kUsers, "anna",
                      {{schema::kGeneratedUID, "deadbeef-0000-0000-0000-000000000001"}});
  expectName(guid_, "anna", 0);
}

TEST_F(PrincipalNameLookup, OfSeveralRecordsTheFirstAnswerServes) {
  addPrincipal(schema::kGroups, "earlier", guid_);
  addPrincipal(schema::kUsers, "later", guid_);
  expectName(guid_, "earlier", 1);
}

TEST_F(PrincipalNameLookup, RecordsOfOtherTypesAreNoPrincipals) {
  addPrincipal("dsRecTypeStandard:Computers", "host", guid_, "A Host");
  expectUnknown(guid_);
}

TEST_F(PrincipalNameLookup, MissingGuidRecordFallsBackToMembershipId) {
  addRecordWithId(schema::kUsers, "anna", "1000", "Anna Example");
  addRecordWithId(schema::kGroups, "staff", "20");
  expectName(guidOfUser(1000), "Anna Example", 0);
  expectName(guidOfGroup(20), "staff", 1);
}

TEST_F(PrincipalNameLookup, UserAndGroupWithSameIdAreDistinguished) {
  addRecordWithId(schema::kUsers, "user", "20");
  addRecordWithId(schema::kGroups, "group", "20");
  expectName(guidOfUser(20), "user", 0);
  expectName(guidOfGroup(20), "group", 1);
}

TEST_F(PrincipalNameLookup, TheRecordWinsOverTheMembershipService) {
  membership.setGuid({PrincipalType::user, 1000}, guid_);
  addRecordWithId(schema::kUsers, "by-id", "1000");
  addPrincipal(schema::kGroups, "by-guid", guid_);
  expectName(guid_, "by-guid", 1);
}

TEST_F(PrincipalNameLookup, AnIdWithoutARecordIsUnknown) {
  expectUnknown(guidOfUser(1000));
  expectUnknown(guidOfGroup(20));
}

TEST_F(PrincipalNameLookup, AGuidThatNobodyKnowsIsUnknown) {
  EXPECT_EQ(ace::kUnknownKind, 1061109567);
  expectUnknown(guid_);
  expectUnknown(Guid{});
}

TEST_F(PrincipalNameLookup, FailedMembershipServiceLeavesPrincipalUnknown) {
  addRecordWithId(schema::kUsers, "anna", "1000");
  const Guid guid = guidOfUser(1000);
  membership.failWith(EIO);
  expectUnknown(guid);
}

TEST_F(PrincipalNameLookup, AnErrorOfTheDirectoryReachesTheCaller) {
  for (std::size_t search = 1; search <= 2; ++search) {
    EXPECT_THROW(failing(
                     "node.findRecordsOfTypes",
                     [&] { return principal_name(guidOfUser(1000)).kind; }, search),
                 DirectoryError);
  }
}

// How often each service is asked.
class PrincipalLookupCost : public PrincipalNameLookup {
 protected:
  std::vector<std::string> callsFor(const Guid& guid) {
    FaultPlan none;
    const ForwardingServices counted(doubles(), none);
    const ServicesGuard guard(counted.services());
    principal_name(guid);
    std::vector<std::string> calls = none.calls();
    std::erase_if(calls, [](const std::string& call) {
      return call == "directory.openLocal" || call == "session.searchNode";
    });
    return calls;
  }
};

TEST_F(PrincipalLookupCost, GuidRecordTakesOneSearchOfBothTypes) {
  addPrincipal(schema::kGroups, "staff", guid_);
  EXPECT_EQ(callsFor(guid_), (std::vector<std::string>{"node.findRecordsOfTypes"}));
}

TEST_F(PrincipalLookupCost, IdTakesMembershipQueryAndSecondSearch) {
  addRecordWithId(schema::kUsers, "anna", "1000");
  EXPECT_EQ(callsFor(guidOfUser(1000)),
            (std::vector<std::string>{"node.findRecordsOfTypes", "membership.guidToId",
                                      "node.findRecordsOfTypes"}));
}

TEST_F(PrincipalLookupCost, NothingIsKept) {
  addPrincipal(schema::kUsers, "anna", guid_);
  expectName(guid_, "anna", 0);
  directory.openLocal()->localNode()->findRecord("anna", schema::kUsers)->removeRecord();
  expectUnknown(guid_);
}

class NameForId : public PrincipalNameLookup {};

TEST_F(NameForId, AUserIsFoundByItsUid) {
  addRecordWithId(schema::kUsers, "anna", "1000", "Anna Example");
  EXPECT_EQ(get_name_for_id("1000", schema::kUsers), "Anna Example");
}

TEST_F(NameForId, AGroupIsFoundByItsGid) {
  addRecordWithId(schema::kGroups, "staff", "20");
  EXPECT_EQ(get_name_for_id("20", schema::kGroups), "staff");
}

TEST_F(NameForId, AnyOtherTypeIsFoundByItsGid) {
  directory.addRecord("/Local", "dsRecTypeStandard:Computers", "host",
                      {{schema::kPrimaryGroupID, "20"}, {schema::kUniqueID, "21"}});
  EXPECT_EQ(get_name_for_id("20", "dsRecTypeStandard:Computers"), "host");
  EXPECT_EQ(get_name_for_id("21", "dsRecTypeStandard:Computers"), std::nullopt);
}

TEST_F(NameForId, AUsersGroupIsNotItsId) {
  directory.addRecord("/Local", schema::kUsers, "anna",
                      {{schema::kUniqueID, "1000"}, {schema::kPrimaryGroupID, "20"}});
  EXPECT_EQ(get_name_for_id("20", schema::kUsers), std::nullopt);
  EXPECT_EQ(get_name_for_id("20", schema::kGroups), std::nullopt);
}

TEST_F(NameForId, WithoutARecordThereIsNone) {
  EXPECT_EQ(get_name_for_id("1000", schema::kUsers), std::nullopt);
  EXPECT_EQ(get_name_for_id("", schema::kUsers), std::nullopt);
}

}  // namespace
}  // namespace paddock
