// Search indexing of real folders, switched and read through the running daemon.
#include <dirent.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>

#include "base/guid.h"
#include "base/system_call.h"
#include "integration/sharing_daemon.h"
#include "support/temporary_folder.h"

namespace paddock::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kStores = "/var/lib/paddock/metadata-stores.sqlite";
constexpr const char* kAttribute = "security.NTACL";
constexpr uid_t kIndexingUid = 89;

std::string whyNoLists(const std::string& folder) {
  if (::setxattr(folder.c_str(), kAttribute, "probe", 5, 0) != 0)
    return std::string(kAttribute) + " cannot be written here: " + std::strerror(errno);
  ::removexattr(folder.c_str(), kAttribute);
  return "";
}

// Whether an account that is in no group can list the folder.
bool canList(uid_t uid, const std::string& folder) {
  const pid_t child = ::fork();
  if (child == 0) {
    const bool became = ::setgroups(0, nullptr) == 0 && ::setgid(65534) == 0 && ::setuid(uid) == 0;
    ::_exit(became && ::opendir(folder.c_str()) != nullptr ? 0 : 1);
  }
  int status = -1;
  retryOnInterrupt([&] { return ::waitpid(child, &status, 0); });
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

class FolderIndexing : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root may administer the daemon without a group";
    ASSERT_EQ(::chmod(folder_.path().c_str(), 0711), 0);
    makeFolder(path_);
  }
  static void makeFolder(const std::string& path) {
    ASSERT_EQ(::mkdir(path.c_str(), 0700), 0);
    ASSERT_EQ(::chmod(path.c_str(), 0700), 0);
  }

  // Writes the share point of the folder; what is read back of its indexing.
  static bool set(const SharingDaemon& daemon, const std::string& path, Dictionary sharePoint) {
    sharePoint.set("path", path);
    const Dictionary reply = daemon.writeSettings(path, {{"sharePointRecord", sharePoint}});
    EXPECT_EQ(reply.integer("writeStatus"), 0);
    return flagIn(reply);
  }
  bool share(const SharingDaemon& daemon, bool indexed) const {
    return set(daemon, path_, {{"name", "a"}, {"isIndexingEnabled", indexed}});
  }
  bool isIndexed(const SharingDaemon& daemon) const { return flagIn(daemon.readSettings(path_)); }
  static bool flagIn(const Dictionary& reply) {
    const Dictionary* configuration = reply.dictionary("configuration");
    const Dictionary* sharePoint =
        configuration != nullptr ? configuration->dictionary("sharePointRecord") : nullptr;
    EXPECT_NE(sharePoint, nullptr);
    if (sharePoint == nullptr) return false;
    EXPECT_TRUE(sharePoint->boolean("isIndexingEnabled"));
    return sharePoint->boolean("isIndexingEnabled").value_or(false);
  }
  // The folder's ACL as the daemon reads it, without the names of principals.
  Array entries(const SharingDaemon& daemon) const {
    const Dictionary reply = daemon.readSettings(path_);
    Array entries = *reply.dictionary("configuration")->dictionary("fileAccessPrivs")->array("acl");
    for (Value& entry : entries) {
      entry.dictionary()->erase("displayName");
      entry.dictionary()->erase("isUser");
    }
    return entries;
  }
  static Array lookwiseEntries() {
    const Guid guid = computedGuid({PrincipalType::user, kIndexingUid});
    return {Dictionary{{"guid", guidText(guid)},
                       {"allowPermission", "YES"},
                       {"bitmap", 8 | 2},
                       {"flags", 16 | 32 | 64}}};
  }

  TestFolder folder_;
  const std::string path_ = folder_.path("shared");
};

TEST_F(FolderIndexing, StateIsSwitchedAndSurvivesRestart) {
  SharingDaemon daemon;
  EXPECT_FALSE(share(daemon, false));
  EXPECT_FALSE(daemon.tree().has(kStores)) << "nothing was changed yet";
  EXPECT_TRUE(share(daemon, true));
  EXPECT_TRUE(daemon.tree().has(kStores));
  daemon.restart();
  EXPECT_TRUE(isIndexed(daemon));
  EXPECT_TRUE(set(daemon, path_, {{"nameOverSMB", "smb"}})) << "a write that does not name it";
  EXPECT_FALSE(share(daemon, false));
  daemon.restart();
  EXPECT_FALSE(isIndexed(daemon));
  EXPECT_TRUE(share(daemon, true));
}

