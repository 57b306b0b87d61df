// Backup destinations in real folders, made and taken back through the running daemon.
#include <dirent.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "base/system_call.h"
#include "integration/sharing_daemon.h"
#include "support/temporary_folder.h"

namespace paddock::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;

constexpr const char* kAttribute = "security.NTACL";
constexpr const char* kGroup = "com.veltro.access_backup";
constexpr const char* kMarkerName = ".com.veltro.backstow.supported";

std::string whyNoLists(const std::string& folder) {
  if (::setxattr(folder.c_str(), kAttribute, "probe", 5, 0) != 0)
    return std::string(kAttribute) + " cannot be written here: " + std::strerror(errno);
  ::removexattr(folder.c_str(), kAttribute);
  return "";
}

// Why the host cannot say in 200 bytes that it has no such group.
std::string whyNoAnswer() {
  std::array<char, 200> buffer{};
  group entry{};
  group* found = nullptr;
  const int error = ::getgrnam_r(kGroup, &entry, buffer.data(), buffer.size(), &found);
  if (found != nullptr) return std::string("the host has a group ") + kGroup;
  return error == ERANGE ? "/etc/group has a line that does not fit into 200 bytes" : "";
}

// Whether an account that is in this group alone can make and remove a file in the folder.
bool canWrite(gid_t gid, const std::string& folder) {
  const pid_t child = ::fork();
  if (child == 0) {
    const std::string file = folder + "/made";
    const bool became = ::setgroups(1, &gid) == 0 && ::setgid(65534) == 0 && ::setuid(65534) == 0;
    ::_exit(became && ::mknod(file.c_str(), S_IFREG | 0600, 0) == 0 && ::unlink(file.c_str()) == 0
                ? 0
                : 1);
  }
  int status = -1;
  retryOnInterrupt([&] { return ::waitpid(child, &status, 0); });
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

class BackupDestinations : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root may administer the daemon without a group";
    if (const std::string why = whyNoLists(folder_.path()); !why.empty()) GTEST_SKIP() << why;
    if (const std::string why = whyNoAnswer(); !why.empty()) GTEST_SKIP() << why;
    ASSERT_EQ(::chmod(folder_.path().c_str(), 0711), 0);
    ASSERT_EQ(::mkdir(path_.c_str(), 0700), 0);
    daemon_.emplace("", std::vector<std::string>{"paddock_sharing", "paddock_directory"});
  }

  void write(const Dictionary& settings) {
    Dictionary sharePoint = settings;
    sharePoint.set("path", path_);
    const Dictionary reply = daemon_->writeSettings(path_, {{"sharePointRecord", sharePoint}});
    EXPECT_EQ(reply.integer("writeStatus"), 0);
  }
  void shareAsBackup() {
    write({{"name", "a"},
           {"nameOverVSP", "a"},
           {"isSharedOverVSP", true},
           {"isBackstowBackup", true}});
  }
  Array entries() const {
    const Dictionary reply = daemon_->readSettings(path_);
    return *reply.dictionary("configuration")->dictionary("fileAccessPrivs")->array("acl");
  }
  std::string uuid() const {
    const Dictionary reply = daemon_->readSettings(path_);
    return *reply.dictionary("configuration")
                ->dictionary("sharePointRecord")
                ->string("backstowBackupUUID");
  }
  std::string groupNumber() const {
    const Dictionary reply = daemon_->askPlugin(
        "paddock_directory", "getRecord", {{"type", "dsRecTypeStandard:Groups"}, {"name", kGroup}});
    return *reply.dictionary("record")
                ->array("dsAttrTypeStandard:PrimaryGroupID")
                ->front()
                .string();
  }

  TestFolder folder_;
  const std::string path_ = folder_.path("a");
  const std::string marker_ = path_ + "/" + kMarkerName;
  std::optional<SharingDaemon> daemon_;
};

TEST_F(BackupDestinations, DestinationAdmitsGroupCreatedForIt) {
  EXPECT_FALSE(canWrite(250, path_));
  shareAsBackup();
  EXPECT_EQ(groupNumber(), "250");
  ASSERT_THAT(entries(), SizeIs(1));
  const Dictionary entry = *entries().front().dictionary();
  EXPECT_EQ(*entry.string("displayName"), kGroup);
  EXPECT_EQ(*entry.string("allowPermission"), "YES");
  EXPECT_EQ(entry.integer("bitmap"), 110);
  EXPECT_EQ(entry.integer("flags"), 0);
  EXPECT_EQ(entry.integer("isUser"), 1);
  EXPECT_TRUE(canWrite(250, path_));
  EXPECT_FALSE(canWrite(251, path_));
}

TEST_F(BackupDestinations, RewritingKeepsOneEntryAndChangesIdentifier) {
  shareAsBackup();
  const std::string first = uuid();
  shareAsBackup();
  EXPECT_NE(uuid(), first);
  EXPECT_THAT(entries(), SizeIs(1));
  daemon_->restart();
  shareAsBackup();
  EXPECT_THAT(entries(), SizeIs(1));
  EXPECT_EQ(groupNumber(), "250");
}

TEST_F(BackupDestinations, GroupNumberIsUnusedLocally) {
  for (const char* number : {"250", "251", "253"}) {
    daemon_->askPlugin(
        "paddock_directory", "putRecord",
        {{"type", "dsRecTypeStandard:Groups"},
         {"name", std::string("g") + number},
         {"attributes", Dictionary{{"dsAttrTypeStandard:PrimaryGroupID", Array{number}}}}});
  }
  shareAsBackup();
  EXPECT_EQ(groupNumber(), "252");
  EXPECT_TRUE(canWrite(252, path_));
}

TEST_F(BackupDestinations, MarkerStaysUntilDestinationIsWithdrawn) {
  shareAsBackup();
  writeWholeFile(marker_, "");
  shareAsBackup();
  EXPECT_TRUE(fs::exists(marker_));
  write({{"isBackstowBackup", false}});
  EXPECT_FALSE(fs::exists(marker_));
  EXPECT_THAT(entries(), SizeIs(1)) << "the entry stays";
}

TEST_F(BackupDestinations, SymlinkMarkerIsRemovedAndTargetStays) {
  writeWholeFile(folder_.path("outside"), "kept");
  for (const std::string& target : {folder_.path("outside"), folder_.path("missing")}) {
    fs::create_symlink(target, marker_);
    write({{"name", "a"}});
    EXPECT_FALSE(fs::is_symlink(fs::symlink_status(marker_))) << target;
  }
  EXPECT_EQ(readWholeFile(folder_.path("outside")), "kept");
}

TEST_F(BackupDestinations, FolderMarkerStaysAndIsReported) {
  fs::create_directory(marker_);
  writeWholeFile(marker_ + "/inside", "kept");
  write({{"name", "a"}});
  EXPECT_EQ(readWholeFile(marker_ + "/inside"), "kept");
  EXPECT_THAT(daemon_->log(), HasSubstr("Couldn't delete backup share point marker at " + marker_ +
                                        "\\x0Aerror: Is a directory"));
}

TEST_F(BackupDestinations, ADeletionRemovesTheMarker) {
  shareAsBackup();
  writeWholeFile(marker_, "");
  EXPECT_EQ(daemon_->writeSettings(path_, {{"sharePointRecord", Dictionary{{"isShared", false}}}})
                .integer("writeStatus"),
            0);
  EXPECT_FALSE(fs::exists(marker_));
  EXPECT_THAT(daemon_->log(), Not(HasSubstr("Couldn't delete")));
}

}  // namespace
}  // namespace paddock::testing
