// What quota_control.h promises.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <memory>

#include "platform/linux/files/linux_volume_info.h"
#include "platform/linux/quotas/accounting_quota_control.h"
#include "platform/linux/quotas/kernel_quota_control.h"
#include "platform/testing/fake_quotas.h"
#include "platform/testing/fake_volume_info.h"
#include "support/temporary_folder.h"

namespace paddock::contract {
namespace {

constexpr std::uint32_t kOn = quotaCommand(kQuotaOnCommand, 0);
constexpr std::uint32_t kOff = quotaCommand(kQuotaOffCommand, 0);
constexpr std::uint32_t kState = quotaCommand(kQuotaStateCommand, 0);
constexpr std::uint32_t kGroupOn = quotaCommand(kQuotaOnCommand, 1);
constexpr std::uint32_t kGroupState = quotaCommand(kQuotaStateCommand, 1);

TEST(QuotaCommand, IsTheCommandAndTheType) {
  EXPECT_EQ(kState, 0x70000U);
  EXPECT_EQ(kOn, 0x10000U);
  EXPECT_EQ(kOff, 0x20000U);
  EXPECT_EQ(kGroupOn, 0x10001U);
}

using Make = std::function<std::unique_ptr<QuotaControl>(VolumeInfo&, const TestFolder&)>;
struct Subject {
  const char* name;
  bool isReal;  // asks the system for the volumes
  Make make;
  friend void PrintTo(const Subject& subject, std::ostream* out) { *out << subject.name; }
};

// A folder with a quota file; which volume it is on is the system's affair.
class QuotaControlContract : public ::testing::TestWithParam<Subject> {
 protected:
  QuotaControlContract() {
    if (GetParam().isReal) {
      volumes_ = std::make_unique<LinuxVolumeInfo>();
    } else {
      auto fake = std::make_unique<FakeVolumeInfo>();
      fake->setError(missing(), ENOENT);
      volumes_ = std::move(fake);
    }
    writeWholeFile(quotaFile(), "a quota file");
    control_ = GetParam().make(*volumes_, folder_);
  }

  std::string quotaFile() const { return folder_.path(".quota.user"); }
  std::string missing() const { return folder_.path("missing"); }
  int call(std::uint32_t word, const QuotaArgument& argument) {
    return control_->quotactl(folder_.path(), word, 0, argument);
  }
  std::uint32_t state(std::uint32_t word = kState) {
    std::uint32_t on = 7;
    EXPECT_EQ(call(word, &on), 0);
    return on;
  }

