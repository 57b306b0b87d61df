#include "platform/linux/privileges/linux_acl.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>

#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/acl/sid_forms.h"
#include "platform/linux/privileges/mode_tail.h"
#include "support/file_acl_world.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

constexpr std::uint32_t kUnchanged = PrivilegedObject::kUnchanged;
constexpr std::uint32_t kAnna = 501;
constexpr std::uint32_t kStaff = 601;
const std::string kAttribute = FileAclOptions{}.attribute;

class PrivilegedObjectLists : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "giving files away needs root";
    if (const std::string why = whyNoLists(folder_.path()); !why.empty()) GTEST_SKIP() << why;
    make(path_, 0640);
  }

  static void make(const std::string& path, mode_t mode) {
    writeWholeFile(path, "");
    ASSERT_EQ(::chmod(path.c_str(), mode), 0);
  }
  std::unique_ptr<PrivilegedObject> open(const std::string& path) {
    std::unique_ptr<PrivilegedObject> object;
    EXPECT_EQ(objects_.open(path, PathUse::changing, object), 0);
    return object;
  }
  // A list with one entry, not complete.
  void giveList(const std::string& path) {
    acl::List list;
    list.entries.push_back(std::make_unique<acl::Entry>());
    list.entries.back()->tag = acl::kExtendedAllow;
    list.entries.back()->qualifier = parseGuid("DEADBEEF-0000-4000-8000-000000000001");
    list.entries.back()->permset.permissions = acl::kReadData;
    ASSERT_EQ(open(path)->setAcl(&list), 0);
  }
  static struct stat statusOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    return status;
  }
  // That the stored list has the file's owner and group, and the tail of them and its mode.
  static void expectListIsUpToDate(const std::string& path) {
    const struct stat status = statusOf(path);
    auto stored = nt_acl::decode(attributeOf(path, kAttribute).value_or(""));
    ASSERT_TRUE(stored && stored->list);
    EXPECT_EQ(stored->owner, nt_acl::unixSid({PrincipalType::user, status.st_uid}));
    EXPECT_EQ(stored->group, nt_acl::unixSid({PrincipalType::group, status.st_gid}));
    const auto list = nt_acl::withoutTail(*stored->list, false);
    EXPECT_FALSE(list.complete);
    EXPECT_EQ(*stored->list,
              nt_acl::withTail(list.entries, {status.st_uid, status.st_gid,
                                              posix_acl::classesOf(status.st_mode), false}));
  }

  const TestFolder folder_;
  const std::string path_ = folder_.path("file");
  FileAclWorld world_;
  LinuxPrivilegedObjects objects_{world_.acls};
};

TEST_F(PrivilegedObjectLists, TheListFollowsOwnerGroupAndMode) {
  giveList(path_);
  expectListIsUpToDate(path_);
  const auto object = open(path_);
  ASSERT_EQ(object->changeOwner(kAnna, kUnchanged), 0);
  expectListIsUpToDate(path_);
  ASSERT_EQ(object->changeOwner(kUnchanged, kStaff), 0);
  expectListIsUpToDate(path_);
  ASSERT_EQ(object->changeMode(0604), 0);
  expectListIsUpToDate(path_);
  EXPECT_EQ(statusOf(path_).st_uid, kAnna);
  EXPECT_EQ(statusOf(path_).st_gid, kStaff);
  EXPECT_EQ(statusOf(path_).st_mode, S_IFREG | 0604U);
}

TEST_F(PrivilegedObjectLists, AnObjectWithoutAListGetsNone) {
  const auto object = open(path_);
  ASSERT_EQ(object->changeOwner(kAnna, kStaff), 0);
  ASSERT_EQ(object->changeMode(0600), 0);
  EXPECT_EQ(attributeOf(path_, kAttribute), std::nullopt);
}

TEST_F(PrivilegedObjectLists, ObjectStaysSameAfterPathReplacement) {
  const auto object = open(path_);
  const std::string moved = folder_.path("moved");
  ASSERT_EQ(std::rename(path_.c_str(), moved.c_str()), 0);
  make(path_, 0644);
  ASSERT_EQ(object->changeOwner(kAnna, kUnchanged), 0);
  ASSERT_EQ(object->changeMode(0600), 0);
  acl::List none;
  EXPECT_EQ(object->setAcl(&none), 0);
  EXPECT_EQ(statusOf(moved).st_uid, kAnna);
  EXPECT_EQ(statusOf(moved).st_mode, S_IFREG | 0600U);
  EXPECT_EQ(statusOf(path_).st_uid, 0U);
  EXPECT_EQ(statusOf(path_).st_mode, S_IFREG | 0644U);
}

TEST_F(PrivilegedObjectLists, ModeShowsOwningGroupNotMask) {
  if (const std::string why = whyNoPosixAcls(folder_.path()); !why.empty()) GTEST_SKIP() << why;
  posix_acl::Acl acl;
  acl.classes = posix_acl::classesOf(0640);
  acl.users.push_back({kAnna, 7});
  acl.mask = 7;
  ASSERT_EQ(setAttribute(path_, posix_acl::kAccessAttribute, posix_acl::encode(acl)), 0);
  ASSERT_EQ(statusOf(path_).st_mode, S_IFREG | 0670U);
  const auto object = open(path_);
  mode_t mode = 0;
  EXPECT_EQ(object->readMode(mode), 0);
  EXPECT_EQ(mode, S_IFREG | 0640U);
  EXPECT_EQ(object->changeMode(0604), 0);
  EXPECT_EQ(object->readMode(mode), 0);
  EXPECT_EQ(mode, S_IFREG | 0604U);
}

TEST_F(PrivilegedObjectLists, AFifoIsNotOpenedToBeChanged) {
  const std::string fifo = folder_.path("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  ASSERT_EQ(open(fifo)->changeOwner(kAnna, kStaff), 0);
  ASSERT_EQ(open(fifo)->changeMode(0620), 0);
  giveList(fifo);
  expectListIsUpToDate(fifo);
  EXPECT_EQ(statusOf(fifo).st_mode, S_IFIFO | 0620U);
}

}  // namespace
}  // namespace paddock
