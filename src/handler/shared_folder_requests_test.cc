// A share point whose path means another folder than the one that was shared.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "base/status.h"
#include "platform/testing/in_memory_shared_folders.h"
#include "store/directory_access.h"
#include "support/handler_fixture.h"

namespace paddock {
namespace {

using ::testing::Contains;
using ::testing::Field;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

constexpr const char* kFolder = "/srv/a";
constexpr const char* kGuid = "DEADBEEF-0000-0000-0000-000000000001";

class SharedFolderRequests : public HandlerFixture {
 protected:
  SharedFolderRequests() {
    handler.setSharedFolders(&folders);
    replaceFolder();
  }

  Dictionary write(const Dictionary& configuration, const std::string& path = kFolder) {
    return handler.performOperation(
        "writeSettings",
        {{"optionalArguments", Dictionary{{"path", path}}}, {"configuration", configuration}});
  }
  Dictionary share(const Dictionary& settings = {}) {
    Dictionary record{{"path", kFolder}, {"name", "a"}, {"isSharedOverVSP", true}};
    for (const auto& [key, value] : settings) record.set(key, value);
    return write({{"sharePointRecord", record}});
  }
  // The first request removes the item of the shared-file list, and keeps the record for that.
  void unshare() {
    for (int request = 0; request < 2; ++request)
      write({{"sharePointRecord", Dictionary{{"isShared", "NO"}}}});
  }
  std::int64_t setMode(const std::string& path = kFolder) {
    return *write({{"fileAccessPrivs", Dictionary{{"privs", "700"}}}}, path).integer("writeStatus");
  }
  Dictionary push() {
    return handler.performOperation("startPropagate", {{"paths", Array{kFolder}}, {"propACL", 1}});
  }
  std::optional<std::uint32_t> mode() { return tree.attributes(kFolder).permissions; }
  // The same path, another folder.
  void replaceFolder(const std::string& path = kFolder) {
    tree.setFolder(path);
    folders.place(path);
  }