TEST_F(FolderIndexing, TheListSaysWhichFoldersAreIndexed) {
  const std::string other = folder_.path("other");
  makeFolder(other);
  const SharingDaemon daemon;
  EXPECT_TRUE(share(daemon, true));
  EXPECT_FALSE(set(daemon, other, {{"name", "other"}}));
  const Dictionary reply = daemon.ask("getSharePointList", {});
  std::map<std::string, bool> flags;
  for (const Value& form : *reply.array("sharePointList"))
    flags[*form.dictionary()->string("path")] =
        form.dictionary()->boolean("isIndexingEnabled").value();
  EXPECT_EQ(flags, (std::map<std::string, bool>{{path_, true}, {other, false}}));
}

TEST_F(FolderIndexing, ADeletedSharePointIsIndexedNoMore) {
  const SharingDaemon daemon;
  EXPECT_TRUE(share(daemon, true));
  const Dictionary reply =
      daemon.writeSettings(path_, {{"sharePointRecord", Dictionary{{"isShared", false}}}});
  EXPECT_EQ(reply.integer("writeStatus"), 0);
  EXPECT_FALSE(set(daemon, path_, {{"name", "again"}}));
}

TEST_F(FolderIndexing, IndexingAccountGetsEntryOnceAndKeepsIt) {
  if (const std::string why = whyNoLists(folder_.path()); !why.empty()) GTEST_SKIP() << why;
  SharingDaemon daemon;
  EXPECT_FALSE(share(daemon, false));
  EXPECT_EQ(entries(daemon), Array());
  for (const bool indexed : {true, false, true}) {
    EXPECT_EQ(share(daemon, indexed), indexed);
    EXPECT_EQ(entries(daemon), lookwiseEntries());
  }
  daemon.restart();
  EXPECT_TRUE(share(daemon, true));
  EXPECT_EQ(entries(daemon), lookwiseEntries());
  EXPECT_THAT(daemon.log(), Not(HasSubstr("Lookwise")));
}

TEST_F(FolderIndexing, TheKernelLetsTheIndexingAccountIn) {
  if (const std::string why = whyNoLists(folder_.path()); !why.empty()) GTEST_SKIP() << why;
  const SharingDaemon daemon;
  EXPECT_FALSE(share(daemon, false));
  EXPECT_FALSE(canList(kIndexingUid, path_));
  EXPECT_TRUE(share(daemon, true));
  if (::getxattr(path_.c_str(), "system.posix_acl_access", nullptr, 0) < 0)
    GTEST_SKIP() << "the file system keeps no POSIX ACLs: " << std::strerror(errno);
  EXPECT_TRUE(canList(kIndexingUid, path_));
  EXPECT_FALSE(canList(kIndexingUid + 1, path_));
  const std::string later = path_ + "/made later";
  ASSERT_EQ(::mkdir(later.c_str(), 0750), 0);
  EXPECT_TRUE(canList(kIndexingUid, later));
  EXPECT_FALSE(canList(kIndexingUid + 1, later));
}

TEST_F(FolderIndexing, MissingFolderIsSharedReportingEntryFailure) {
  const SharingDaemon daemon;
  const std::string missing = folder_.path("missing");
  EXPECT_TRUE(set(daemon, missing, {{"name", "m"}, {"isIndexingEnabled", true}}));
  EXPECT_THAT(daemon.log(),
              HasSubstr("<3>paddock_sharing: Failed to set Lookwise ACE on " + missing + " "));
}

