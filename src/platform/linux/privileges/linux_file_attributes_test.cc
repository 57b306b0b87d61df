#include "platform/linux/privileges/linux_file_attributes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <functional>

#include "platform/linux/accounts/linux_accounts.h"
#include "platform/linux/acl/posix_acl.h"
#include "platform/linux/files/file_object.h"
#include "platform/linux/process/case_fold.h"
#include "platform/testing/in_memory_directory.h"
#include "support/file_acl_world.h"
#include "support/own_mounts.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

using nt_acl::withTail;

constexpr std::uint32_t kUnnamedId = 2111222333;

// A directory that cannot answer, for names that the system does not know.
class DeadDirectory final : public DirectoryService {
 public:
  std::unique_ptr<DirectorySession> openLocal() override { throw DirectoryError(EIO, "damaged"); }
};

class FileAttributeCalls : public ::testing::Test {
 protected:
  FileAttributeCalls() {
    writeWholeFile(file_, "");
    ::chmod(file_.c_str(), 0640);
  }

  static struct stat statusOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    return status;
  }
  static mode_t modeOf(const std::string& path) { return statusOf(path).st_mode & 07777U; }
  int setMode(const std::string& path, std::uint32_t mode) {
    return service_.apply(path, {{}, {}, mode});
  }
  FileAttributes attributesOf(const std::string& path) {
    FileAttributes attributes;
    EXPECT_EQ(service_.read(path, attributes), 0);
    return attributes;
  }
  static FileDescriptor opened(const std::string& path) {
    FileDescriptor object;
    EXPECT_EQ(openObject(path, object), 0);
    return object;
  }
  static int setAcl(const std::string& path, const posix_acl::Acl& acl) {
    return linuxExtendedAttributes().set(opened(path).get(), posix_acl::kAccessAttribute,
                                         posix_acl::encode(acl));
  }
  static posix_acl::Acl aclOf(const std::string& path) {
    std::string value;
    EXPECT_EQ(linuxExtendedAttributes().get(opened(path).get(), posix_acl::kAccessAttribute, value),
              0);
    return posix_acl::decode(value).value_or(posix_acl::Acl{});
  }
  // user::7 user:1000:6 group::1 mask::7 other::4
  static posix_acl::Acl withOneUser() {
    posix_acl::Acl acl;
    acl.classes = {7, 1, 4};
    acl.users = {{1000, 6}};
    acl.computeMask();
    return acl;
  }

  TestFolder folder_;
  const std::string file_ = folder_.path("file");
  InMemoryDirectory directory_{caseFold};
  LinuxAccounts accounts_{directory_};
  FileAclWorld world_;
  LinuxFileAttributes service_{accounts_, world_.acls};
};

TEST_F(FileAttributeCalls, OwnerGroupModeAndTypeAreRead) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving a file to another account needs root";
  ASSERT_EQ(::chown(file_.c_str(), 1, 2), 0);
  ASSERT_EQ(::chmod(file_.c_str(), 02751), 0);
  const FileAttributes attributes = attributesOf(file_);
  EXPECT_EQ(attributes.ownerName, "daemon");
  EXPECT_EQ(attributes.groupName, "bin");
  EXPECT_EQ(attributes.permissions, 02751U);
  EXPECT_EQ(attributes.type, "regular");
}

TEST_F(FileAttributeCalls, UnnamedOwnerAndGroupAreAbsent) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving a file to another account needs root";
  ASSERT_EQ(::chown(file_.c_str(), kUnnamedId, kUnnamedId), 0);
  const FileAttributes attributes = attributesOf(file_);
  EXPECT_EQ(attributes.ownerName, std::nullopt);
  EXPECT_EQ(attributes.groupName, std::nullopt);
  EXPECT_EQ(attributes.permissions, 0640U);
}

TEST_F(FileAttributeCalls, FailedNameLookupReturnsErrorWithoutAttributes) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving a file to another account needs root";
  ASSERT_EQ(::chown(file_.c_str(), kUnnamedId, 0), 0);
  DeadDirectory dead;
  LinuxAccounts accounts(dead);
  LinuxFileAttributes service(accounts, world_.acls);
  FileAttributes attributes;
  attributes.type = "before";
  EXPECT_EQ(service.read(file_, attributes), EIO);
  EXPECT_EQ(attributes.type, std::nullopt);
  EXPECT_EQ(attributes.permissions, std::nullopt);
}

