#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

#include "base/status.h"
#include "store/schema.h"
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

class FolderReadingTest : public ReadingSettingsTest {};

TEST_F(FolderReadingTest, ASharedFolderIsItsSharePointWithIsSharedTrue) {
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

TEST_F(FolderReadingTest, AFolderThatIsNotSharedSaysOnlyThat) {
  EXPECT_EQ(readFolder("/srv/a"),
            (Dictionary{
                {"readStatus", 0},
                {"configuration", Dictionary{{"fileAccessPrivs", missingPrivs("/srv/a")},
                                             {"sharePointRecord", Dictionary{{"isShared", false}}},
                                             {"volumeQuotas", missingQuotas()},
                                             {"path", "/srv/a"}}}}));
}

TEST_F(FolderReadingTest, AFolderThatIsMissingGoesOnDownTheChain) {
  addSharePoint("a", "/srv/a");
  volumes.setError("/srv/a", ENOENT);
  const Dictionary reply = readFolder("/srv/a");
  EXPECT_EQ(reply.integer("readStatus"), 0);
  EXPECT_EQ(
      *configuration(reply).dictionary("sharePointRecord"),
      (Dictionary{
          {"path", "/srv/a"}, {"name", "a"}, {"isIndexingEnabled", false}, {"isShared", true}}));
}

TEST_F(FolderReadingTest, TheExportComesWithTheSharePoint) {
  addSharePoint("a", "/srv/a");
  readExportsFile(managedBlock({"/srv/a *(rw)"}));
  const Dictionary reply = readFolder("/srv/a");
  const Dictionary* record = configuration(reply).dictionary("sharePointRecord");
  ASSERT_NE(record, nullptr);
  ASSERT_NE(record->dictionary("nfsExportRecord"), nullptr);
  EXPECT_EQ(*record->dictionary("nfsExportRecord")->array("clients"),
            (Array{Dictionary{{"host", "*"}, {"options", Array{"rw"}}}}));
}

TEST_F(FolderReadingTest, APathThatDiffersByLetterCaseFindsTheSharePointAndIsEchoedAsGiven) {
  addSharePoint("a", "/srv/a");
  const Dictionary reply = readFolder("/SRV/A");
  EXPECT_EQ(*configuration(reply).string("path"), "/SRV/A");
  EXPECT_EQ(*configuration(reply).dictionary("sharePointRecord")->string("path"), "/srv/a");
}

TEST_F(FolderReadingTest, AFailedLookupIsItsStatusWithTheLaterStepsEmpty) {
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

TEST_F(FolderReadingTest, NoErrorTextIsAttached) {
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"));
  const Dictionary reply = readFolder("/srv/a");
  EXPECT_FALSE(reply.contains("error"));
  EXPECT_FALSE(reply.contains("readError"));
  EXPECT_EQ(reply.size(), 2U);
}

TEST_F(FolderReadingTest, AttributesThatCannotBeReadLeaveAsAnExceptionWithTheLockFree) {
  addSharePoint("a", "/srv/a");
  trace.raise("getAllAttributesAndValues", DirectoryError(EIO, "damaged"), 1);
  EXPECT_THROW(readFolder("/srv/a"), DirectoryError);
  expectLockFree();
  EXPECT_EQ(readFolder("/srv/a").integer("readStatus"), 0);
}

TEST_F(FolderReadingTest, PathsOfAnyKindAreAnswered) {
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

TEST_F(FolderReadingTest, ReadingAFolderDoesNotReadTheExportsFileAgain) {
  addSharePoint("a", "/srv/a");
  readExportsFile("");
  trace.forgetCalls();
  readFolder("/srv/a");
  EXPECT_EQ(trace.count("read"), 0U);
}

class WholeServerReadingTest : public ReadingSettingsTest {};

TEST_F(WholeServerReadingTest, ListsAllSharePoints) {
  addSharePoint("b", "/srv/b");
  addSharePoint("a", "/srv/a");
  EXPECT_EQ(
      read({}),
      (Dictionary{{"readStatus", 0},
                  {"configuration",
                   Dictionary{{"sharePointList", Array{Dictionary{{"name", "b"},
                                                                  {"path", "/srv/b"},
                                                                  {"isIndexingEnabled", false},
                                                                  {"mountedOnPath", "/"}},
                                                       Dictionary{{"name", "a"},
                                                                  {"path", "/srv/a"},
                                                                  {"isIndexingEnabled", false},
                                                                  {"mountedOnPath", "/"}}}}}}}));
}

TEST_F(WholeServerReadingTest, WithoutSharePointsTheConfigurationIsEmpty) {
  EXPECT_EQ(read({}), (Dictionary{{"readStatus", 0}, {"configuration", Dictionary{}}}));
}

TEST_F(WholeServerReadingTest, OptionalArgumentsWithoutAPathReadTheWholeServer) {
  addSharePoint("a", "/srv/a");
  for (const Value& arguments :
       std::vector<Value>{Dictionary{}, Dictionary{{"other", "/srv/a"}}, Dictionary{{"path", 7}},
                          Dictionary{{"path", Array{"/srv/a"}}}, "path", Array{"path"}, 7}) {
    const Dictionary reply = read({{"optionalArguments", arguments}});
    EXPECT_NE(configuration(reply).array("sharePointList"), nullptr);
    EXPECT_EQ(configuration(reply).size(), 1U);
  }
}

TEST_F(WholeServerReadingTest, AListThatCannotBeReadIsAbsentWithItsStatus) {
  addSharePoint("a", "/srv/a");
  trace.raise("localNode", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(read({}), (Dictionary{{"readStatus", CANNOT_RETRIEVE_SHARE_POINTS_ERR},
                                  {"configuration", Dictionary{}}}));
}

TEST_F(WholeServerReadingTest, ADirectoryThatCannotBeSearchedLooksLikeAServerWithoutSharePoints) {
  addSharePoint("a", "/srv/a");
  trace.raise("findRecordNames", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(read({}), (Dictionary{{"readStatus", 0}, {"configuration", Dictionary{}}}));
}

TEST_F(WholeServerReadingTest, ReadsTheExportsFileAgain) {
  addSharePoint("a", "/srv/a");
  read({});
  setExportsFile(managedBlock({"/srv/a *(rw)"}));
  const Dictionary reply = read({});
  const Array* list = configuration(reply).array("sharePointList");
  ASSERT_NE(list, nullptr);
  EXPECT_NE(list->front().dictionary()->dictionary("nfsExportRecord"), nullptr);
}

class SharePointListTest : public HandlerFixture {
 protected:
  Dictionary list(const Dictionary& request = {}) {
    return handler.performOperation("getSharePointList", request);
  }
};

TEST_F(SharePointListTest, HoldsAllSharePointsAndTheStatus) {
  addSharePoint("a", "/srv/a");
  EXPECT_EQ(list(), (Dictionary{{"readStatus", 0},
                                {"sharePointList", Array{Dictionary{{"name", "a"},
                                                                    {"path", "/srv/a"},
                                                                    {"isIndexingEnabled", false},
                                                                    {"mountedOnPath", "/"}}}}}));
}

TEST_F(SharePointListTest, IsAbsentWithoutSharePoints) {
  EXPECT_EQ(list(), (Dictionary{{"readStatus", 0}}));
}

TEST_F(SharePointListTest, ReadsNothingFromItsRequest) {
  addSharePoint("a", "/srv/a");
  EXPECT_EQ(list({{"optionalArguments", Dictionary{{"path", "/srv/b"}}}, {"filter", "x"}}), list());
}

TEST_F(SharePointListTest, AFailureIsItsStatusWithItsText) {
  addSharePoint("a", "/srv/a");
  trace.raise("localNode", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(list(), (Dictionary{{"readStatus", CANNOT_RETRIEVE_SHARE_POINTS_ERR},
                                {"error", "CANNOT_RETRIEVE_SHARE_POINTS_ERR"}}));
  expectLockFree();
}

TEST_F(SharePointListTest, ADirectoryThatCannotBeSearchedHasNoErrorText) {
  addSharePoint("a", "/srv/a");
  trace.raise("findRecordNames", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(list(), (Dictionary{{"readStatus", 0}}));
}

}  // namespace
}  // namespace paddock
