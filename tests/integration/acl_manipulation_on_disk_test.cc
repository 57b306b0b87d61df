// The routines for inherited ACLs on real files and folders.
#include "privileges/acl_manipulation.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <utility>
#include <vector>

#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/acl/sid_forms.h"
#include "platform/linux/privileges/linux_acl.h"
#include "platform/linux/privileges/mode_tail.h"
#include "platform/services.h"
#include "platform/testing/recording_host_services.h"
#include "support/file_acl_world.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

using nt_acl::Ace;
using nt_acl::kContainerInherit;
using nt_acl::kInherited;
using nt_acl::kInheritOnly;
using nt_acl::kNoPropagateInherit;
using nt_acl::kObjectInherit;

constexpr std::uint8_t kBoth = kObjectInherit | kContainerInherit;
constexpr std::uint32_t kReading = 0x00100001;  // with SYNCHRONIZE, as allowing entries have it
const std::string kAttribute = FileAclOptions{}.attribute;

Ace aceOf(std::uint32_t uid, std::uint8_t flags) {
  return {nt_acl::kAllowed, flags, kReading, nt_acl::unixSid({PrincipalType::user, uid}), {}};
}

class AclManipulationOnDisk : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "giving files away needs root";
    if (const std::string why = whyNoLists(folder_.path()); !why.empty()) GTEST_SKIP() << why;
    Services services;
    services.acl = &acl_;
    services.privilegedObjects = &objects_;
    services.logger = &logger_;
    guard_ = std::make_unique<ServicesGuard>(services);
    ASSERT_EQ(::mkdir(inner_.c_str(), 0755), 0);
    writeWholeFile(file_, "");
    setMode(file_, 0644);
  }

  static void setMode(const std::string& path, mode_t mode) {
    ASSERT_EQ(::chmod(path.c_str(), mode), 0);
  }
  static struct stat statusOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    return status;
  }
  static mode_t modeOf(const std::string& path) { return statusOf(path).st_mode & 07777U; }
  // A list that is not complete.
  static void store(const std::string& path, const std::vector<Ace>& entries) {
    const struct stat status = statusOf(path);
    storeComplete(path, nt_acl::withTail(entries, {status.st_uid, status.st_gid,
                                                   posix_acl::classesOf(status.st_mode),
                                                   S_ISDIR(status.st_mode)}));
  }
  static void storeComplete(const std::string& path, const std::vector<Ace>& entries) {
    nt_acl::Descriptor descriptor;
    descriptor.owner = nt_acl::unixSid({PrincipalType::user, 0});
    descriptor.group = nt_acl::unixSid({PrincipalType::group, 0});
    descriptor.list = entries;
    ASSERT_EQ(setAttribute(path, kAttribute, nt_acl::encode(descriptor).value()), 0);
  }
  static nt_acl::SplitList stored(const std::string& path) {
    const auto value = attributeOf(path, kAttribute);
    auto descriptor = value ? nt_acl::decode(*value) : std::nullopt;
    if (!descriptor || !descriptor->list) return {{}, false};
    return nt_acl::withoutTail(std::move(*descriptor->list), S_ISDIR(statusOf(path).st_mode));
  }
  // Sets what the folders of these paths, the nearest first, make inheritable; "" is an empty
  // level.
  static void inherit(const std::string& path, const std::vector<std::string>& folders, int kind,
                      PrivsToSet privs = {kSetInheritedEntries, 0, 0, 0, nullptr}) {
    InheritedACLComposite* first = nullptr;
    InheritedACLComposite** last = &first;
    for (const std::string& folder : folders) {
      *last = AllocInheritedACLComposite();
      if (!folder.empty()) {
        EXPECT_EQ(GetInheritableACL(folder.c_str(), &(*last)->entries, 1), 0);
      }
      last = &(*last)->next;
    }
    privs.composite = first;
    SetInheritedPrivs(path.c_str(), &privs, kind);
    while (first != nullptr) FreeInheritedACLComposite(std::exchange(first, first->next));
  }
  static void setModeOnly(const std::string& path, std::uint32_t what, std::uint16_t mode,
                          int kind) {
    inherit(path, {}, kind, {what, 0, 0, mode, nullptr});
  }

  const TestFolder folder_;
  const std::string outer_ = folder_.path();
  const std::string inner_ = folder_.path("inner");
  const std::string file_ = folder_.path("file");
  FileAclWorld world_;
  LinuxAcl acl_{world_.acls};
  LinuxPrivilegedObjects objects_{world_.acls};
  RecordingLogger logger_;
  std::unique_ptr<ServicesGuard> guard_;
};

