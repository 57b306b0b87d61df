// Privileges of real files and folders, read and written through the running daemon.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "base/status.h"
#include "integration/sharing_daemon.h"
#include "support/own_mounts.h"
#include "support/temporary_folder.h"

namespace paddock::testing {
namespace {

namespace fs = std::filesystem;

constexpr const char* kAttribute = "security.NTACL";
// A GUID of no principal.
constexpr const char* kGuid = "DEADBEEF-0000-4000-8000-000000000001";

class PrivilegesDaemon : public SharingDaemon {
 public:
  // "fileAccessPrivs" of the path.
  Dictionary read(const std::string& path) const {
    const Dictionary reply = readSettings(path);
    EXPECT_EQ(reply.integer("readStatus"), 0);
    return privilegesIn(reply);
  }
  // The whole reply.
  Dictionary write(const std::string& path, const Dictionary& privileges) const {
    return writeSettings(path, {{"fileAccessPrivs", privileges}});
  }
  std::int64_t writeStatus(const std::string& path, const Dictionary& privileges) const {
    return write(path, privileges).integer("writeStatus").value();
  }
  static Dictionary privilegesIn(const Dictionary& reply) {
    const Dictionary* configuration = reply.dictionary("configuration");
    const Dictionary* privileges =
        configuration != nullptr ? configuration->dictionary("fileAccessPrivs") : nullptr;
    EXPECT_NE(privileges, nullptr);
    return privileges != nullptr ? *privileges : Dictionary();
  }
};

Dictionary entryOf(const char* guid, const char* allow, int bitmap, int flags) {
  return {{"guid", guid}, {"allowPermission", allow}, {"bitmap", bitmap}, {"flags", flags}};
}
Dictionary readForm(const Dictionary& entry, const std::string& name, int kind) {
  Dictionary read = entry;
  read.set("displayName", name);
  read.set("isUser", kind);
  return read;
}

bool hasAttribute(const std::string& path) {
  return ::getxattr(path.c_str(), kAttribute, nullptr, 0) >= 0;
}

std::string whyNoLists(const std::string& folder) {
  if (::setxattr(folder.c_str(), kAttribute, "probe", 5, 0) != 0)
    return std::string(kAttribute) + " cannot be written here: " + std::strerror(errno);
  ::removexattr(folder.c_str(), kAttribute);
  return "";
}

// Files in a temporary folder.
class PrivilegesOnDisk : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "giving files to other accounts needs root";
    if (const std::string why = whyNoLists(folder_.path()); !why.empty()) GTEST_SKIP() << why;
    ASSERT_EQ(::mkdir(path_.c_str(), 0755), 0);
    ASSERT_EQ(::chmod(path_.c_str(), 0755), 0);
  }

  const Dictionary entry_ = entryOf(kGuid, "YES", 2 | 8, 32 | 64);
  TestFolder folder_;
  const std::string path_ = folder_.path("shared");
};

TEST_F(PrivilegesOnDisk, OneRequestWritesAndReadsBackAllPrivileges) {
  const PrivilegesDaemon daemon;
  const Dictionary reply = daemon.write(
      path_, {{"owner", "daemon"}, {"group", "daemon"}, {"privs", "750"}, {"acl", Array{entry_}}});
  EXPECT_EQ(reply.integer("writeStatus"), 0);
  EXPECT_EQ(PrivilegesDaemon::privilegesIn(reply),
            (Dictionary{{"owner", "daemon"},
                        {"group", "daemon"},
                        {"fileType", "directory"},
                        {"privs", "750"},
                        {"acl", Array{readForm(entry_, kGuid, 1061109567)}},
                        {"path", path_}}));
  struct stat status {};
  ASSERT_EQ(::stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 1U);
  EXPECT_EQ(status.st_gid, 1U);
  EXPECT_TRUE(hasAttribute(path_));
}

TEST_F(PrivilegesOnDisk, HostUsersAndGroupsAreNamedInAcl) {
  const PrivilegesDaemon daemon;
  const Array entries = {
      Dictionary{{"allowPermission", "YES"}, {"bitmap", 2}, {"isUser", 0}, {"uniqueID", 1}},
      Dictionary{{"allowPermission", "NO"}, {"bitmap", 4}, {"isUser", 1}, {"groupID", "1"}}};
  EXPECT_EQ(daemon.writeStatus(path_, {{"acl", entries}}), 0);
  const Dictionary privileges = daemon.read(path_);
  const Array* read = privileges.array("acl");
  ASSERT_NE(read, nullptr);
  ASSERT_EQ(read->size(), 2U);
  for (const int kind : {0, 1}) {
    const Dictionary& one = *read->at(static_cast<std::size_t>(kind)).dictionary();
    EXPECT_EQ(*one.string("displayName"), "daemon");
    EXPECT_EQ(one.integer("isUser"), kind);
  }
}

