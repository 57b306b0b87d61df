#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

#include "base/status.h"
#include "store/directory_access.h"
#include "support/handler_fixture.h"

namespace paddock {

namespace {

using schema::kSmbName;

class ReadingSettingsTest : public HandlerFixture {
 protected:
  Dictionary read(const Dictionary& request) {
    return handler.performOperation("readSettings", request);
  }
  Dictionary readFolder(const std::string& path) {
    return read({{"optionalArguments", Dictionary{{"path", path}}}});
  }
  static const Dictionary& configuration(const Dictionary& reply) {
    static const Dictionary none;
    const Dictionary* found = reply.dictionary("configuration");
    return found != nullptr ? *found : none;
  }
};

class FolderReading : public ReadingSettingsTest {};

TEST_F(FolderReading, SharedFolderReturnsItsSharePointAsShared) {
  addSharePoint("a", "/srv/a", {{kSmbName, "smb"}});
  EXPECT_EQ(readFolder("/srv/a"),
            (Dictionary{{"readStatus", 0},
                        {"configuration",
                         Dictionary{{"fileAccessPrivs", missingPrivs("/srv/a")},
                                    {"sharePointRecord", Dictionary{{"path", "/srv/a"},
                                                                    {"name", "a"},
                                                                    {"nameOverSMB", "smb"},
                                                                    {"isIndexingEnabled", false},
                                                                    {"mountedOnPath", "/"},
                                                                    {"isShared", true}}},
                                    {"volumeQuotas", missingQuotas()},
                                    {"path", "/srv/a"}}}}));
}

TEST_F(FolderReading, UnsharedFolderReturnsOnlyIsSharedFalse) {
  EXPECT_EQ(readFolder("/srv/a"),
            (Dictionary{
                {"readStatus", 0},
                {"configuration", Dictionary{{"fileAccessPrivs", missingPrivs("/srv/a")},
                                             {"sharePointRecord", Dictionary{{"isShared", false}}},
                                             {"volumeQuotas", missingQuotas()},
                                             {"path", "/srv/a"}}}}));
}

TEST_F(FolderReading, MissingFolderContinuesChain) {
  addSharePoint("a", "/srv/a");
  volumes.setError("/srv/a", ENOENT);
  const Dictionary reply = readFolder("/srv/a");
  EXPECT_EQ(reply.integer("readStatus"), 0);
  EXPECT_EQ(
      *configuration(reply).dictionary("sharePointRecord"),
      (Dictionary{
          {"path", "/srv/a"}, {"name", "a"}, {"isIndexingEnabled", false}, {"isShared", true}}));
}

TEST_F(FolderReading, TheExportComesWithTheSharePoint) {
  addSharePoint("a", "/srv/a");
  readExportsFile(managedBlock({"/srv/a *(rw)"}));
  const Dictionary reply = readFolder("/srv/a");
  const Dictionary* record = configuration(reply).dictionary("sharePointRecord");
  ASSERT_NE(record, nullptr);
  ASSERT_NE(record->dictionary("nfsExportRecord"), nullptr);
  EXPECT_EQ(*record->dictionary("nfsExportRecord")->array("clients"),
            (Array{Dictionary{{"host", "*"}, {"options", Array{"rw"}}}}));
}

TEST_F(FolderReading, OtherCasePathIsEchoedAndFindsShare) {
  addSharePoint("a", "/srv/a");
  const Dictionary reply = readFolder("/SRV/A");
  EXPECT_EQ(*configuration(reply).string("path"), "/SRV/A");
  EXPECT_EQ(*configuration(reply).dictionary("sharePointRecord")->string("path"), "/srv/a");
}

TEST_F(FolderReading, FailedLookupSetsStatusAndEmptiesLaterSteps) {
  addSharePoint("a", "/srv/a");
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(readFolder("/srv/a"),
            (Dictionary{
                {"readStatus", CANNOT_RETRIEVE_SHARE_POINTS_ERR},
                {"configuration", Dictionary{{"fileAccessPrivs", missingPrivs("/srv/a")},
                                             {"sharePointRecord", Dictionary{{"isShared", false}}},
                                             {"volumeQuotas", Dictionary{}},
                                             {"path", "/srv/a"}}}}));
}

TEST_F(FolderReading, NoErrorTextIsAttached) {
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"));
  const Dictionary reply = readFolder("/srv/a");
  EXPECT_FALSE(reply.contains("error"));
  EXPECT_FALSE(reply.contains("readError"));
  EXPECT_EQ(reply.size(), 2U);
}

TEST_F(FolderReading, UnreadableAttributesThrowAndReleaseLock) {
  addSharePoint("a", "/srv/a");
  trace.raise("getAllAttributesAndValues", DirectoryError(EIO, "damaged"), 1);
  EXPECT_THROW(readFolder("/srv/a"), DirectoryError);
  expectLockFree();
  EXPECT_EQ(readFolder("/srv/a").integer("readStatus"), 0);
}

TEST_F(FolderReading, PathsOfAnyKindAreAnswered) {
  for (const std::string& path :
       {std::string("relative"), std::string("/srv/../etc"), std::string("/srv/a\0b", 8),
        std::string("/srv/\n"), std::string("/srv/\xFF"), "/" + std::string(5000, 'x'),
        std::string()}) {
    const Dictionary reply = readFolder(path);
    EXPECT_EQ(reply.integer("readStatus"), 0) << path;
    EXPECT_EQ(*configuration(reply).string("path"), path);
    EXPECT_EQ(*configuration(reply).dictionary("sharePointRecord"),
              (Dictionary{{"isShared", false}}));
  }
}

TEST_F(FolderReading, FolderReadDoesNotRereadExportsFile) {
  addSharePoint("a", "/srv/a");
  readExportsFile("");
  trace.forgetCalls();
  readFolder("/srv/a");
  EXPECT_EQ(trace.count("read"), 0U);
}

// A share point as the list of all of them has it, its folder /srv/NAME.
Dictionary listed(const std::string& name) {
  return {{"name", name},
          {"path", "/srv/" + name},
          {"isIndexingEnabled", false},
          {"mountedOnPath", "/"}};
}

class WholeServerReading : public ReadingSettingsTest {};

TEST_F(WholeServerReading, ListsAllSharePoints) {
  addSharePoint("b", "/srv/b");
  addSharePoint("a", "/srv/a");
  EXPECT_EQ(read({}),
            (Dictionary{{"readStatus", 0},
                        {"configuration",
                         Dictionary{{"sharePointList", Array{listed("b"), listed("a")}}}}}));
}

TEST_F(WholeServerReading, WithoutSharePointsTheConfigurationIsEmpty) {
  EXPECT_EQ(read({}), (Dictionary{{"readStatus", 0}, {"configuration", Dictionary{}}}));
}

TEST_F(WholeServerReading, OptionalArgumentsWithoutPathReadWholeServer) {
  addSharePoint("a", "/srv/a");
  for (const Value& arguments :
       std::vector<Value>{Dictionary{}, Dictionary{{"other", "/srv/a"}}, Dictionary{{"path", 7}},
                          Dictionary{{"path", Array{"/srv/a"}}}, "path", Array{"path"}, 7}) {
    const Dictionary reply = read({{"optionalArguments", arguments}});
    EXPECT_NE(configuration(reply).array("sharePointList"), nullptr);
    EXPECT_EQ(configuration(reply).size(), 1U);
  }
}

TEST_F(WholeServerReading, UnreadableListIsAbsentWithStatus) {
  addSharePoint("a", "/srv/a");
  trace.raise("localNode", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(read({}), (Dictionary{{"readStatus", CANNOT_RETRIEVE_SHARE_POINTS_ERR},
                                  {"configuration", Dictionary{}}}));
}

TEST_F(WholeServerReading, UnsearchableDirectoryReadsAsNoSharePoints) {
  addSharePoint("a", "/srv/a");
  trace.raise("findRecordNames", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(read({}), (Dictionary{{"readStatus", 0}, {"configuration", Dictionary{}}}));
}

TEST_F(WholeServerReading, ReadsTheExportsFileAgain) {
  addSharePoint("a", "/srv/a");
  read({});
  setExportsFile(managedBlock({"/srv/a *(rw)"}));
  const Dictionary reply = read({});
  const Array* list = configuration(reply).array("sharePointList");
  ASSERT_NE(list, nullptr);
  EXPECT_NE(list->front().dictionary()->dictionary("nfsExportRecord"), nullptr);
}

class SharePointListReply : public HandlerFixture {
 protected:
  Dictionary list(const Dictionary& request = {}) {
    return handler.performOperation("getSharePointList", request);
  }
};

TEST_F(SharePointListReply, HoldsAllSharePointsAndTheStatus) {
  addSharePoint("a", "/srv/a");
  EXPECT_EQ(list(), (Dictionary{{"readStatus", 0}, {"sharePointList", Array{listed("a")}}}));
}

TEST_F(SharePointListReply, IsAbsentWithoutSharePoints) {
  EXPECT_EQ(list(), (Dictionary{{"readStatus", 0}}));
}

TEST_F(SharePointListReply, ReadsNothingFromItsRequest) {
  addSharePoint("a", "/srv/a");
  EXPECT_EQ(list({{"optionalArguments", Dictionary{{"path", "/srv/b"}}}, {"filter", "x"}}), list());
}

TEST_F(SharePointListReply, AFailureIsItsStatusWithItsText) {
  addSharePoint("a", "/srv/a");
  trace.raise("localNode", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(list(), (Dictionary{{"readStatus", CANNOT_RETRIEVE_SHARE_POINTS_ERR},
                                {"error", "CANNOT_RETRIEVE_SHARE_POINTS_ERR"}}));
  expectLockFree();
}

TEST_F(SharePointListReply, UnsearchableDirectoryHasNoErrorText) {
  addSharePoint("a", "/srv/a");
  trace.raise("findRecordNames", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(list(), (Dictionary{{"readStatus", 0}}));
}

using schema::kDirectoryPath;

using Names = std::vector<std::string>;

class WritingSettingsTest : public HandlerFixture {
 protected:
  Dictionary write(const Dictionary& request) {
    return handler.performOperation("writeSettings", request);
  }
  Dictionary writeFolder(const std::string& path, const Dictionary& configuration) {
    return write(
        {{"optionalArguments", Dictionary{{"path", path}}}, {"configuration", configuration}});
  }
  Dictionary writeSharePoint(const std::string& path, const Value& record) {
    return writeFolder(path, {{"sharePointRecord", record}});
  }
  static const Dictionary* sharePointRecord(const Dictionary& reply) {
    const Dictionary* configuration = reply.dictionary("configuration");
    return configuration != nullptr ? configuration->dictionary("sharePointRecord") : nullptr;
  }
};

class FolderWriting : public WritingSettingsTest {};

TEST_F(FolderWriting, SharesAFolderAndReadsItBack) {
  EXPECT_EQ(
      writeSharePoint("/srv/a", Dictionary{{"path", "/srv/a"}, {"name", "a"}, {"isShared", true}}),
      (Dictionary{
          {"writeStatus", 0},
          {"readStatus", 0},
          {"configuration", Dictionary{{"fileAccessPrivs", missingPrivs("/srv/a")},
                                       {"sharePointRecord", Dictionary{{"path", "/srv/a"},
                                                                       {"name", "a"},
                                                                       {"isIndexingEnabled", false},
                                                                       {"mountedOnPath", "/"},
                                                                       {"isShared", true}}},
                                       {"volumeQuotas", missingQuotas()},
                                       {"path", "/srv/a"}}}}));
  EXPECT_EQ(sharePointNames(), (Names{"a"}));
}

TEST_F(FolderWriting, WhatWasReadCanBeSentBackChanged) {
  tree.setFolder("/srv/a");
  addSharePoint("a", "/srv/a", {{kSmbName, "smb"}, {"dsAttrTypeNative:vsp_shared", "1"}});
  readExportsFile(managedBlock({"/srv/a *(rw)"}));
  const Dictionary read = handler.performOperation(
      "readSettings", {{"optionalArguments", Dictionary{{"path", "/srv/a"}}}});
  Dictionary configuration = *read.dictionary("configuration");
  Dictionary record = *configuration.dictionary("sharePointRecord");
  record.set("nameOverSMB", "changed");
  configuration.set("sharePointRecord", record);
  const Dictionary reply = writeFolder("/srv/a", configuration);
  EXPECT_EQ(reply.integer("writeStatus"), 0);
  EXPECT_EQ(*reply.dictionary("configuration"), configuration);
}

TEST_F(FolderWriting, WithoutIsSharedTheFolderIsShared) {
  writeSharePoint("/srv/a", Dictionary{{"path", "/srv/a"}, {"name", "a"}});
  EXPECT_EQ(sharePointNames(), (Names{"a"}));
}

TEST_F(FolderWriting, SharePointUsesWholeDictionaryIncludingPath) {
  const Dictionary reply =
      writeSharePoint("/srv/asked", Dictionary{{"path", "/srv/own"}, {"name", "a"}});
  EXPECT_EQ(valuesOfSharePoint("a", kDirectoryPath), (Array{"/srv/own"}));
  EXPECT_EQ(*reply.dictionary("configuration")->string("path"), "/srv/asked");
  EXPECT_EQ(*sharePointRecord(reply), (Dictionary{{"isShared", false}}));
}

TEST_F(FolderWriting, StringNoAndFalseNumbersRequestRemoval) {
  for (const Value& isShared : std::vector<Value>{"NO", false, 0}) {
    addSharePoint("a", "/srv/a");
    const Dictionary reply =
        writeSharePoint("/srv/a", Dictionary{{"isShared", isShared}, {"name", "ignored"}});
    EXPECT_EQ(reply.integer("writeStatus"), 0);
    EXPECT_EQ(*sharePointRecord(reply), (Dictionary{{"isShared", false}}));
    EXPECT_TRUE(sharePointNames().empty());
  }
}

TEST_F(FolderWriting, ARemovalTakesThePathOfTheRequest) {
  addSharePoint("a", "/srv/a");
  addSharePoint("b", "/srv/b");
  writeSharePoint("/srv/a", Dictionary{{"isShared", "NO"}, {"path", "/srv/b"}});
  EXPECT_EQ(sharePointNames(), (Names{"b"}));
}

TEST_F(FolderWriting, EveryOtherValueOfIsSharedMeansShared) {
  int count = 0;
  for (const Value& isShared : std::vector<Value>{
           "no", "No", "0", "false", "YES", "", " NO", "NO ", true, 1, -1, 100,
           Value::fromUnsigned(~std::uint64_t{0}), Array{}, Dictionary{}, Data{{'N', 'O'}}}) {
    const std::string name = "s" + std::to_string(count++);
    writeSharePoint("/srv/" + name,
                    Dictionary{{"path", "/srv/" + name}, {"name", name}, {"isShared", isShared}});
    EXPECT_NE(sharePoint(name), std::nullopt) << name;
  }
}

TEST_F(FolderWriting, IsDeletedDeletesPathOfDictionary) {
  addSharePoint("a", "/srv/a");
  addSharePoint("b", "/srv/b");
  writeSharePoint("/srv/a", Dictionary{{"path", "/srv/b"}, {"isDeleted", true}});
  EXPECT_EQ(sharePointNames(), (Names{"a"}));
}

TEST_F(FolderWriting, WithoutASharePointRecordNothingIsShared) {
  setExportsFile("\n/by/hand *(ro)\n");
  const Dictionary reply = writeFolder("/srv/a", {});
  EXPECT_EQ(reply.integer("writeStatus"), 0);
  EXPECT_EQ(*sharePointRecord(reply), (Dictionary{{"isShared", false}}));
  EXPECT_TRUE(sharePointNames().empty());
  EXPECT_EQ(exportsFile(), "/by/hand *(ro)\n") << "an empty list is written as well";
}

TEST_F(FolderWriting, NonDictionarySharePointRecordIsIgnored) {
  addSharePoint("a", "/srv/a");
  const auto before = sharePoint("a");
  for (const Value& record : std::vector<Value>{"x", "NO", 7, false, Array{Dictionary{}}, Data{}}) {
    for (const char* path : {"/srv/a", "/srv/b"}) {
      const Dictionary reply = writeSharePoint(path, record);
      EXPECT_EQ(reply.integer("writeStatus"), 0);
      EXPECT_EQ(reply.find("writeError"), nullptr);
    }
    EXPECT_EQ(sharePointNames(), (Names{"a"}));
    EXPECT_EQ(sharePoint("a"), before);
  }
  EXPECT_EQ(trace.count("newRecord"), 0U);
  EXPECT_TRUE(logger.lines().empty());
}

TEST_F(FolderWriting, TypesThatDoNotFitAreIgnored) {
  for (const Value& other : std::vector<Value>{"x", 7, true, Array{1}, Data{}}) {
    const Dictionary reply = writeFolder("/srv/a", {{"fileAccessPrivs", other},
                                                    {"volumeQuotas", other},
                                                    {"dsCredentials", other},
                                                    {"sharePointList", other}});
    EXPECT_EQ(reply.integer("writeStatus"), 0);
    EXPECT_FALSE(reply.contains("writeError"));
  }
}

TEST_F(FolderWriting, FolderFormIgnoresList) {
  writeFolder("/srv/a", {{"sharePointList", Array{Dictionary{{"path", "/srv/l"}, {"name", "l"}}}}});
  EXPECT_TRUE(sharePointNames().empty());
}

TEST_F(FolderWriting, AFailureIsItsStatusWithItsText) {
  volumes.setError("/srv/a", EIO);
  const Dictionary reply = writeSharePoint("/srv/a", Dictionary{{"path", "/srv/a"}, {"name", "a"}});
  EXPECT_EQ(reply.integer("writeStatus"), CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(*reply.string("writeError"), "CANNOT_SAVE_SHARE_POINT_ERR");
  EXPECT_EQ(*sharePointRecord(reply), (Dictionary{{"isShared", false}}));
}

TEST_F(FolderWriting, DirectoryStatusHasTextOfItsNumber) {
  trace.when(
      [](const ServiceCall& call) {
        return call.operation == "findRecordsOfTypes" && call.detail == kDirectoryPath;
      },
      [](const ServiceCall&) -> int { throw DirectoryError(ETIMEDOUT, "slow"); });
  const Dictionary reply = writeSharePoint("/srv/a", Dictionary{{"path", "/srv/a"}, {"name", "a"}});
  EXPECT_EQ(reply.integer("writeStatus"), ETIMEDOUT);
  EXPECT_EQ(*reply.string("writeError"), sharing_error_string(ETIMEDOUT));
}

TEST_F(FolderWriting, FailedReadBackShowsOnlyInConfiguration) {
  addSharePoint("a", "/srv/a");
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"));
  const Dictionary reply = writeFolder("/srv/a", {});
  EXPECT_EQ(reply, (Dictionary{{"writeStatus", 0},
                               {"readStatus", 0},
                               {"configuration",
                                Dictionary{{"fileAccessPrivs", missingPrivs("/srv/a")},
                                           {"sharePointRecord", Dictionary{{"isShared", false}}},
                                           {"volumeQuotas", Dictionary{}},
                                           {"path", "/srv/a"}}}}));
}

TEST_F(FolderWriting, ThrowingReadBackReleasesLock) {
  trace.when(
      "getAllAttributesAndValues",
      [](const ServiceCall&) -> int { throw DirectoryError(EIO, "damaged"); }, 1, 0);
  EXPECT_THROW(writeSharePoint("/srv/a", Dictionary{{"path", "/srv/a"}, {"name", "a"}}),
               DirectoryError);
  expectLockFree();
}

TEST_F(FolderWriting, AnExceptionOfTheWriteIsNoStatus) {
  addSharePoint("a", "/srv/a");
  trace.raise("removeAttribute", DirectoryError(EIO, "damaged"), 1);
  const Dictionary reply = writeSharePoint("/srv/a", Dictionary{{"path", "/srv/a"}});
  EXPECT_EQ(reply.integer("writeStatus"), 0);
  EXPECT_FALSE(reply.contains("writeError"));
  expectLockFree();
}

TEST_F(FolderWriting, DirectoryKeysOfRequestAreNotCredentials) {
  const Dictionary reply =
      writeFolder("/srv/a", {{"sharePointRecord", Dictionary{{"path", "/srv/a"}, {"name", "a"}}},
                             {"dsCredentials", Array{Dictionary{{"nodePath", "/Local"},
                                                                {"adminUserName", "admin"},
                                                                {"adminPassword", "secret"}}}}});
  EXPECT_EQ(reply.integer("writeStatus"), 0);
  EXPECT_EQ(trace.count("authenticateName"), 0U) << "nothing is automounted";
}

class WholeServerWriting : public WritingSettingsTest {
 protected:
  Dictionary writeList(const Value& list) {
    return write({{"configuration", Dictionary{{"sharePointList", list}}}});
  }
};

TEST_F(WholeServerWriting, WritesListInOrderAndReadsAllBack) {
  addSharePoint("z", "/srv/z");
  const Dictionary reply = writeList(Array{Dictionary{{"path", "/srv/b"}, {"name", "b"}},
                                           Dictionary{{"path", "/srv/a"}, {"name", "a"}}});
  EXPECT_EQ(
      reply,
      (Dictionary{{"writeStatus", 0},
                  {"readStatus", 0},
                  {"configuration",
                   Dictionary{{"sharePointList", Array{listed("z"), listed("b"), listed("a")}}}}}));
}

TEST_F(WholeServerWriting, ElementsThatAreMarkedDeletedAreDeleted) {
  addSharePoint("a", "/srv/a");
  addSharePoint("b", "/srv/b");
  writeList(Array{Dictionary{{"path", "/srv/a"}, {"isDeleted", true}}});
  EXPECT_EQ(sharePointNames(), (Names{"b"}));
}

TEST_F(WholeServerWriting, IsSharedHasNoMeaningInAList) {
  addSharePoint("a", "/srv/a");
  writeList(Array{Dictionary{{"path", "/srv/a"}, {"isShared", "NO"}, {"nameOverSMB", "s"}}});
  EXPECT_EQ(valuesOfSharePoint("a", kSmbName), (Array{"s"}));
}

TEST_F(WholeServerWriting, MissingListSharesNothingAndReadsAllBack) {
  addSharePoint("a", "/srv/a");
  setExportsFile("\n/by/hand *(ro)\n");
  for (const Dictionary& request :
       {Dictionary{}, Dictionary{{"configuration", Dictionary{}}},
        Dictionary{{"configuration", "x"}},
        Dictionary{{"configuration", Dictionary{{"sharePointList", Dictionary{}}}}},
        Dictionary{{"configuration", Dictionary{{"sharePointList", "x"}}}}}) {
    const Dictionary reply = write(request);
    EXPECT_EQ(reply.integer("writeStatus"), 0);
    ASSERT_NE(reply.dictionary("configuration"), nullptr);
    EXPECT_NE(reply.dictionary("configuration")->array("sharePointList"), nullptr);
    EXPECT_EQ(sharePointNames(), (Names{"a"}));
  }
  EXPECT_EQ(exportsFile(), "/by/hand *(ro)\n");
}

TEST_F(WholeServerWriting, FolderKeysAreNotRead) {
  write({{"configuration",
          Dictionary{{"sharePointRecord", Dictionary{{"path", "/srv/a"}, {"name", "a"}}}}}});
  EXPECT_TRUE(sharePointNames().empty());
}

TEST_F(WholeServerWriting, AnElementThatIsNoDictionaryIsIgnored) {
  addSharePoint("a", "/srv/a");
  const auto before = sharePoint("a");
  const Dictionary reply =
      writeList(Array{"x", 7, Array{}, Dictionary{{"path", "/srv/b"}, {"name", "b"}}, false});
  EXPECT_EQ(reply.integer("writeStatus"), 0);
  EXPECT_EQ(sharePoint("a"), before);
  EXPECT_EQ(valuesOfSharePoint("b", kDirectoryPath), (Array{"/srv/b"}));
  EXPECT_EQ(sharePointNames(), (Names{"a", "b"}));
  EXPECT_EQ(trace.count("newRecord"), 1U);
}

TEST_F(WholeServerWriting, FirstFailureIsReportedAndOthersAreWritten) {
  volumes.setError("/srv/b", EIO);
  const Dictionary reply = writeList(Array{Dictionary{{"path", "/srv/a"}, {"name", "a"}},
                                           Dictionary{{"path", "/srv/b"}, {"name", "b"}},
                                           Dictionary{{"path", "/srv/c"}, {"name", "c"}}});
  EXPECT_EQ(reply.integer("writeStatus"), CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(*reply.string("writeError"), "CANNOT_SAVE_SHARE_POINT_ERR");
  EXPECT_EQ(sharePointNames(), (Names{"a", "b", "c"}));
}

TEST_F(WholeServerWriting, ReadBackFailureHasZeroStatusWithoutText) {
  trace.raise("localNode", DirectoryError(EIO, "damaged"), ServiceTrace::kEveryTime, 0);
  EXPECT_EQ(writeList(Array{}),
            (Dictionary{{"writeStatus", 0}, {"readStatus", 0}, {"configuration", Dictionary{}}}));
}

TEST_F(WholeServerWriting, SharePointsWithEqualNamesGetUniqueNames) {
  writeList(Array{Dictionary{{"path", "/srv/1"}, {"name", "x"}, {"nameOverSMB", "x"}},
                  Dictionary{{"path", "/srv/2"}, {"name", "x"}, {"nameOverSMB", "x"}}});
  EXPECT_EQ(sharePointNames(), (Names{"x", "x-1"}));
  EXPECT_EQ(valuesOfSharePoint("x-1", kSmbName), (Array{"x-1"}));
}

}  // namespace

}  // namespace paddock