  TestFolder folder_;
  std::unique_ptr<VolumeInfo> volumes_;
  std::unique_ptr<QuotaControl> control_;
};

// Those that keep quotas on any volume.
class QuotaSwitchContract : public QuotaControlContract {};

const Subject kFake{"Fake", false, [](VolumeInfo& volumes, const TestFolder&) {
                      return std::make_unique<FakeQuotaControl>(volumes);
                    }};
const Subject kAccounting{"Accounting", true, [](VolumeInfo& volumes, const TestFolder& folder) {
                            return std::make_unique<AccountingQuotaControl>(volumes,
                                                                            folder.path("state"));
                          }};
const Subject kKernel{"Kernel", true, [](VolumeInfo& volumes, const TestFolder&) {
                        return std::make_unique<KernelQuotaControl>(volumes);
                      }};
constexpr auto kName = [](const auto& tested) { return tested.param.name; };

INSTANTIATE_TEST_SUITE_P(QuotaControl, QuotaControlContract,
                         ::testing::Values(kFake, kAccounting, kKernel), kName);
INSTANTIATE_TEST_SUITE_P(QuotaControl, QuotaSwitchContract, ::testing::Values(kFake, kAccounting),
                         kName);

TEST_P(QuotaSwitchContract, QuotasAreOffUntilTheyAreSwitchedOn) {
  EXPECT_EQ(state(), 0U);
  EXPECT_EQ(call(kOn, quotaFile()), 0);
  EXPECT_EQ(state(), 1U);
  EXPECT_EQ(call(kOff, quotaFile()), 0);
  EXPECT_EQ(state(), 0U);
}

TEST_P(QuotaSwitchContract, SwitchingToCurrentStateSucceeds) {
  EXPECT_EQ(call(kOff, quotaFile()), 0);
  EXPECT_EQ(call(kOn, quotaFile()), 0);
  EXPECT_EQ(call(kOn, quotaFile()), 0);
  EXPECT_EQ(state(), 1U);
}

TEST_P(QuotaSwitchContract, AnyPathOnTheVolumeNamesIt) {
  EXPECT_EQ(call(kOn, quotaFile()), 0);
  std::uint32_t on = 0;
  EXPECT_EQ(control_->quotactl(quotaFile(), kState, 0, &on), 0);
  EXPECT_EQ(on, 1U);
}

TEST_P(QuotaSwitchContract, UsersAndGroupsAreSwitchedApart) {
  EXPECT_EQ(call(kGroupOn, quotaFile()), 0);
  EXPECT_EQ(state(), 0U);
  EXPECT_EQ(state(kGroupState), 1U);
}

TEST_P(QuotaSwitchContract, SwitchingOffNeedsNoQuotaFile) {
  EXPECT_EQ(call(kOn, quotaFile()), 0);
  std::filesystem::remove(quotaFile());
  EXPECT_EQ(call(kOff, quotaFile()), 0);
  EXPECT_EQ(state(), 0U);
}

TEST_P(QuotaControlContract, MissingQuotaFileCannotBeSwitchedOn) {
  EXPECT_EQ(call(kOn, missing()), ENOENT);
}

TEST_P(QuotaControlContract, OnlyARegularFileCanBeSwitchedOn) {
  std::filesystem::create_directory(folder_.path("folder"));
  std::filesystem::create_symlink(quotaFile(), folder_.path("link"));
  std::filesystem::create_symlink(missing(), folder_.path("dangling"));
  ASSERT_EQ(::mkfifo(folder_.path("fifo").c_str(), 0600), 0);
  for (const char* name : {"folder", "link", "dangling", "fifo"}) {
    EXPECT_EQ(call(kOn, folder_.path(name)), EACCES) << name;
  }
}

TEST_P(QuotaControlContract, AMissingPathHasNoQuotas) {
  std::uint32_t on = 7;
  EXPECT_EQ(control_->quotactl(missing(), kState, 0, &on), ENOENT);
  EXPECT_EQ(on, 0U);
  EXPECT_EQ(control_->quotactl(missing(), kOff, 0, quotaFile()), ENOENT);
}

TEST_P(QuotaControlContract, PathsThatNameNoVolumeAreInvalid) {
  for (const std::string& path :
       {std::string(), std::string("relative"), std::string("/a\0b", 4), std::string("/a/../b")}) {
    std::uint32_t on = 7;
    EXPECT_EQ(control_->quotactl(path, kState, 0, &on), EINVAL) << path;
    EXPECT_EQ(on, 0U);
  }
}

TEST_P(QuotaControlContract, AQuotaFileWithANulIsInvalid) {
  EXPECT_EQ(call(kOn, quotaFile() + std::string("\0x", 2)), EINVAL);
}

TEST_P(QuotaControlContract, WordsOfOtherCommandsAndTypesAreInvalid) {
  std::uint32_t on = 7;
  for (const std::uint32_t word :
       {0U, 0x700U, quotaCommand(0x0300, 0), quotaCommand(0x0700, 2), quotaCommand(0x1700, 0)}) {
    EXPECT_EQ(call(word, &on), EINVAL) << word;
    EXPECT_EQ(call(word, quotaFile()), EINVAL) << word;
  }
}

TEST_P(QuotaControlContract, AnArgumentOfTheWrongKindIsInvalid) {
  std::uint32_t on = 7;
  EXPECT_EQ(call(kState, quotaFile()), EINVAL);
  EXPECT_EQ(call(kOn, &on), EINVAL);
  EXPECT_EQ(call(kOff, &on), EINVAL);
  EXPECT_EQ(call(kState, static_cast<std::uint32_t*>(nullptr)), EINVAL);
}

}  // namespace
}  // namespace paddock::contract