TEST_F(AclManipulationOnDisk, FolderClassGainsSearchAndDropsSetIds) {
  setMode(inner_, 02755);
  setModeOnly(inner_, kSetOwnerPermissions, 0640, kDirectoryKind);
  EXPECT_EQ(modeOf(inner_), 0755U);
  setMode(inner_, 07055);
  setModeOnly(inner_, kSetOwnerPermissions, 0640, kDirectoryKind);
  EXPECT_EQ(modeOf(inner_), 0755U);
}

TEST_F(AclManipulationOnDisk, AFileKeepsItsExecuteBits) {
  setMode(file_, 04755);
  setModeOnly(file_, 28, 0666, kRegularKind);
  EXPECT_EQ(modeOf(file_), 0777U);
}

TEST_F(AclManipulationOnDisk, OwnerGroupAndListAreSetTogether) {
  store(outer_, {aceOf(501, kBoth)});
  inherit(file_, {outer_}, kRegularKind, {63, 11, 12, 0600, nullptr});
  EXPECT_EQ(statusOf(file_).st_uid, 11U);
  EXPECT_EQ(statusOf(file_).st_gid, 12U);
  EXPECT_EQ(stored(file_).entries, std::vector<Ace>{aceOf(501, kInherited)});
  EXPECT_FALSE(stored(file_).complete);
  auto descriptor = nt_acl::decode(attributeOf(file_, kAttribute).value());
  EXPECT_EQ(descriptor->owner, nt_acl::unixSid({PrincipalType::user, 11}));
  EXPECT_EQ(descriptor->group, nt_acl::unixSid({PrincipalType::group, 12}));
}

TEST_F(AclManipulationOnDisk, InheritedEntriesAreReplacedBehindTheOwnOnes) {
  store(outer_, {aceOf(501, kBoth), aceOf(502, kObjectInherit), aceOf(503, kContainerInherit)});
  store(file_, {aceOf(600, kInherited), aceOf(601, 0), aceOf(602, kInherited)});
  inherit(file_, {outer_}, kRegularKind);
  EXPECT_EQ(stored(file_).entries,
            (std::vector<Ace>{aceOf(601, 0), aceOf(501, kInherited), aceOf(502, kInherited)}));
  inherit(inner_, {"", outer_}, kDirectoryKind);
  EXPECT_EQ(stored(inner_).entries, (std::vector<Ace>{aceOf(501, kBoth | kInherited),
                                                      aceOf(503, kContainerInherit | kInherited)}));
}

TEST_F(AclManipulationOnDisk, LimitedInheritanceEndsAtDepthOne) {
  store(outer_, {aceOf(501, kBoth | kNoPropagateInherit | kInheritOnly)});
  inherit(inner_, {"", outer_}, kDirectoryKind);
  EXPECT_EQ(stored(inner_).entries, std::vector<Ace>{aceOf(501, kNoPropagateInherit | kInherited)});
  inherit(file_, {inner_, outer_}, kRegularKind);
  EXPECT_EQ(attributeOf(file_, kAttribute), std::nullopt);
}

TEST_F(AclManipulationOnDisk, CompleteListStaysCompleteEvenWithoutEntries) {
  store(outer_, {aceOf(501, kBoth)});
  storeComplete(file_, {aceOf(600, kInherited)});
  inherit(file_, {outer_}, kRegularKind);
  EXPECT_EQ(stored(file_).entries, std::vector<Ace>{aceOf(501, kInherited)});
  EXPECT_TRUE(stored(file_).complete);
  inherit(file_, {""}, kRegularKind);
  ASSERT_NE(attributeOf(file_, kAttribute), std::nullopt);
  EXPECT_EQ(stored(file_).entries, std::vector<Ace>{});
  EXPECT_TRUE(stored(file_).complete);
}

TEST_F(AclManipulationOnDisk, ObjectWithoutListAndLevelsIsUntouched) {
  const struct stat before = statusOf(file_);
  inherit(file_, {"", ""}, kRegularKind);
  EXPECT_EQ(attributeOf(file_, kAttribute), std::nullopt);
  EXPECT_EQ(statusOf(file_).st_ctim.tv_nsec, before.st_ctim.tv_nsec);
  EXPECT_EQ(statusOf(file_).st_ctim.tv_sec, before.st_ctim.tv_sec);
}

TEST_F(AclManipulationOnDisk, UndecodableValueStaysAndPassesNothingOn) {
  ASSERT_EQ(setAttribute(file_, kAttribute, "rubbish"), 0);
  store(outer_, {aceOf(501, kBoth)});
  inherit(file_, {outer_}, kRegularKind);
  EXPECT_EQ(attributeOf(file_, kAttribute), "rubbish");
  EXPECT_TRUE(logger_.lines().empty());
  InheritableACL* head = nullptr;
  EXPECT_EQ(GetInheritableACL(file_.c_str(), &head, 1), 0);
  EXPECT_EQ(head, nullptr);
}

}  // namespace
}  // namespace paddock