TEST_F(FolderIndexing, DamagedDatabaseIsLoggedAndLeftUntouched) {
  SharingDaemon daemon;
  EXPECT_TRUE(share(daemon, true));
  const std::string whole = daemon.tree().read(kStores);
  const std::string damaged(whole.size(), 'x');
  daemon.tree().write(kStores, damaged);
  EXPECT_TRUE(eventually([&] { return !isIndexed(daemon); }));
  EXPECT_FALSE(share(daemon, true)) << "everything but the indexing is written";
  EXPECT_EQ(daemon.tree().read(kStores), damaged);
  EXPECT_THAT(daemon.log(), HasSubstr("<3>paddock_sharing: metadata store database " +
                                      daemon.tree().path(kStores)));
  EXPECT_THAT(daemon.log(),
              HasSubstr("<3>paddock_sharing: Failed to create a R/W Lookwise store at " + path_ +
                        " (error: 5)"));
  daemon.tree().write(kStores, whole);
  EXPECT_TRUE(isIndexed(daemon)) << "a repaired one is used again";
}

// The command that is notified of changes.
class IndexingCommand : public FolderIndexing {
 protected:
  static std::string withCommand(const std::string& words) {
    return "[indexing]\ncommand = [" + words + "]\n";
  }
  // A program of the daemon's tree that appends a line for each of its arguments.
  static void addProgram(const DaemonTree& tree) {
    tree.write("/bin/tell", "#!/bin/sh\nprintf '%s\\n' \"$@\" done >>" + tree.path("/told") + "\n");
    fs::permissions(tree.path("/bin/tell"), fs::perms::owner_all);
  }
  static bool wasTold(const SharingDaemon& daemon, const std::string& lines) {
    return eventually([&] { return daemon.tree().read("/told") == lines; });
  }
};

TEST_F(IndexingCommand, RunsWithPathAndNewLevelAfterChange) {
  const std::string odd = folder_.path("it's a; $(folder)");
  makeFolder(odd);
  const SharingDaemon daemon(withCommand(R"("/bin/tell", "--from")"));
  addProgram(daemon.tree());
  EXPECT_TRUE(set(daemon, odd, {{"name", "a"}, {"isIndexingEnabled", true}}));
  std::string told = "--from\n" + odd + "\nreadWrite\ndone\n";
  EXPECT_TRUE(wasTold(daemon, told)) << daemon.tree().read("/told");
  EXPECT_TRUE(set(daemon, odd, {{"isIndexingEnabled", true}})) << "no change, nothing to tell";
  EXPECT_FALSE(set(daemon, odd, {{"isIndexingEnabled", false}}));
  told += "--from\n" + odd + "\nfsSearchOnly\ndone\n";
  EXPECT_TRUE(wasTold(daemon, told)) << daemon.tree().read("/told");
}

TEST_F(IndexingCommand, SlowCommandDelaysNoRequest) {
  SharingDaemon daemon(withCommand(R"("/bin/slow")"));
  const DaemonTree& tree = daemon.tree();
  tree.write("/bin/slow", "#!/bin/sh\nwhile [ ! -e " + tree.path("/go") +
                              " ]; do sleep 0.02; done\n: >" + tree.path("/ended") + "\n");
  fs::permissions(tree.path("/bin/slow"), fs::perms::owner_all);
  EXPECT_TRUE(share(daemon, true));
  EXPECT_TRUE(isIndexed(daemon));
  EXPECT_FALSE(tree.has("/ended"));
  tree.write("/go", "");
  EXPECT_TRUE(eventually([&] { return tree.has("/ended"); }));
}

TEST_F(IndexingCommand, MissingOrFailingCommandIsOnlyLogged) {
  const SharingDaemon daemon(withCommand(R"("/bin/tell")"));
  EXPECT_TRUE(share(daemon, true));
  EXPECT_THAT(daemon.log(),
              HasSubstr("<3>paddock_sharing: Failed to start the indexing command for " + path_ +
                        " (error: 2)"));
  const DaemonTree& tree = daemon.tree();
  tree.write("/bin/tell", "#!/bin/sh\nexit 7\n");
  fs::permissions(tree.path("/bin/tell"), fs::perms::owner_all);
  EXPECT_FALSE(share(daemon, false));
  EXPECT_TRUE(eventually([&] {
    return daemon.log().find("program " + tree.path("/bin/tell") + " exited with status 7") !=
           std::string::npos;
  })) << daemon.log();
}

}  // namespace
}  // namespace paddock::testing