TEST_F(FileAttributeCalls, EveryTypeHasItsName) {
  EXPECT_EQ(attributesOf(folder_.path()).type, "directory");
  ASSERT_EQ(::mkfifo(folder_.path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(attributesOf(folder_.path("fifo")).type, "fifo");
  EXPECT_EQ(attributesOf("/dev/null").type, "characterDevice");
  const FileDescriptor server(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  folder_.path("socket").copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(server.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(attributesOf(folder_.path("socket")).type, "socket");
}

TEST_F(FileAttributeCalls, ABlockDeviceIsReadWithoutOpeningIt) {
  // No driver has this number, so that opening it would fail.
  if (::mknod(folder_.path("device").c_str(), S_IFBLK | 0600, ::makedev(240, 255)) != 0)
    GTEST_SKIP() << "device files cannot be made here";
  EXPECT_EQ(attributesOf(folder_.path("device")).type, "blockDevice");
  EXPECT_EQ(setMode(folder_.path("device"), 0660), 0);
  EXPECT_EQ(modeOf(folder_.path("device")), 0660U);
}

TEST_F(FileAttributeCalls, SymlinkIsFollowedForReadsAndChanges) {
  ASSERT_EQ(::symlink("file", folder_.path("link").c_str()), 0);
  EXPECT_EQ(attributesOf(folder_.path("link")).type, "regular");
  EXPECT_EQ(setMode(folder_.path("link"), 0604), 0);
  EXPECT_EQ(modeOf(file_), 0604U);
}

TEST_F(FileAttributeCalls, AMissingObjectIsReportedEverywhere) {
  FileAttributes attributes;
  for (const std::string& path :
       {folder_.path("missing"), std::string(), file_ + std::string("\0x", 2)}) {
    EXPECT_EQ(service_.read(path, attributes), ENOENT);
    EXPECT_EQ(setMode(path, 0600), ENOENT);
    EXPECT_EQ(service_.apply(path, {}), ENOENT);
    EXPECT_FALSE(service_.exists(path));
  }
}

TEST_F(FileAttributeCalls, ADanglingLinkLeadsToNothing) {
  ASSERT_EQ(::symlink("missing", folder_.path("link").c_str()), 0);
  EXPECT_FALSE(service_.exists(folder_.path("link")));
  EXPECT_TRUE(service_.exists(file_));
}

TEST_F(FileAttributeCalls, AnEmptyChangeSucceedsAndChangesNothing) {
  EXPECT_EQ(service_.apply(file_, {}), 0);
  EXPECT_EQ(modeOf(file_), 0640U);
}

TEST_F(FileAttributeCalls, OwnerAndGroupAreSetByName) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving a file to another account needs root";
  EXPECT_EQ(service_.apply(file_, {"daemon", {}, {}}), 0);
  EXPECT_EQ(statusOf(file_).st_uid, 1U);
  EXPECT_EQ(statusOf(file_).st_gid, 0U);
  EXPECT_EQ(service_.apply(file_, {{}, "bin", {}}), 0);
  EXPECT_EQ(statusOf(file_).st_uid, 1U);
  EXPECT_EQ(statusOf(file_).st_gid, 2U);
}

TEST_F(FileAttributeCalls, UnknownNameIsRefusedBeforeAnyChange) {
  EXPECT_EQ(service_.apply(file_, {"paddock-nobody-else", {}, 0777}), EINVAL);
  EXPECT_EQ(service_.apply(file_, {"daemon", "paddock-nobody-else", 0777}), EINVAL);
  EXPECT_EQ(modeOf(file_), 0640U);
  EXPECT_EQ(statusOf(file_).st_uid, ::geteuid());
}

TEST_F(FileAttributeCalls, SetIdBitsFollowModeDespiteOwnerChange) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving a file to another account needs root";
  EXPECT_EQ(service_.apply(file_, {"daemon", "bin", 06755}), 0);
  EXPECT_EQ(modeOf(file_), 06755U);
  EXPECT_EQ(setMode(file_, 0755), 0);
  EXPECT_EQ(modeOf(file_), 0755U);
  EXPECT_EQ(setMode(folder_.path(), 01777), 0);
  EXPECT_EQ(modeOf(folder_.path()), 01777U);
}

TEST_F(FileAttributeCalls, FifoIsReadAndChangedWithoutBlocking) {
  const std::string fifo = folder_.path("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(setMode(fifo, 0666), 0);
  EXPECT_EQ(attributesOf(fifo).permissions, 0666U);
}

TEST_F(FileAttributeCalls, PosixAclGroupBitsFollowOwningGroup) {
  if (setAcl(file_, withOneUser()) == EOPNOTSUPP)
    GTEST_SKIP() << "the file system of the temporary folder takes no POSIX ACLs";
  EXPECT_EQ(modeOf(file_), 0774U);
  EXPECT_EQ(attributesOf(file_).permissions, 0714U);
}

TEST_F(FileAttributeCalls, NarrowedMaskBoundsGroupBits) {
  if (setAcl(file_, withOneUser()) == EOPNOTSUPP)
    GTEST_SKIP() << "the file system of the temporary folder takes no POSIX ACLs";
  ASSERT_EQ(::chmod(file_.c_str(), 0744), 0);
  EXPECT_EQ(attributesOf(file_).permissions, 0704U);
}

TEST_F(FileAttributeCalls, SettingModeWithPosixAclSetsOwningGroup) {
  if (setAcl(file_, withOneUser()) == EOPNOTSUPP)
    GTEST_SKIP() << "the file system of the temporary folder takes no POSIX ACLs";
  EXPECT_EQ(setMode(file_, 02650), 0);
  const posix_acl::Acl acl = aclOf(file_);
  EXPECT_EQ(acl.classes, (posix_acl::Classes{6, 5, 0}));
  EXPECT_EQ(acl.users, withOneUser().users);
  EXPECT_EQ(acl.mask, posix_acl::Bits{7});
  EXPECT_EQ(attributesOf(file_).permissions, 02650U);
}

TEST_F(FileAttributeCalls, MaskIsWidenedOnlyAsOwningGroupNeeds) {
  posix_acl::Acl acl = withOneUser();
  acl.mask = posix_acl::kRead;
  if (setAcl(file_, acl) == EOPNOTSUPP)
    GTEST_SKIP() << "the file system of the temporary folder takes no POSIX ACLs";
  EXPECT_EQ(setMode(file_, 0740), 0);
  EXPECT_EQ(aclOf(file_).mask, posix_acl::kRead);
  EXPECT_EQ(setMode(file_, 0750), 0);
  EXPECT_EQ(aclOf(file_).mask, posix_acl::kRead | posix_acl::kExecute);
}

TEST_F(FileAttributeCalls, WithoutProcTheCallsRefuseInsteadOfGuessing) {
  if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([this] {
    mountTmpfs("/proc", "64k");
    FileAttributes attributes;
    EXPECT_EQ(service_.read(file_, attributes), ENOSYS);
    EXPECT_EQ(setMode(file_, 0777), ENOSYS);
    EXPECT_EQ(modeOf(file_), 0640U);
  });
}

TEST_F(FileAttributeCalls, AReadOnlyFileSystemIsReported) {
  if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([this] {
    mountTmpfs(folder_.path(), "64k");
    writeWholeFile(file_, "");
    ASSERT_EQ(::mount("", folder_.path().c_str(), "", MS_REMOUNT | MS_RDONLY, ""), 0);
    EXPECT_EQ(setMode(file_, 0777), EROFS);
    EXPECT_EQ(service_.apply(file_, {"daemon", {}, {}}), EROFS);
    EXPECT_EQ(attributesOf(file_).type, "regular");
  });
}

// With an extended ACL.

class FileAttributeChangesWithAcl : public FileAttributeCalls {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "giving a file to another account needs root";
    if (const std::string why = whyNoLists(folder_.path()); !why.empty()) GTEST_SKIP() << why;
    if (const std::string why = whyNoPosixAcls(folder_.path()); !why.empty()) GTEST_SKIP() << why;
    acl::List list;
    list.entries.push_back(std::make_unique<acl::Entry>());
    list.entries[0]->tag = acl::kExtendedAllow;
    list.entries[0]->qualifier = computedGuid({PrincipalType::user, 1000});
    list.entries[0]->permset.permissions = acl::kReadData | acl::kWriteData;
    ASSERT_EQ(world_.acls.writeTo(opened(file_).get(), list), 0);
  }

  static nt_acl::Descriptor stored(const std::string& path) {
    return nt_acl::decode(attributeOf(path, "security.NTACL").value_or("")).value();
  }
  void store(const std::vector<nt_acl::Ace>& list) {
    nt_acl::Descriptor descriptor;
    descriptor.list = list;
    ASSERT_EQ(setAttribute(file_, "security.NTACL", nt_acl::encode(descriptor).value()), 0);
  }

  const nt_acl::Ace entry_{nt_acl::kAllowed, 0, 0x100003, {22, {1, 1000}}, {}};
};

TEST_F(FileAttributeChangesWithAcl, OwnershipAndModeChangesReachListAndProjection) {
  EXPECT_EQ(service_.apply(file_, {"daemon", "bin", 0604}), 0);
  EXPECT_EQ(stored(file_).owner, (nt_acl::Sid{22, {1, 1}}));
  EXPECT_EQ(stored(file_).group, (nt_acl::Sid{22, {2, 2}}));
  EXPECT_EQ(*stored(file_).list, withTail({entry_}, {1, 2, {6, 0, 4}, false}));
  EXPECT_EQ(aclOf(file_).classes, (posix_acl::Classes{6, 0, 4}));
  EXPECT_EQ(aclOf(file_).users, (std::vector<posix_acl::Named>{{1000, 6}}));
  EXPECT_EQ(attributesOf(file_).permissions, 0604U);
}

TEST_F(FileAttributeChangesWithAcl, AnOwnerAloneReachesTheListToo) {
  EXPECT_EQ(service_.apply(file_, {"daemon", {}, {}}), 0);
  EXPECT_EQ(stored(file_).owner, (nt_acl::Sid{22, {1, 1}}));
  EXPECT_EQ(*stored(file_).list, withTail({entry_}, {1, 0, {6, 4, 0}, false}));
}

TEST_F(FileAttributeChangesWithAcl, ForeignModeChangeReachesTailWithNextChange) {
  ASSERT_EQ(::chmod(file_.c_str(), 0604), 0);  // the kernel takes the group's part for the mask
  EXPECT_EQ(attributesOf(file_).permissions, 0604U);
  EXPECT_EQ(service_.apply(file_, {{}, "bin", {}}), 0);
  EXPECT_EQ(*stored(file_).list, withTail({entry_}, {0, 2, {6, 0, 4}, false}));
}

TEST_F(FileAttributeChangesWithAcl, ACompleteListGetsNoTail) {
  store({entry_});
  EXPECT_EQ(setMode(file_, 0777), 0);
  EXPECT_EQ(*stored(file_).list, std::vector<nt_acl::Ace>{entry_});
}

TEST_F(FileAttributeChangesWithAcl, UndecodableListIsLeftAloneAndModeSet) {
  ASSERT_EQ(setAttribute(file_, "security.NTACL", "spoilt"), 0);
  EXPECT_EQ(setMode(file_, 0705), 0);
  EXPECT_EQ(attributeOf(file_, "security.NTACL"), "spoilt");
  EXPECT_EQ(attributesOf(file_).permissions, 0705U);
}

TEST_F(FileAttributeChangesWithAcl, AnEmptyChangeLeavesTheListAlone) {
  ASSERT_EQ(::chown(file_.c_str(), 1, 1), 0);
  EXPECT_EQ(service_.apply(file_, {}), 0);
  EXPECT_EQ(stored(file_).owner, (nt_acl::Sid{22, {1, 0}}));
}

}  // namespace
}  // namespace paddock