  InMemorySharedFolders folders;
};

TEST_F(SharedFolderRequests, SharedFolderAcceptsChangeAndPropagation) {
  ASSERT_EQ(share().integer("writeStatus"), 0);
  EXPECT_EQ(setMode(), 0);
  EXPECT_EQ(mode(), 0700U);
  EXPECT_FALSE(push().contains("error"));
}

TEST_F(SharedFolderRequests, AnotherFolderInItsPlaceIsLeftAlone) {
  ASSERT_EQ(share().integer("writeStatus"), 0);
  replaceFolder();
  EXPECT_EQ(setMode(), CANNOT_CHANGE_PRIVS_ERR);
  EXPECT_EQ(mode(), 0755U);
  EXPECT_THAT(logger.lines(), Contains(Field(&RecordingLogger::Line::text,
                                             HasSubstr("another folder is there than the one"))));
  const Dictionary entry{{"guid", kGuid}, {"allowPermission", "YES"}, {"bitmap", 2}, {"flags", 0}};
  const Dictionary reply = write({{"fileAccessPrivs", Dictionary{{"acl", Array{entry}}}}});
  EXPECT_EQ(reply.integer("writeStatus"), CANNOT_CHANGE_PRIVS_ERR);
  EXPECT_EQ(tree.acl(kFolder), nullptr);
  EXPECT_EQ(push(), (Dictionary{{"error", "CANNOT_PROPAGATE_PRIVS_ERR"}}));
  EXPECT_THAT(programs.detached(), IsEmpty());
}

TEST_F(SharedFolderRequests, SharedAgainItIsTheShares) {
  share();
  replaceFolder();
  ASSERT_EQ(setMode(), CANNOT_CHANGE_PRIVS_ERR);
  unshare();
  ASSERT_THAT(sharePointNames(), IsEmpty());
  EXPECT_EQ(setMode(), 0) << "what is not shared is nobody's folder but the path's";
  share();
  EXPECT_EQ(setMode(), 0);
  EXPECT_EQ(mode(), 0700U);
}

TEST_F(SharedFolderRequests, ShareChangeDoesNotAdoptReplacementFolder) {
  share();
  replaceFolder();
  EXPECT_EQ(share({{"nameOverSMB", "other"}}).integer("writeStatus"), 0);
  EXPECT_EQ(setMode(), CANNOT_CHANGE_PRIVS_ERR);
}

TEST_F(SharedFolderRequests, ShareChangeWithoutItsFolderKeepsNote) {
  share();
  tree.remove(kFolder);
  folders.take(kFolder);
  EXPECT_EQ(share({{"nameOverSMB", "other"}}).integer("writeStatus"), 0);
  replaceFolder();
  EXPECT_EQ(setMode(), CANNOT_CHANGE_PRIVS_ERR);
}

TEST_F(SharedFolderRequests, FailedRemovalKeepsNote) {
  share();
  trace.raise("removeRecord", DirectoryError(EIO, "damaged"));
  unshare();
  ASSERT_THAT(sharePointNames(), SizeIs(1));
  replaceFolder();
  EXPECT_EQ(setMode(), CANNOT_CHANGE_PRIVS_ERR);
}

TEST_F(SharedFolderRequests, FailedLookupBeforeWriteKeepsNote) {
  share();
  replaceFolder();
  int lookups = 0;
  trace.when([](const ServiceCall& call) { return call.operation == "findRecordsOfTypes"; },
             [&](const ServiceCall&) -> Status {
               if (lookups++ == 0) throw DirectoryError("damaged");
               return 0;
             });
  share({{"nameOverSMB", "other"}});
  EXPECT_EQ(setMode(), CANNOT_CHANGE_PRIVS_ERR);
}

TEST_F(SharedFolderRequests, OlderShareIsRecordedOnNextChange) {
  addSharePoint("a", kFolder);
  replaceFolder();
  EXPECT_EQ(setMode(), 0) << "nothing is known of it";
  share();
  replaceFolder();
  EXPECT_EQ(setMode(), CANNOT_CHANGE_PRIVS_ERR);
}

TEST_F(SharedFolderRequests, NoteOfRemovedRecordIsIgnored) {
  share();
  removeRecord(schema::kSharePoints, "a");
  replaceFolder();
  EXPECT_EQ(setMode(), 0);
  addSharePoint("b", kFolder);
  EXPECT_EQ(setMode(), 0);
}

TEST_F(SharedFolderRequests, OtherCasePathIsSeparateFolder) {
  share();
  replaceFolder();
  replaceFolder("/srv/A");
  EXPECT_EQ(setMode("/srv/A"), 0);
}

TEST_F(SharedFolderRequests, AFolderThatIsMissingFailsByItself) {
  share();
  tree.remove(kFolder);
  folders.take(kFolder);
  EXPECT_EQ(setMode(), CANNOT_CHANGE_PRIVS_ERR);
  EXPECT_THAT(logger.lines(),
              Not(Contains(Field(&RecordingLogger::Line::text, HasSubstr("another folder")))));
}

TEST_F(SharedFolderRequests, FailingFolderNotesPreventNoRequest) {
  share();
  replaceFolder();
  folders.breakDown();
  EXPECT_EQ(setMode(), 0);
  EXPECT_EQ(share().integer("writeStatus"), 0);
  unshare();
  EXPECT_EQ(setMode(), 0);
}

TEST_F(SharedFolderRequests, ListFoldersAreCheckedIndividually) {
  share();
  replaceFolder();
  replaceFolder("/srv/b");
  const Array list{Dictionary{{"path", kFolder}, {"name", "a"}},
                   Dictionary{{"path", "/srv/b"}, {"name", "b"}}};
  handler.performOperation("writeSettings",
                           {{"configuration", Dictionary{{"sharePointList", list}}}});
  EXPECT_EQ(setMode(), CANNOT_CHANGE_PRIVS_ERR);
  EXPECT_EQ(setMode("/srv/b"), 0);
  replaceFolder("/srv/b");
  EXPECT_EQ(setMode("/srv/b"), CANNOT_CHANGE_PRIVS_ERR);
}

TEST_F(SharedFolderRequests, DirectoryFailureDoesNotPreventChange) {
  share();
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(write({{"fileAccessPrivs", Dictionary{{"privs", "700"}}}}).integer("writeStatus"), 0);
  EXPECT_EQ(mode(), 0700U);
}

TEST_F(SharedFolderRequests, FolderNoteAppearsNeitherInRecordNorReply) {
  share();
  const Dictionary reply = write({});
  const Dictionary* record = reply.dictionary("configuration")->dictionary("sharePointRecord");
  ASSERT_NE(record, nullptr);
  for (const char* key : {"inode", "device", "folder"}) EXPECT_FALSE(record->contains(key));
  EXPECT_THAT(sharePointNames(), SizeIs(1));
}

}  // namespace
}  // namespace paddock
