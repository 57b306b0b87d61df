#include "store/directory_access.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

#include "support/module_fixture.h"

namespace paddock {
namespace {

using schema::kDirectoryPath;
using schema::kMounts;
using schema::kRecordName;
using schema::kSharePoints;
using schema::kVspName;

class DirectoryAccess : public ModuleFixture {
 protected:
  static std::string nameOf(const DirectoryRecordPtr& record) {
    return record ? record->getAttributeFirstValue(kRecordName).value_or("(no name)") : "(none)";
  }
  // A record that a lookup has to replace by its own answer.
  DirectoryRecordPtr staleRecord() { return get_local_node()->findRecord("stale", kMounts); }

  void SetUp() override { addRecord(kMounts, "stale"); }
};

TEST_F(DirectoryAccess, LocalNodeHoldsRecordsOfThisServer) {
  EXPECT_EQ(get_local_node()->path(), "/Local");
}

TEST_F(DirectoryAccess, LocalNodeCallOpensNewSession) {
  trace.forgetCalls();
  const auto first = get_local_node();
  const auto second = get_local_node();
  EXPECT_EQ(trace.count("openLocal"), 2U);
}

TEST_F(DirectoryAccess, SessionLastsExactlyAsLongAsNode) {
  {
    const auto node = get_local_node();
    addSharePoint("a", "/srv/a");
    EXPECT_NE(node->findRecord("a", kSharePoints), nullptr);
  }
  EXPECT_EQ(directory.openSessions(), 0);
}

TEST_F(DirectoryAccess, AnErrorOfTheLocalNodeIsThrown) {
  trace.raise("localNode", DirectoryError(EIO, "damaged"));
  EXPECT_THROW(get_local_node(), DirectoryError);
}

TEST_F(DirectoryAccess, AnErrorOfOpeningTheSessionIsThrown) {
  trace.raise("openLocal", DirectoryError(EBUSY, "locked"));
  EXPECT_THROW(get_local_node(), DirectoryError);
  EXPECT_EQ(directory.openSessions(), 0);
}

TEST_F(DirectoryAccess, FindsRecordByAttributeValue) {
  addSharePoint("a", "/srv/a");
  addSharePoint("b", "/srv/b");
  DirectoryRecordPtr record;
  EXPECT_EQ(get_local_ds_record(kDirectoryPath, "/srv/b", kSharePoints, record), 0);
  EXPECT_EQ(nameOf(record), "b");
}

TEST_F(DirectoryAccess, FindsOnGivenNode) {
  directory.addNode("/Other", "ReadWrite");
  directory.addRecord("/Other", kSharePoints, "there", {{kDirectoryPath, "/srv/x"}});
  const auto node = services().directory->openLocal()->findNode("/Other");
  DirectoryRecordPtr record;
  EXPECT_EQ(get_ds_record(kDirectoryPath, "/srv/x", kSharePoints, record, *node), 0);
  EXPECT_EQ(nameOf(record), "there");
  EXPECT_EQ(get_local_ds_record(kDirectoryPath, "/srv/x", kSharePoints, record), 0);
  EXPECT_EQ(record, nullptr);
}

TEST_F(DirectoryAccess, NoMatchIsSuccessWithoutARecord) {
  DirectoryRecordPtr record = staleRecord();
  EXPECT_EQ(get_local_ds_record(kDirectoryPath, "/srv/a", kSharePoints, record), 0);
  EXPECT_EQ(record, nullptr);
}

TEST_F(DirectoryAccess, ValuesMatchWhateverTheirLetterCase) {
  addSharePoint("a",
                "/srv/Stra\xC3\x9F"
                "e/\xC3\x84rger");
  DirectoryRecordPtr record;
  EXPECT_EQ(get_local_ds_record(kDirectoryPath, "/SRV/STRASSE/\xC3\xA4RGER", kSharePoints, record),
            0);
  EXPECT_EQ(nameOf(record), "a");
}

TEST_F(DirectoryAccess, ValuesMatchExactlyAndNotByAPart) {
  addSharePoint("a", "/srv/a");
  DirectoryRecordPtr record;
  for (const char* path : {"/srv", "/srv/a/", "/srv/ab", " /srv/a", ""}) {
    EXPECT_EQ(get_local_ds_record(kDirectoryPath, path, kSharePoints, record), 0);
    EXPECT_EQ(record, nullptr) << path;
  }
}

TEST_F(DirectoryAccess, RecordsOfAnotherTypeDoNotMatch) {
  addRecord(kMounts, "a", {{kDirectoryPath, "/srv/a"}});
  DirectoryRecordPtr record;
  EXPECT_EQ(get_local_ds_record(kDirectoryPath, "/srv/a", kSharePoints, record), 0);
  EXPECT_EQ(record, nullptr);
}

TEST_F(DirectoryAccess, TheLastOfSeveralMatchesIsTaken) {
  addSharePoint("first", "/srv/a");
  addSharePoint("second", "/srv/a");
  addSharePoint("third", "/SRV/A");
  DirectoryRecordPtr record;
  EXPECT_EQ(get_local_ds_record(kDirectoryPath, "/srv/a", kSharePoints, record), 0);
  EXPECT_EQ(nameOf(record), "third");
}

TEST_F(DirectoryAccess, RecordIsFetchedByLastName) {
  addRecord(kSharePoints, "main",
            {{kRecordName, Array{"main", "alias"}}, {kDirectoryPath, "/srv/a"}});
  trace.forgetCalls();
  DirectoryRecordPtr record;
  EXPECT_EQ(get_local_ds_record(kDirectoryPath, "/srv/a", kSharePoints, record), 0);
  EXPECT_EQ(nameOf(record), "main");
  EXPECT_EQ(trace.callsOf("findRecord"),
            (std::vector<ServiceCall>{{"findRecord", "alias", kSharePoints}}));
}

TEST_F(DirectoryAccess, DirectoryErrorDuringSearchReturnsItsStatus) {
  addSharePoint("a", "/srv/a");
  DirectoryRecordPtr record = staleRecord();
  trace.raise("findRecordsOfTypes", DirectoryError(ETIMEDOUT, "slow"));
  EXPECT_EQ(get_local_ds_record(kDirectoryPath, "/srv/a", kSharePoints, record), ETIMEDOUT);
  EXPECT_EQ(record, nullptr);
}

TEST_F(DirectoryAccess, DirectoryErrorDuringFetchReturnsItsStatus) {
  addSharePoint("a", "/srv/a");
  DirectoryRecordPtr record = staleRecord();
  trace.raise("findRecord", DirectoryError(-14090, "refused"));
  EXPECT_EQ(get_local_ds_record(kDirectoryPath, "/srv/a", kSharePoints, record), -14090);
  EXPECT_EQ(record, nullptr);
}

TEST_F(DirectoryAccess, DirectoryErrorWithoutStatusCountsAsNotFound) {
  addSharePoint("a", "/srv/a");
  DirectoryRecordPtr record = staleRecord();
  trace.raise("findRecordsOfTypes", DirectoryError("no number"));
  EXPECT_EQ(get_local_ds_record(kDirectoryPath, "/srv/a", kSharePoints, record), 0);
  EXPECT_EQ(record, nullptr);
}

TEST_F(DirectoryAccess, OtherLookupErrorCountsAsNotFound) {
  addSharePoint("a", "/srv/a");
  DirectoryRecordPtr record = staleRecord();
  trace.raise("findRecordsOfTypes", std::runtime_error("broken"), 1);
  EXPECT_EQ(get_local_ds_record(kDirectoryPath, "/srv/a", kSharePoints, record), 0);
  EXPECT_EQ(record, nullptr);
  trace.raise("findRecord", 42, 1);
  EXPECT_EQ(get_local_ds_record(kDirectoryPath, "/srv/a", kSharePoints, record), 0);
  EXPECT_EQ(record, nullptr);
  EXPECT_EQ(get_local_ds_record(kDirectoryPath, "/srv/a", kSharePoints, record), 0);
  EXPECT_EQ(nameOf(record), "a");
}

TEST_F(DirectoryAccess, RecordRemovedBeforeFetchIsNotFound) {
  addSharePoint("a", "/srv/a");
  trace.when(
      "findRecord",
      [this](const ServiceCall&) {
        removeRecord(kSharePoints, "a");
        return 0;
      },
      1);
  DirectoryRecordPtr record = nullptr;
  EXPECT_EQ(get_local_ds_record(kDirectoryPath, "/srv/a", kSharePoints, record), 0);
  EXPECT_EQ(record, nullptr);
}

TEST_F(DirectoryAccess, LocalNodeErrorIsReturnedByLookups) {
  DirectoryRecordPtr record = staleRecord();
  trace.raise("localNode", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(get_local_ds_record(kDirectoryPath, "/srv/a", kSharePoints, record), EIO);
  EXPECT_EQ(record, nullptr);
  EXPECT_EQ(get_local_ds_record_by_name("a", kSharePoints, true, record), EIO);
  EXPECT_EQ(record, nullptr);
  EXPECT_EQ(delete_local_ds_record_by_name("stale", kMounts), EIO);
}

TEST_F(DirectoryAccess, FindsByAnyOfARecordsNames) {
  addRecord(kMounts, "main", {{kRecordName, Array{"main", "alias"}}});
  DirectoryRecordPtr record;
  EXPECT_EQ(get_local_ds_record_by_name("main", kMounts, false, record), 0);
  EXPECT_EQ(nameOf(record), "main");
  EXPECT_EQ(get_local_ds_record_by_name("ALIAS", kMounts, false, record), 0);
  EXPECT_EQ(nameOf(record), "main");
}

TEST_F(DirectoryAccess, MissingNameWithoutCreationSucceedsWithoutRecord) {
  DirectoryRecordPtr record = staleRecord();
  EXPECT_EQ(get_local_ds_record_by_name("a", kMounts, false, record), 0);
  EXPECT_EQ(record, nullptr);
  EXPECT_EQ(recordNames(kMounts), (std::vector<std::string>{"stale"}));
}

TEST_F(DirectoryAccess, MissingNameWithCreationBecomesNewRecord) {
  DirectoryRecordPtr record;
  EXPECT_EQ(get_local_ds_record_by_name("a", kMounts, true, record), 0);
  EXPECT_EQ(nameOf(record), "a");
  EXPECT_EQ(recordNames(kMounts), (std::vector<std::string>{"stale", "a"}));
}

TEST_F(DirectoryAccess, ExistingNameReturnsItsRecordAndCreatesNothing) {
  addRecord(kMounts, "a", {{kDirectoryPath, "/srv/a"}});
  DirectoryRecordPtr record;
  trace.forgetCalls();
  EXPECT_EQ(get_local_ds_record_by_name("A", kMounts, true, record), 0);
  EXPECT_EQ(nameOf(record), "a");
  EXPECT_EQ(recordNames(kMounts), (std::vector<std::string>{"stale", "a"}));
  EXPECT_EQ(trace.count("newRecord"), 0U);
}

TEST_F(DirectoryAccess, ACreationThatRaisesGivesMinusTwo) {
  DirectoryRecordPtr record = staleRecord();
  trace.raise("newRecord", DirectoryError(EACCES, "read-only"), 1);
  EXPECT_EQ(get_local_ds_record_by_name("a", kMounts, true, record), -2);
  EXPECT_EQ(record, nullptr);
  trace.raise("newRecord", std::runtime_error("broken"), 1);
  EXPECT_EQ(get_local_ds_record_by_name("a", kMounts, true, record), -2);
  trace.raise("newRecord", 42, 1);
  EXPECT_EQ(get_local_ds_record_by_name("a", kMounts, true, record), -2);
  EXPECT_EQ(get_local_ds_record_by_name("", kMounts, true, record), -2) << "no record is nameless";
}

TEST_F(DirectoryAccess, AfterAFailedLookupNothingIsCreated) {
  DirectoryRecordPtr record = staleRecord();
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(get_local_ds_record_by_name("a", kMounts, true, record), EIO);
  EXPECT_EQ(record, nullptr);
  EXPECT_EQ(trace.count("newRecord"), 0U);
}

TEST_F(DirectoryAccess, CreatesOnTheNodeThatIsGiven) {
  directory.addNode("/Other", "ReadWrite");
  DirectoryRecordPtr record;
  const auto node = services().directory->openLocal()->findNode("/Other");
  EXPECT_EQ(get_ds_record_by_name("a", kMounts, true, record, *node), 0);
  EXPECT_EQ(nameOf(record), "a");
  EXPECT_NE(node->findRecord("a", kMounts), nullptr);
  EXPECT_EQ(recordNames(kMounts), (std::vector<std::string>{"stale"}));
}

TEST_F(DirectoryAccess, RemovesTheRecordOfTheName) {
  addRecord(kMounts, "a");
  EXPECT_EQ(delete_local_ds_record_by_name("a", kMounts), 0);
  EXPECT_EQ(recordNames(kMounts), (std::vector<std::string>{"stale"}));
}

TEST_F(DirectoryAccess, RemovesOnTheNodeThatIsGiven) {
  directory.addNode("/Other", "ReadWrite");
  directory.addRecord("/Other", kMounts, "stale");
  const auto node = services().directory->openLocal()->findNode("/Other");
  EXPECT_EQ(delete_ds_record_by_name("stale", kMounts, *node), 0);
  EXPECT_EQ(node->findRecord("stale", kMounts), nullptr);
  EXPECT_EQ(recordNames(kMounts), (std::vector<std::string>{"stale"}));
}

TEST_F(DirectoryAccess, RemovingAMissingNameIsSuccess) {
  EXPECT_EQ(delete_local_ds_record_by_name("a", kMounts), 0);
  EXPECT_EQ(delete_local_ds_record_by_name("stale", kSharePoints), 0);
  EXPECT_EQ(recordNames(kMounts), (std::vector<std::string>{"stale"}));
}

TEST_F(DirectoryAccess, ARemovalThatRaisesGivesMinusThree) {
  trace.raise("removeRecord", DirectoryError(EACCES, "read-only"), 1);
  EXPECT_EQ(delete_local_ds_record_by_name("stale", kMounts), -3);
  trace.raise("removeRecord", std::runtime_error("broken"), 1);
  EXPECT_EQ(delete_local_ds_record_by_name("stale", kMounts), -3);
  trace.raise("removeRecord", 42, 1);
  EXPECT_EQ(delete_local_ds_record_by_name("stale", kMounts), -3);
  EXPECT_EQ(recordNames(kMounts), (std::vector<std::string>{"stale"}));
}

TEST_F(DirectoryAccess, RemovalReturnsStatusOfFailedLookup) {
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(delete_local_ds_record_by_name("stale", kMounts), EIO);
  EXPECT_EQ(trace.count("removeRecord"), 0U);
}

TEST_F(DirectoryAccess, RemovingAllAttributesFollowsRecordOrder) {
  addRecord(kSharePoints, "a",
            {{kDirectoryPath, "/srv/a"}, {kVspName, Array{"v", "w"}}, {"dsAttrTypeNative:x", "y"}});
  const auto record = get_local_node()->findRecord("a", kSharePoints);
  const std::vector<std::string> attributes = record->getAllAttributes();
  trace.forgetCalls();
  record->removeAllAttributesAndValues();
  std::vector<std::string> removed;
  for (const ServiceCall& call : trace.callsOf("removeAttribute")) removed.push_back(call.detail);
  EXPECT_EQ(removed, attributes);
  EXPECT_TRUE(values(kSharePoints, "a", kDirectoryPath).empty());
  EXPECT_TRUE(values(kSharePoints, "a", kVspName).empty());
}

TEST_F(DirectoryAccess, SettingDictionaryStoresWholeArraysKeepsOtherAttributes) {
  addRecord(kSharePoints, "a", {{kDirectoryPath, "/srv/a"}, {kVspName, Array{"v", "w"}}});
  get_local_node()
      ->findRecord("a", kSharePoints)
      ->setAttributesAndValues({{kVspName, "single"}, {"dsAttrTypeNative:x", Array{"1", "2"}}});
  EXPECT_EQ(values(kSharePoints, "a", kVspName), (Array{"single"}));
  EXPECT_EQ(values(kSharePoints, "a", "dsAttrTypeNative:x"), (Array{"1", "2"}));
  EXPECT_EQ(values(kSharePoints, "a", kDirectoryPath), (Array{"/srv/a"}));
}

TEST_F(DirectoryAccess, FailedLookupReturnsReasonAndLogsNothing) {
  DirectoryRecordPtr record;
  std::string reason = "none";
  EXPECT_EQ(get_local_ds_record(kDirectoryPath, "/srv/a", kSharePoints, record, &reason), 0);
  EXPECT_EQ(reason, "none");
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"), 1);
  EXPECT_EQ(get_local_ds_record(kDirectoryPath, "/srv/a", kSharePoints, record, &reason), EIO);
  EXPECT_EQ(reason, "damaged");
  trace.raise("localNode", DirectoryError(EBUSY, "locked"), 1);
  EXPECT_EQ(get_local_ds_record(kDirectoryPath, "/srv/a", kSharePoints, record, &reason), EBUSY);
  EXPECT_EQ(reason, "locked");
  trace.raise("findRecordsOfTypes", std::runtime_error("broken"), 1);
  EXPECT_EQ(get_local_ds_record(kDirectoryPath, "/srv/a", kSharePoints, record, &reason), 0);
  EXPECT_EQ(reason, "broken");
  EXPECT_TRUE(logger.lines().empty());
}

TEST_F(DirectoryAccess, FailedCreationOrRemovalLogsRecordAndReason) {
  DirectoryRecordPtr record;
  trace.raise("newRecord", DirectoryError(EACCES, "read-only"), 1);
  EXPECT_EQ(get_local_ds_record_by_name("a", kMounts, true, record), kRecordCreationFailed);
  trace.raise("removeRecord", DirectoryError(EACCES, "read-only"));
  EXPECT_EQ(delete_local_ds_record_by_name("stale", kMounts), kRecordRemovalFailed);
  const std::string beginning = "paddock_sharing: The record ";
  const std::string type = std::string(" of type ") + kMounts;
  EXPECT_EQ(logger.lines(),
            (std::vector<RecordingLogger::Line>{
                {kLogError, beginning + "a" + type + " was not created: read-only"},
                {kLogError, beginning + "stale" + type + " was not removed: read-only"}}));
  std::string reason;
  EXPECT_EQ(delete_ds_record_by_name("stale", kMounts, *get_local_node(), &reason),
            kRecordRemovalFailed);
  EXPECT_EQ(reason, "read-only");
  EXPECT_EQ(logger.lines().size(), 2U);
}

}  // namespace
}  // namespace paddock
