#include "synchronize-shares/passed_lists.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <filesystem>
#include <vector>

#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/privileges/mode_tail.h"
#include "support/temporary_folder.h"

namespace paddock::synchronizer {
namespace {

using nt_acl::Ace;

constexpr const char* kAttribute = "user.NTACL";
constexpr std::uint8_t kBoth = nt_acl::kObjectInherit | nt_acl::kContainerInherit;
const nt_acl::Sid kSomebody{22, {1, 1001}};

Ace allowed(std::uint8_t flags) { return {nt_acl::kAllowed, flags, 0x120089, kSomebody, {}}; }
Ace denied(std::uint8_t flags) { return {nt_acl::kDenied, flags, 0x1, kSomebody, {}}; }

class PassedLists : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(inside());
    if (::setxattr(root().c_str(), "user.probe", "", 0, 0) != 0)
      GTEST_SKIP() << "no attributes of users in " << root();
  }
  std::string root() const { return folder_.path("share"); }
  std::string inside() const { return folder_.path("share/inside"); }
  static void store(const std::string& path, const std::vector<Ace>& entries, mode_t mode = 0755) {
    nt_acl::Descriptor descriptor;
    descriptor.list = nt_acl::withTail(entries, {1000, 100, posix_acl::classesOf(mode), true});
    const std::string value = nt_acl::encode(descriptor).value();
    ASSERT_EQ(::setxattr(path.c_str(), kAttribute, value.data(), value.size(), 0), 0);
  }
  bool passes() const { return passesListsOn(root(), kAttribute); }

  TestFolder folder_;
};

TEST_F(PassedLists, AFolderWithoutAListPassesNothingOn) { EXPECT_FALSE(passes()); }

TEST_F(PassedLists, TailAndFolderOnlyEntriesPassNothingOn) {
  store(root(), {});
  EXPECT_FALSE(passes());
  store(root(), {denied(0), allowed(0)});
  EXPECT_FALSE(passes());
}

TEST_F(PassedLists, EntriesForFilesOrFoldersArePassedOn) {
  for (const std::uint8_t flags : {nt_acl::kObjectInherit, nt_acl::kContainerInherit}) {
    store(root(), {allowed(flags)});
    EXPECT_TRUE(passes());
  }
}

TEST_F(PassedLists, SubfolderListsCountButFileListsDoNot) {
  store(inside(), {allowed(kBoth)});
  EXPECT_TRUE(passes());
  std::filesystem::rename(inside(), folder_.path("elsewhere"));
  EXPECT_FALSE(passes());
  std::filesystem::create_directory_symlink(folder_.path("elsewhere"), inside());
  EXPECT_FALSE(passes());
}

TEST_F(PassedLists, InheritableDenialBehindAllowancePassesNothingOn) {
  store(root(), {denied(kBoth), allowed(kBoth)});
  EXPECT_TRUE(passes());
  store(inside(), {allowed(kBoth), denied(kBoth)});
  EXPECT_FALSE(passes());
  store(inside(), {allowed(kBoth), denied(0)});
  EXPECT_TRUE(passes());
}

TEST_F(PassedLists, TailDenyingGroupPassesNothingOn) {
  store(root(), {allowed(kBoth)}, 0705);
  EXPECT_FALSE(passes());
}

TEST_F(PassedLists, MissingOrUndecodableListPassesNothingOn) {
  EXPECT_FALSE(passesListsOn(folder_.path("missing"), kAttribute));
  EXPECT_FALSE(passesListsOn("", kAttribute));
  ASSERT_EQ(::setxattr(root().c_str(), kAttribute, "x", 1, 0), 0);
  EXPECT_FALSE(passes());
}

}  // namespace
}  // namespace paddock::synchronizer
