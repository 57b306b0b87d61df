#include "platform/linux/quotas/accounting_quota_control.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "platform/testing/fake_volume_info.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

constexpr std::uint32_t kOn = quotaCommand(kQuotaOnCommand, 0);
constexpr std::uint32_t kGroupOn = quotaCommand(kQuotaOnCommand, 1);
constexpr std::uint32_t kOff = quotaCommand(kQuotaOffCommand, 0);
constexpr std::uint32_t kState = quotaCommand(kQuotaStateCommand, 0);

class QuotaAccountingState : public testing::Test {
 protected:
  QuotaAccountingState() { writeWholeFile(quotaFile(), ""); }
  std::string statePath() const { return folder_.path("state"); }
  std::string quotaFile() const { return folder_.path(".quota.user"); }
  int switchTo(std::uint32_t word, const std::string& path) {
    return control().quotactl(path, word, 0, quotaFile());
  }
  bool isOn(const std::string& path) {
    std::uint32_t state = 7;
    EXPECT_EQ(control().quotactl(path, kState, 0, &state), 0);
    return state == 1;
  }
  // One that has just been started.
  AccountingQuotaControl& control() { return control_.emplace(volumes_, statePath()); }

  TestFolder folder_;
  FakeVolumeInfo volumes_;
  std::optional<AccountingQuotaControl> control_;
};

TEST_F(QuotaAccountingState, FileHoldsLinePerEnabledVolume) {
  volumes_.mount({"/srv/a b", "/dev/sda1", "ext4"});
  volumes_.mount({"/srv/100%\n", "none", "tmpfs"});
  EXPECT_EQ(switchTo(kOn, "/srv/a b/folder"), 0);
  EXPECT_EQ(switchTo(kOn, "/srv/100%\n"), 0);
  EXPECT_EQ(switchTo(kGroupOn, "/"), 0);
  EXPECT_EQ(readWholeFile(statePath()), "group /\nuser /srv/100%25%0A\nuser /srv/a%20b\n");
}

TEST_F(QuotaAccountingState, TheStateOutlivesTheProcess) {
  EXPECT_EQ(switchTo(kOn, "/a"), 0);
  EXPECT_TRUE(isOn("/b"));
  EXPECT_EQ(switchTo(kOff, "/c"), 0);
  EXPECT_FALSE(isOn("/d"));
  EXPECT_EQ(readWholeFile(statePath()), "");
}

TEST_F(QuotaAccountingState, LinesOfAnotherKindStay) {
  writeWholeFile(statePath(), "user /gone\nnonsense\n\nproject /x\nuser /");
  EXPECT_TRUE(isOn("/a"));
  EXPECT_EQ(switchTo(kOff, "/a"), 0);
  EXPECT_EQ(readWholeFile(statePath()), "nonsense\nproject /x\nuser /gone\n");
}

TEST_F(QuotaAccountingState, UnchangedStateWritesNothing) {
  EXPECT_EQ(switchTo(kOff, "/"), 0);
  EXPECT_FALSE(std::filesystem::exists(statePath()));
}

TEST_F(QuotaAccountingState, UnreadableStateReturnsErrno) {
  std::filesystem::create_directory(statePath());
  std::uint32_t state = 7;
  EXPECT_EQ(control().quotactl("/", kState, 0, &state), EISDIR);
  EXPECT_EQ(state, 0U);
  EXPECT_EQ(switchTo(kOn, "/"), EISDIR);
}

TEST_F(QuotaAccountingState, UnwritableStateReturnsErrno) {
  AccountingQuotaControl lost(volumes_, folder_.path("missing/state"));
  EXPECT_EQ(lost.quotactl("/", kOn, 0, quotaFile()), ENOENT);
}

}  // namespace
}  // namespace paddock
