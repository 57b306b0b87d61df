#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

#include "base/status.h"
#include "store/schema.h"
#include "support/handler_fixture.h"

namespace paddock {
namespace {

using schema::kDirectoryPath;
using schema::kSmbName;

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

class FolderWritingTest : public WritingSettingsTest {};

TEST_F(FolderWritingTest, SharesAFolderAndReadsItBack) {
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

TEST_F(FolderWritingTest, WhatWasReadCanBeSentBackChanged) {
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

TEST_F(FolderWritingTest, WithoutIsSharedTheFolderIsShared) {
  writeSharePoint("/srv/a", Dictionary{{"path", "/srv/a"}, {"name", "a"}});
  EXPECT_EQ(sharePointNames(), (Names{"a"}));
}

TEST_F(FolderWritingTest, TheSharePointIsBuiltFromTheWholeDictionaryItsOwnPathIncluded) {
  const Dictionary reply =
      writeSharePoint("/srv/asked", Dictionary{{"path", "/srv/own"}, {"name", "a"}});
  EXPECT_EQ(valuesOfSharePoint("a", kDirectoryPath), (Array{"/srv/own"}));
  EXPECT_EQ(*reply.dictionary("configuration")->string("path"), "/srv/asked");
  EXPECT_EQ(*sharePointRecord(reply), (Dictionary{{"isShared", false}}));
}

TEST_F(FolderWritingTest, TheStringNoAndFalseNumbersAskForRemoval) {
  for (const Value& isShared : std::vector<Value>{"NO", false, 0}) {
    addSharePoint("a", "/srv/a");
    const Dictionary reply =
        writeSharePoint("/srv/a", Dictionary{{"isShared", isShared}, {"name", "ignored"}});
    EXPECT_EQ(reply.integer("writeStatus"), 0);
    EXPECT_EQ(*sharePointRecord(reply), (Dictionary{{"isShared", false}}));
    EXPECT_TRUE(sharePointNames().empty());
  }
}

TEST_F(FolderWritingTest, ARemovalTakesThePathOfTheRequest) {
  addSharePoint("a", "/srv/a");
  addSharePoint("b", "/srv/b");
  writeSharePoint("/srv/a", Dictionary{{"isShared", "NO"}, {"path", "/srv/b"}});
  EXPECT_EQ(sharePointNames(), (Names{"b"}));
}

TEST_F(FolderWritingTest, EveryOtherValueOfIsSharedMeansShared) {
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

TEST_F(FolderWritingTest, IsDeletedInTheDictionaryDeletesThePathOfTheDictionary) {
  addSharePoint("a", "/srv/a");
  addSharePoint("b", "/srv/b");
  writeSharePoint("/srv/a", Dictionary{{"path", "/srv/b"}, {"isDeleted", true}});
  EXPECT_EQ(sharePointNames(), (Names{"a"}));
}

TEST_F(FolderWritingTest, WithoutASharePointRecordNothingIsShared) {
  setExportsFile("\n/by/hand *(ro)\n");
  const Dictionary reply = writeFolder("/srv/a", {});
  EXPECT_EQ(reply.integer("writeStatus"), 0);
  EXPECT_EQ(*sharePointRecord(reply), (Dictionary{{"isShared", false}}));
  EXPECT_TRUE(sharePointNames().empty());
  EXPECT_EQ(exportsFile(), "/by/hand *(ro)\n") << "an empty list is written as well";
}

TEST_F(FolderWritingTest, ASharePointRecordThatIsNoDictionaryIsIgnored) {
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

TEST_F(FolderWritingTest, TypesThatDoNotFitAreIgnored) {
  for (const Value& other : std::vector<Value>{"x", 7, true, Array{1}, Data{}}) {
    const Dictionary reply = writeFolder("/srv/a", {{"fileAccessPrivs", other},
                                                    {"volumeQuotas", other},
                                                    {"dsCredentials", other},
                                                    {"sharePointList", other}});
    EXPECT_EQ(reply.integer("writeStatus"), 0);
    EXPECT_FALSE(reply.contains("writeError"));
  }
}

TEST_F(FolderWritingTest, AListIsNotReadInTheFolderForm) {
  writeFolder("/srv/a", {{"sharePointList", Array{Dictionary{{"path", "/srv/l"}, {"name", "l"}}}}});
  EXPECT_TRUE(sharePointNames().empty());
}

TEST_F(FolderWritingTest, AFailureIsItsStatusWithItsText) {
  volumes.setError("/srv/a", EIO);
  const Dictionary reply = writeSharePoint("/srv/a", Dictionary{{"path", "/srv/a"}, {"name", "a"}});
  EXPECT_EQ(reply.integer("writeStatus"), CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(*reply.string("writeError"), "CANNOT_SAVE_SHARE_POINT_ERR");
  EXPECT_EQ(*sharePointRecord(reply), (Dictionary{{"isShared", false}}));
}

TEST_F(FolderWritingTest, AStatusOfTheDirectoryHasTheTextOfItsNumber) {
  trace.when(
      [](const ServiceCall& call) {
        return call.operation == "findRecordsOfTypes" && call.detail == kDirectoryPath;
      },
      [](const ServiceCall&) -> int { throw DirectoryError(ETIMEDOUT, "slow"); });
  const Dictionary reply = writeSharePoint("/srv/a", Dictionary{{"path", "/srv/a"}, {"name", "a"}});
  EXPECT_EQ(reply.integer("writeStatus"), ETIMEDOUT);
  EXPECT_EQ(*reply.string("writeError"), sharing_error_string(ETIMEDOUT));
}

TEST_F(FolderWritingTest, AReadBackThatFailsShowsOnlyInTheConfiguration) {
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

TEST_F(FolderWritingTest, AReadBackThatRaisesLeavesTheOperationWithTheLockFree) {
  trace.when(
      "getAllAttributesAndValues",
      [](const ServiceCall&) -> int { throw DirectoryError(EIO, "damaged"); }, 1, 0);
  EXPECT_THROW(writeSharePoint("/srv/a", Dictionary{{"path", "/srv/a"}, {"name", "a"}}),
               DirectoryError);
  expectLockFree();
}

TEST_F(FolderWritingTest, AnExceptionOfTheWriteIsNoStatus) {
  addSharePoint("a", "/srv/a");
  trace.raise("removeAttribute", DirectoryError(EIO, "damaged"), 1);
  const Dictionary reply = writeSharePoint("/srv/a", Dictionary{{"path", "/srv/a"}});
  EXPECT_EQ(reply.integer("writeStatus"), 0);
  EXPECT_FALSE(reply.contains("writeError"));
  expectLockFree();
}

TEST_F(FolderWritingTest, TheOwnDirectoryKeysOfARequestAreNotUsedAsCredentials) {
  const Dictionary reply =
      writeFolder("/srv/a", {{"sharePointRecord", Dictionary{{"path", "/srv/a"}, {"name", "a"}}},
                             {"dsCredentials", Array{Dictionary{{"nodePath", "/Local"},
                                                                {"adminUserName", "admin"},
                                                                {"adminPassword", "secret"}}}}});
  EXPECT_EQ(reply.integer("writeStatus"), 0);
  EXPECT_EQ(trace.count("authenticateName"), 0U) << "nothing is automounted";
}

class WholeServerWritingTest : public WritingSettingsTest {
 protected:
  Dictionary writeList(const Value& list) {
    return write({{"configuration", Dictionary{{"sharePointList", list}}}});
  }
};

TEST_F(WholeServerWritingTest, WritesTheListInItsOrderAndReadsAllBack) {
  addSharePoint("z", "/srv/z");
  const Dictionary reply = writeList(Array{Dictionary{{"path", "/srv/b"}, {"name", "b"}},
                                           Dictionary{{"path", "/srv/a"}, {"name", "a"}}});
  EXPECT_EQ(
      reply,
      (Dictionary{{"writeStatus", 0},
                  {"readStatus", 0},
                  {"configuration",
                   Dictionary{{"sharePointList", Array{Dictionary{{"name", "z"},
                                                                  {"path", "/srv/z"},
                                                                  {"isIndexingEnabled", false},
                                                                  {"mountedOnPath", "/"}},
                                                       Dictionary{{"name", "b"},
                                                                  {"path", "/srv/b"},
                                                                  {"isIndexingEnabled", false},
                                                                  {"mountedOnPath", "/"}},
                                                       Dictionary{{"name", "a"},
                                                                  {"path", "/srv/a"},
                                                                  {"isIndexingEnabled", false},
                                                                  {"mountedOnPath", "/"}}}}}}}));
}

TEST_F(WholeServerWritingTest, ElementsThatAreMarkedDeletedAreDeleted) {
  addSharePoint("a", "/srv/a");
  addSharePoint("b", "/srv/b");
  writeList(Array{Dictionary{{"path", "/srv/a"}, {"isDeleted", true}}});
  EXPECT_EQ(sharePointNames(), (Names{"b"}));
}

TEST_F(WholeServerWritingTest, IsSharedHasNoMeaningInAList) {
  addSharePoint("a", "/srv/a");
  writeList(Array{Dictionary{{"path", "/srv/a"}, {"isShared", "NO"}, {"nameOverSMB", "s"}}});
  EXPECT_EQ(valuesOfSharePoint("a", kSmbName), (Array{"s"}));
}

TEST_F(WholeServerWritingTest, WithoutAListNothingIsSharedAndAllIsReadBack) {
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

TEST_F(WholeServerWritingTest, FolderKeysAreNotRead) {
  write({{"configuration",
          Dictionary{{"sharePointRecord", Dictionary{{"path", "/srv/a"}, {"name", "a"}}}}}});
  EXPECT_TRUE(sharePointNames().empty());
}

TEST_F(WholeServerWritingTest, AnElementThatIsNoDictionaryIsIgnored) {
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

TEST_F(WholeServerWritingTest, TheFirstFailureIsReportedAndTheOthersAreStillWritten) {
  volumes.setError("/srv/b", EIO);
  const Dictionary reply = writeList(Array{Dictionary{{"path", "/srv/a"}, {"name", "a"}},
                                           Dictionary{{"path", "/srv/b"}, {"name", "b"}},
                                           Dictionary{{"path", "/srv/c"}, {"name", "c"}}});
  EXPECT_EQ(reply.integer("writeStatus"), CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(*reply.string("writeError"), "CANNOT_SAVE_SHARE_POINT_ERR");
  EXPECT_EQ(sharePointNames(), (Names{"a", "b", "c"}));
}

TEST_F(WholeServerWritingTest, AReadBackThatFailsHasNoTextAndReadStatusZero) {
  trace.raise("localNode", DirectoryError(EIO, "damaged"), ServiceTrace::kEveryTime, 0);
  EXPECT_EQ(writeList(Array{}),
            (Dictionary{{"writeStatus", 0}, {"readStatus", 0}, {"configuration", Dictionary{}}}));
}

TEST_F(WholeServerWritingTest, SharePointsWithTheSameNamesGetNamesOfTheirOwn) {
  writeList(Array{Dictionary{{"path", "/srv/1"}, {"name", "x"}, {"nameOverSMB", "x"}},
                  Dictionary{{"path", "/srv/2"}, {"name", "x"}, {"nameOverSMB", "x"}}});
  EXPECT_EQ(sharePointNames(), (Names{"x", "x-1"}));
  EXPECT_EQ(valuesOfSharePoint("x-1", kSmbName), (Array{"x-1"}));
}

}  // namespace
}  // namespace paddock