TEST_F(PrivilegesOnDisk, ReplyCanBeSentBackUnchanged) {
  const PrivilegesDaemon daemon;
  ASSERT_EQ(daemon.writeStatus(path_, {{"privs", "711"}, {"acl", Array{entry_, entry_}}}), 0);
  const Dictionary before = daemon.read(path_);
  EXPECT_EQ(daemon.writeStatus(path_, before), 0);
  EXPECT_EQ(daemon.read(path_), before);
}

TEST_F(PrivilegesOnDisk, ModeChangePreservesAcl) {
  const PrivilegesDaemon daemon;
  ASSERT_EQ(daemon.writeStatus(path_, {{"acl", Array{entry_}}}), 0);
  EXPECT_EQ(daemon.writeStatus(path_, {{"privs", "705"}}), 0);
  const Dictionary privileges = daemon.read(path_);
  EXPECT_EQ(*privileges.string("privs"), "705");
  EXPECT_EQ(privileges.array("acl")->size(), 1U);
}

TEST_F(PrivilegesOnDisk, AnEmptyAclIsCleared) {
  const PrivilegesDaemon daemon;
  ASSERT_EQ(daemon.writeStatus(path_, {{"acl", Array{entry_}}}), 0);
  ASSERT_TRUE(hasAttribute(path_));
  const Dictionary reply = daemon.write(path_, {{"acl", Array{}}});
  EXPECT_EQ(reply.integer("writeStatus"), 0);
  EXPECT_EQ(*PrivilegesDaemon::privilegesIn(reply).array("acl"), Array{});
  EXPECT_FALSE(hasAttribute(path_));
  EXPECT_EQ(*PrivilegesDaemon::privilegesIn(reply).string("privs"), "755");
}

