#include "store/backup/backup_group.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

#include "store/schema.h"
#include "support/module_fixture.h"

namespace paddock {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using schema::kGroups;
using schema::kPrimaryGroupID;

constexpr const char* kName = "com.veltro.access_backup";

class BackupGroupTest : public ModuleFixture {
 protected:
  void addGroup(const std::string& name, const Value& numbers) {
    addRecord(kGroups, name, {{kPrimaryGroupID, numbers}});
  }
  Array numbers() { return values(kGroups, kName, kPrimaryGroupID); }
};

TEST_F(BackupGroupTest, IsMadeInTheLocalNodeWithTheFirstNumber) {
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(attributes(kGroups, kName),
            (Dictionary{{schema::kRecordName, Array{kName}}, {kPrimaryGroupID, Array{"250"}}}));
}

TEST_F(BackupGroupTest, IsMadeOnce) {
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_THAT(recordNames(kGroups), ElementsAre(kName));
  EXPECT_EQ(trace.count("newRecord"), 1U);
  EXPECT_EQ(trace.count("setAttribute"), 1U);
}

TEST_F(BackupGroupTest, OneThatIsThereKeepsItsNumberWhateverItIs) {
  addGroup(kName, "7");
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(numbers(), (Array{"7"}));
  EXPECT_EQ(trace.count("findRecordNames"), 0U) << "no number is looked for";
}

TEST_F(BackupGroupTest, IsFoundByANameThatDiffersInLetterCase) {
  addGroup("COM.Veltro.Access_Backup", "300");
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(recordNames(kGroups).size(), 1U);
}

TEST_F(BackupGroupTest, GetsTheFirstNumberThatNoLocalGroupHas) {
  addGroup("a", "250");
  addGroup("b", "252");
  addGroup("c", "251");
  addGroup("d", "254");
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(numbers(), (Array{"253"}));
}

TEST_F(BackupGroupTest, EveryNumberOfAGroupIsTaken) {
  addGroup("a", Array{"1000", "250"});
  addGroup("b", Array{"251", "20"});
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(numbers(), (Array{"252"}));
}

TEST_F(BackupGroupTest, NumbersAreComparedAsTexts) {
  addGroup("a", "0250");
  addGroup("b", "+250");
  addGroup("c", " 250");
  addGroup("d", "250 ");
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(numbers(), (Array{"250"}));
}

TEST_F(BackupGroupTest, NumbersBelow250AndThoseOfOthersThanLocalGroupsDoNotCount) {
  addGroup("a", "249");
  addRecord(schema::kUsers, "u", {{kPrimaryGroupID, "250"}});
  directory.addNode("/LDAP/site", "ReadWrite");
  directory.addRecord("/LDAP/site", kGroups, "l", {{kPrimaryGroupID, "250"}});
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(numbers(), (Array{"250"}));
}

TEST_F(BackupGroupTest, GroupsWithoutANumberDoNotCount) {
  addRecord(kGroups, "a");
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(numbers(), (Array{"250"}));
}

TEST_F(BackupGroupTest, TheNumbersOfThousandsOfGroupsAreFoundInOneSearch) {
  for (int number = 250; number < 1250; ++number) {
    addGroup("g" + std::to_string(number), std::to_string(number));
  }
  trace.forgetCalls();
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(numbers(), (Array{"1250"}));
  EXPECT_EQ(trace.count("findRecordNames"), 1U);
  EXPECT_LT(trace.calls().size(), 20U);
}

TEST_F(BackupGroupTest, TheSearchForANumberEndsAtTheLast) {
  const std::unordered_set<std::string> taken = {"4294967292", "4294967293", "4294967294"};
  EXPECT_EQ(first_free_group_number(taken, 4294967292, 4294967294), 4294967294U);
  EXPECT_EQ(first_free_group_number({"10"}, 10, 12), 11U);
  EXPECT_EQ(first_free_group_number({"10", "11"}, 10, 12), 12U);
  EXPECT_EQ(first_free_group_number({}, 12, 12), 12U);
}

TEST_F(BackupGroupTest, ThatCannotBeMadeIsThatStatus) {
  trace.raise("newRecord", DirectoryError(EACCES, "read-only"));
  EXPECT_EQ(require_backup_group(), kRecordCreationFailed);
  EXPECT_THAT(recordNames(kGroups), IsEmpty());
}

TEST_F(BackupGroupTest, ThatCannotBeLookedUpIsTheDirectorysStatusAndIsNotMade) {
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(require_backup_group(), EIO);
  EXPECT_EQ(trace.count("newRecord"), 0U);
  trace.forgetRules();
  trace.raise("openLocal", DirectoryError(EBUSY, "locked"));
  EXPECT_EQ(require_backup_group(), EBUSY);
}

TEST_F(BackupGroupTest, ALookupThatFailsOnceIsMadeAgainAndTheGroupKeepsItsNumber) {
  addGroup(kName, "7");
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"), 1);
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(numbers(), (Array{"7"}));
}

TEST_F(BackupGroupTest, WithoutTheNumbersOfTheOthersItGetsNone) {
  addGroup("a", "250");
  trace.raise("findRecordNames", DirectoryError(EIO, "damaged"), 1);
  EXPECT_EQ(require_backup_group(), EIO);
  EXPECT_THAT(numbers(), IsEmpty());
  trace.raise("findRecordNames", DirectoryError("no number"), 1);
  EXPECT_EQ(require_backup_group(), -1);
  trace.raise("findRecordNames", DirectoryError(0, "a number that says nothing"), 1);
  EXPECT_EQ(require_backup_group(), -1);
  EXPECT_THAT(numbers(), IsEmpty());
}

TEST_F(BackupGroupTest, OneThatWasLeftWithoutANumberGetsOneTheNextTime) {
  addGroup("a", "250");
  trace.raise("setAttribute", DirectoryError(ENOSPC, "disk full"), 1);
  EXPECT_THROW(require_backup_group(), DirectoryError);
  EXPECT_THAT(recordNames(kGroups), Contains(kName));
  EXPECT_THAT(numbers(), IsEmpty());
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(numbers(), (Array{"251"}));
}

TEST_F(BackupGroupTest, StepsComeInTheirOrder) {
  require_backup_group();
  EXPECT_THAT(
      trace.sequence({"findRecordsOfTypes", "newRecord", "findRecordNames", "setAttribute"}),
      ElementsAre("findRecordsOfTypes " + std::string(kName),
                  "findRecordsOfTypes " + std::string(kName), "newRecord " + std::string(kName),
                  "findRecordNames dsRecordsAll", "setAttribute " + std::string(kName)));
  EXPECT_EQ(directory.openSessions(), 0);
}

}  // namespace
}  // namespace paddock
