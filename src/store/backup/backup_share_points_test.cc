#include "store/backup/backup_share_points.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

#include "store/schema.h"
#include "support/module_fixture.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Names = std::vector<std::string>;

class BackupSharePointsTest : public ModuleFixture {
 protected:
  void addDestination(const std::string& name, const std::string& backup,
                      const std::string& shared) {
    addSharePoint(name, "/srv/" + name,
                  {{schema::kBackstowBackup, backup},
                   {schema::kVspShared, shared},
                   {schema::kVspName, name + " over VSP"},
                   {schema::kBackstowBackupUuid, "uuid of " + name}});
  }
  // The names over VSP.
  Names found() {
    EXPECT_EQ(get_backup_share_points(sharePoints_), 0);
    Names names;
    for (const SharePointRecord& record : sharePoints_) {
      names.push_back(record.nameOverVSP().value_or("(none)"));
    }
    return names;
  }

  std::vector<SharePointRecord> sharePoints_;
};

TEST_F(BackupSharePointsTest, AreThoseThatAreMarkedAndSharedOverVspInTheOrderOfTheDirectory) {
  addDestination("beta", "1", "1");
  addDestination("not marked", "0", "1");
  addDestination("not shared", "1", "0");
  addDestination("alpha", "yes", "TRUE");
  EXPECT_THAT(found(), ElementsAre("beta over VSP", "alpha over VSP"));
  EXPECT_EQ(sharePoints_.front().backstowBackupUUID(), "uuid of beta");
}

TEST_F(BackupSharePointsTest, AFlagThatIsNotSetOrSaysNothingIsFalse) {
  addSharePoint("a", "/srv/a", {{schema::kBackstowBackup, "1"}});
  addSharePoint("b", "/srv/b", {{schema::kVspShared, "1"}});
  addSharePoint("c", "/srv/c");
  addDestination("d", "maybe", "1");
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(BackupSharePointsTest, ADestinationNeedsNeitherNameNorIdentifier) {
  addSharePoint("a", "/srv/a", {{schema::kBackstowBackup, "1"}, {schema::kVspShared, "1"}});
  EXPECT_THAT(found(), ElementsAre("(none)"));
}

TEST_F(BackupSharePointsTest, OnlyShareRecordsOfTheLocalNodeAreAskedAndForFourAttributes) {
  addRecord(schema::kMounts, "m", {{schema::kBackstowBackup, "1"}, {schema::kVspShared, "1"}});
  directory.addNode("/LDAP/site", "ReadWrite");
  directory.addRecord("/LDAP/site", schema::kSharePoints, "l",
                      {{schema::kBackstowBackup, "1"}, {schema::kVspShared, "1"}});
  addDestination("a", "1", "1");
  trace.forgetCalls();
  EXPECT_THAT(found(), ElementsAre("a over VSP"));
  EXPECT_EQ(trace.callsOf("findRecordNames"),
            (std::vector<ServiceCall>{{"findRecordNames", kRecordsAll, schema::kSharePoints}}));
  EXPECT_FALSE(sharePoints_.front().path()) << "it was not asked for";
}

TEST_F(BackupSharePointsTest, ReplaceWhatTheListHeld) {
  sharePoints_.resize(3, SharePointRecord::record());
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(BackupSharePointsTest, ADirectoryThatCannotBeSearchedIsItsStatusAndTheListStays) {
  addDestination("a", "1", "1");
  for (const char* operation : {"openLocal", "localNode", "findRecordNames"}) {
    trace.raise(operation, DirectoryError(EIO, "damaged"), 1);
    sharePoints_.assign(2, SharePointRecord::record());
    EXPECT_EQ(get_backup_share_points(sharePoints_), CANNOT_RETRIEVE_SHARE_POINTS_ERR) << operation;
    EXPECT_EQ(sharePoints_.size(), 2U);
  }
  trace.raise("findRecordNames", std::runtime_error("something else"), 1);
  EXPECT_EQ(get_backup_share_points(sharePoints_), CANNOT_RETRIEVE_SHARE_POINTS_ERR);
  EXPECT_EQ(sharePoints_.size(), 2U);
}

}  // namespace
}  // namespace paddock