TEST_F(PrivilegesOnDisk, LongListsAreKeptWholeOrRefusedWhole) {
  const PrivilegesDaemon daemon;
  for (const std::size_t count : {1U, 128U, 129U, 1000U}) {
    ASSERT_EQ(daemon.writeStatus(path_, {{"acl", Array{}}}), 0);
    const std::int64_t status = daemon.writeStatus(path_, {{"acl", Array(count, entry_)}});
    // A file system has room for a part of the longest ones only.
    ASSERT_TRUE(status == 0 || (count > 1 && status == CANNOT_SET_ACL_FILE_ERR)) << status;
    EXPECT_EQ(daemon.read(path_).array("acl")->size(), status == 0 ? count : 0U);
  }
  ASSERT_EQ(daemon.writeStatus(path_, {{"acl", Array{entry_}}}), 0);
  for (const std::size_t count : {1001U, 10'000U}) {
    EXPECT_EQ(daemon.writeStatus(path_, {{"acl", Array(count, entry_)}}), ACL_VALIDATION_ERR);
    EXPECT_EQ(daemon.read(path_).array("acl")->size(), 1U);
  }
}

TEST_F(PrivilegesOnDisk, UndecodableAttributeIsReportedAsInvalidAcl) {
  const PrivilegesDaemon daemon;
  ASSERT_EQ(::setxattr(path_.c_str(), kAttribute, "spoilt", 6, 0), 0);
  const Dictionary privileges = daemon.read(path_);
  EXPECT_EQ(*privileges.string("aclErr"), "INVALID_ACL_ERR");
  EXPECT_EQ(*privileges.string("privs"), "755");
  EXPECT_NE(daemon.log().find("<3>paddock_sharing:get_acl acl_valid error = -1 [request "),
            std::string::npos)
      << daemon.log();
  EXPECT_EQ(daemon.writeStatus(path_, {{"acl", Array{}}}), 0);
  EXPECT_TRUE(hasAttribute(path_)) << "an invalid ACL is not cleared";
  EXPECT_EQ(daemon.writeStatus(path_, {{"acl", Array{entry_}}}), 0);
  EXPECT_EQ(daemon.read(path_).array("acl")->size(), 1U);
}

TEST_F(PrivilegesOnDisk, AMissingPathIsSaidToBe) {
  const PrivilegesDaemon daemon;
  const std::string missing = folder_.path("missing");
  EXPECT_EQ(daemon.read(missing),
            (Dictionary{{"posixErr", "FILE_NOT_FOUND_ERR"}, {"acl", Array{}}, {"path", missing}}));
  const Dictionary reply = daemon.write(missing, {{"privs", "700"}});
  EXPECT_EQ(reply.integer("writeStatus"), CANNOT_CHANGE_PRIVS_ERR);
  EXPECT_EQ(*reply.string("writeError"), "CANNOT_CHANGE_PRIVS_ERR");
  EXPECT_EQ(daemon.writeStatus(missing, {{"acl", Array{entry_}}}), CANNOT_SET_ACL_FILE_ERR);
  EXPECT_FALSE(fs::exists(missing));
}

TEST_F(PrivilegesOnDisk, FileIsReadAndWrittenLikeFolder) {
  const PrivilegesDaemon daemon;
  const std::string file = folder_.path("file");
  writeWholeFile(file, "contents");
  EXPECT_EQ(
      daemon.writeStatus(file, {{"owner", "daemon"}, {"privs", "640"}, {"acl", Array{entry_}}}), 0);
  const Dictionary privileges = daemon.read(file);
  EXPECT_EQ(*privileges.string("fileType"), "regular");
  EXPECT_EQ(*privileges.string("privs"), "640");
  EXPECT_EQ(privileges.array("acl")->size(), 1U);
  EXPECT_EQ(readWholeFile(file), "contents");
}

// What a file would inherit, of the folder that it is in.
class InheritedAclEntries : public PrivilegesOnDisk {
 protected:
  void SetUp() override {
    PrivilegesOnDisk::SetUp();
    writeWholeFile(file_, "");
  }

  static Dictionary entry(int bitmap, int flags) { return entryOf(kGuid, "YES", bitmap, flags); }
  static Dictionary inherit(const PrivilegesDaemon& daemon, const std::string& path) {
    return daemon.ask("fileInheritACL", {{"path", path}});
  }
  static Dictionary listOf(const std::vector<Dictionary>& entries) {
    Array list;
    for (const Dictionary& each : entries) list.push_back(readForm(each, kGuid, 1061109567));
    return {{"acl", std::move(list)}};
  }

  const std::string file_ = path_ + "/file";
};

TEST_F(InheritedAclEntries, OwnEntriesPrecedeThoseInheritedFromFolder) {
  const PrivilegesDaemon daemon;
  ASSERT_EQ(daemon.writeStatus(
                path_, {{"acl", Array{entry(2, 32), entry(4, 64), entry(8, 480), entry(16, 0)}}}),
            0);
  ASSERT_EQ(daemon.writeStatus(file_, {{"acl", Array{entry(64, 16), entry(32, 0)}}}), 0);
  EXPECT_EQ(inherit(daemon, file_), listOf({entry(32, 0), entry(2, 48), entry(8, 496)}));
  EXPECT_EQ(daemon.read(file_).array("acl")->size(), 2U) << "nothing is written";
}

TEST_F(InheritedAclEntries, InvalidAclOfEitherReturnsErrorAlone) {
  const PrivilegesDaemon daemon;
  const Dictionary error{{"error", "INVALID_ACL_ERR"}};
  ASSERT_EQ(::setxattr(file_.c_str(), kAttribute, "spoilt", 6, 0), 0);
  EXPECT_EQ(inherit(daemon, file_), error);
  ASSERT_EQ(::removexattr(file_.c_str(), kAttribute), 0);
  EXPECT_EQ(inherit(daemon, file_), listOf({}));
  ASSERT_EQ(::setxattr(path_.c_str(), kAttribute, "spoilt", 6, 0), 0);
  EXPECT_EQ(inherit(daemon, file_), error);
}

TEST_F(PrivilegesOnDisk, ALinkIsFollowed) {
  const PrivilegesDaemon daemon;
  const std::string link = folder_.path("link");
  ASSERT_EQ(::symlink(path_.c_str(), link.c_str()), 0);
  EXPECT_EQ(daemon.writeStatus(link, {{"privs", "700"}, {"acl", Array{entry_}}}), 0);
  EXPECT_TRUE(fs::is_symlink(link));
  const Dictionary privileges = daemon.read(path_);
  EXPECT_EQ(*privileges.string("privs"), "700");
  EXPECT_EQ(privileges.array("acl")->size(), 1U);
  EXPECT_EQ(*daemon.read(link).string("fileType"), "directory");
}

TEST_F(PrivilegesOnDisk, AFifoIsNotWaitedFor) {
  const PrivilegesDaemon daemon;
  const std::string fifo = folder_.path("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(daemon.writeStatus(fifo, {{"privs", "660"}}), 0);
  const Dictionary privileges = daemon.read(fifo);
  EXPECT_EQ(*privileges.string("fileType"), "fifo");
  EXPECT_EQ(*privileges.string("privs"), "660");
}

TEST_F(PrivilegesOnDisk, UnknownAccountsChangeNothing) {
  const PrivilegesDaemon daemon;
  EXPECT_EQ(daemon.writeStatus(path_, {{"owner", "no-such-account-of-a-test"}, {"privs", "700"}}),
            USER_NOT_FOUND_ERR);
  EXPECT_EQ(daemon.writeStatus(path_, {{"group", "no-such-account-of-a-test"}, {"privs", "700"}}),
            GROUP_NOT_FOUND_ERR);
  EXPECT_EQ(*daemon.read(path_).string("privs"), "755");
}

TEST_F(PrivilegesOnDisk, AnUnnamedOwnerAndGroupReadAsEmpty) {
  const PrivilegesDaemon daemon;
  ASSERT_EQ(::chown(path_.c_str(), 2111222333, 2111222333), 0);
  const Dictionary privileges = daemon.read(path_);
  EXPECT_EQ(*privileges.string("owner"), "");
  EXPECT_EQ(*privileges.string("group"), "");
}

// File systems of their own.
class PrivilegesOnMounts : public PrivilegesOnDisk {
 protected:
  void SetUp() override {
    if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
    ASSERT_EQ(::mkdir(path_.c_str(), 0755), 0);
  }
};

TEST_F(PrivilegesOnMounts, TmpfsHoldsThem) {
  runInOwnMounts([this] {
    mountTmpfs(path_, "4m");
    if (const std::string why = whyNoLists(path_); !why.empty()) {
      std::printf("not tested on tmpfs: %s\n", why.c_str());
      return;
    }
    const PrivilegesDaemon daemon;
    EXPECT_EQ(daemon.writeStatus(path_, {{"privs", "750"}, {"acl", Array{entry_}}}), 0);
    EXPECT_EQ(*daemon.read(path_).string("privs"), "750");
    EXPECT_EQ(daemon.read(path_).array("acl")->size(), 1U);
  });
}

TEST_F(PrivilegesOnMounts, AReadOnlyMountRefusesChanges) {
  runInOwnMounts([this] {
    mountTmpfs(path_, "4m");
    const std::string folder = path_ + "/folder";
    ASSERT_EQ(::mkdir(folder.c_str(), 0755), 0);
    ASSERT_EQ(::mount("", path_.c_str(), "", MS_REMOUNT | MS_RDONLY, ""), 0);
    const PrivilegesDaemon daemon;
    EXPECT_EQ(daemon.writeStatus(folder, {{"privs", "700"}}), CANNOT_CHANGE_PRIVS_ERR);
    EXPECT_EQ(daemon.writeStatus(folder, {{"acl", Array{entry_}}}), CANNOT_SET_ACL_FILE_ERR);
    EXPECT_EQ(*daemon.read(folder).string("privs"), "755");
    EXPECT_EQ(*daemon.read(folder).array("acl"), Array{});
  });
}

TEST_F(PrivilegesOnMounts, VolumeWithoutAttributesReadsAndTakesNoAcl) {
  runInOwnMounts([this] {
    ASSERT_EQ(::mount("ramfs", path_.c_str(), "ramfs", 0, ""), 0);
    ASSERT_FALSE(whyNoLists(path_).empty());
    const PrivilegesDaemon daemon;
    EXPECT_EQ(daemon.writeStatus(path_, {{"privs", "750"}, {"acl", Array{entry_}}}),
              CANNOT_SET_ACL_FILE_ERR);
    EXPECT_EQ(daemon.writeStatus(path_, {{"acl", Array{}}}), 0);
    const Dictionary privileges = daemon.read(path_);
    EXPECT_EQ(*privileges.string("privs"), "750") << "the mode is changed all the same";
    EXPECT_EQ(*privileges.array("acl"), Array{});
  });
}

}  // namespace
}  // namespace paddock::testing
