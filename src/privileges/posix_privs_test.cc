#include "privileges/posix_privs.h"

#include <gtest/gtest.h>

#include "support/privileges_fixture.h"

namespace paddock {
namespace {

using Mode = std::optional<std::uint32_t>;

class PosixPrivsTest : public PrivilegesFixture {
 protected:
  ~PosixPrivsTest() override { EXPECT_TRUE(logger.lines().empty()) << "nothing is logged here"; }

  Status get(const std::string& path = kFolder) {
    return get_posix_privs(path, owner_, group_, permissions_, fileType_);
  }
  Status set(const char* owner, const char* group, Mode mode, const std::string& path = kFolder) {
    const std::string ownerText = owner != nullptr ? owner : "";
    const std::string groupText = group != nullptr ? group : "";
    return set_posix_privs(path, owner != nullptr ? &ownerText : nullptr,
                           group != nullptr ? &groupText : nullptr, mode);
  }
  // Owner, group and mode as they are now.
  void expectFolder(const std::string& owner, const std::string& group, std::uint32_t mode) {
    const FileAttributes now = tree.attributes(kFolder);
    EXPECT_EQ(now.ownerName, owner);
    EXPECT_EQ(now.groupName, group);
    EXPECT_EQ(now.permissions, mode);
  }

  std::string owner_ = "before";
  std::string group_ = "before";
  Mode permissions_ = 1;
  std::optional<std::string> fileType_ = "before";
};

TEST_F(PosixPrivsTest, ReadsNamesModeAndType) {
  tree.set(kFolder, {"anna", "staff", 02750, "directory"});
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(owner_, "anna");
  EXPECT_EQ(group_, "staff");
  EXPECT_EQ(permissions_, 02750U);
  EXPECT_EQ(fileType_, "directory");
}

TEST_F(PosixPrivsTest, AnOwnerOrGroupWithoutANameReadsAsEmpty) {
  tree.set(kFolder, {std::nullopt, std::nullopt, 0700, "directory"});
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(owner_, "");
  EXPECT_EQ(group_, "");
}

TEST_F(PosixPrivsTest, AModeOrATypeThatIsNotKnownIsAbsent) {
  tree.set(kFolder, {"anna", "staff", std::nullopt, std::nullopt});
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(permissions_, std::nullopt);
  EXPECT_EQ(fileType_, std::nullopt);
}

TEST_F(PosixPrivsTest, ALinkIsReadThroughToItsTarget) {
  tree.set("/srv/file", {"anna", "staff", 0640, "regular"});
  tree.setLink("/srv/link", "/srv/file");
  EXPECT_EQ(get("/srv/link"), kSuccess);
  EXPECT_EQ(fileType_, "regular");
  EXPECT_EQ(permissions_, 0640U);
}

TEST_F(PosixPrivsTest, AMissingPathCannotBeReadAndLeavesTheOutValues) {
  EXPECT_EQ(get("/srv/missing"), CANNOT_STAT_ERR);
  EXPECT_EQ(owner_, "before");
  EXPECT_EQ(group_, "before");
  EXPECT_EQ(permissions_, 1U);
  EXPECT_EQ(fileType_, "before");
}

TEST_F(PosixPrivsTest, AttributesThatCannotBeReadAreOneStatusWhateverTheReason) {
  for (const int error : {EACCES, EIO, ELOOP})
    EXPECT_EQ(failing(
                  "fileAttributes.read", [this] { return get(); }, 1, error),
              CANNOT_STAT_ERR);
  EXPECT_EQ(owner_, "before");
}

TEST_F(PosixPrivsTest, SetsOwnerGroupAndModeTogether) {
  EXPECT_EQ(set("anna", "staff", 02770), kSuccess);
  expectFolder("anna", "staff", 02770);
}

TEST_F(PosixPrivsTest, EmptyNamesWithAModeChangeTheModeAlone) {
  EXPECT_EQ(set("", "", 0700), kSuccess);
  expectFolder("root", "root", 0700);
}

TEST_F(PosixPrivsTest, EachPartIsSetAlone) {
  EXPECT_EQ(set("anna", nullptr, std::nullopt), kSuccess);
  expectFolder("anna", "root", 0755);
  EXPECT_EQ(set(nullptr, "staff", std::nullopt), kSuccess);
  expectFolder("anna", "staff", 0755);
  EXPECT_EQ(set(nullptr, nullptr, 0), kSuccess);
  expectFolder("anna", "staff", 0);
}

TEST_F(PosixPrivsTest, NothingToSetIsAppliedAndSucceeds) {
  EXPECT_EQ(set(nullptr, nullptr, std::nullopt), kSuccess);
  expectFolder("root", "root", 0755);
}

TEST_F(PosixPrivsTest, NothingToSetFailsWhereTheSystemRefuses) {
  EXPECT_EQ(set(nullptr, nullptr, std::nullopt, "/srv/missing"), CANNOT_CHANGE_PRIVS_ERR);
  EXPECT_EQ(failing("fileAttributes.apply", [this] { return set("", "", std::nullopt); }),
            CANNOT_CHANGE_PRIVS_ERR);
}

TEST_F(PosixPrivsTest, AnUnknownOwnerChangesNothing) {
  EXPECT_EQ(set("nobody-here", "staff", 0700), USER_NOT_FOUND_ERR);
  expectFolder("root", "root", 0755);
}

TEST_F(PosixPrivsTest, AnUnknownGroupChangesNothing) {
  EXPECT_EQ(set("anna", "nobody-here", 0700), GROUP_NOT_FOUND_ERR);
  expectFolder("root", "root", 0755);
}

TEST_F(PosixPrivsTest, OfAnUnknownOwnerAndAnUnknownGroupTheOwnerIsReported) {
  EXPECT_EQ(set("nobody-here", "nobody-here", 0700), USER_NOT_FOUND_ERR);
}

TEST_F(PosixPrivsTest, AUserIsNoGroupAndAGroupIsNoUser) {
  EXPECT_EQ(set("staff", nullptr, std::nullopt), USER_NOT_FOUND_ERR);
  EXPECT_EQ(set(nullptr, "anna", std::nullopt), GROUP_NOT_FOUND_ERR);
}

TEST_F(PosixPrivsTest, NamesThatCannotBeLookedUpAreUnknown) {
  const auto setAll = [this] { return set("anna", "staff", 0700); };
  EXPECT_EQ(failing("accounts.getpwnam", setAll), USER_NOT_FOUND_ERR);
  EXPECT_EQ(failing("accounts.getgrnam", setAll), GROUP_NOT_FOUND_ERR);
  expectFolder("root", "root", 0755);
}

TEST_F(PosixPrivsTest, TheNamesAreLookedUpOnAMissingPathToo) {
  EXPECT_EQ(set("nobody-here", nullptr, 0700, "/srv/missing"), USER_NOT_FOUND_ERR);
  EXPECT_EQ(set("anna", nullptr, 0700, "/srv/missing"), CANNOT_CHANGE_PRIVS_ERR);
}

TEST_F(PosixPrivsTest, ARefusedChangeIsOneStatusWhateverTheReason) {
  for (const int error : {EPERM, EROFS, ENOENT, EIO})
    EXPECT_EQ(failing(
                  "fileAttributes.apply", [this] { return set("anna", "staff", 0700); }, 1, error),
              CANNOT_CHANGE_PRIVS_ERR);
  expectFolder("root", "root", 0755);
}

TEST_F(PosixPrivsTest, ALinksTargetIsChanged) {
  tree.setLink("/srv/link", kFolder);
  EXPECT_EQ(set("anna", nullptr, 0711, "/srv/link"), kSuccess);
  expectFolder("anna", "root", 0711);
}

}  // namespace
}  // namespace paddock
