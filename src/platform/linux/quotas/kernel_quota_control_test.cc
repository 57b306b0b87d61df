#include "platform/linux/quotas/kernel_quota_control.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "platform/linux/files/linux_volume_info.h"
#include "platform/testing/fake_volume_info.h"
#include "support/own_mounts.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

constexpr std::uint32_t kOn = quotaCommand(kQuotaOnCommand, 0);
constexpr std::uint32_t kOff = quotaCommand(kQuotaOffCommand, 0);
constexpr std::uint32_t kState = quotaCommand(kQuotaStateCommand, 0);

// What needs a kernel with quotas is tested in a guest.
class KernelQuotaSwitch : public testing::Test {
 protected:
  static void expectNoQuotas(VolumeInfo& volumes, const std::string& path) {
    KernelQuotaControl control(volumes);
    std::uint32_t state = 7;
    EXPECT_EQ(control.quotactl(path, kState, 0, &state), ENOTSUP) << path;
    EXPECT_EQ(state, 0U);
  }

  TestFolder folder_;
  LinuxVolumeInfo volumes_;
};

TEST_F(KernelQuotaSwitch, AVolumeWithoutADeviceKeepsNone) {
  expectNoQuotas(volumes_, "/proc");
  KernelQuotaControl control(volumes_);
  writeWholeFile(folder_.path("quota"), "");
  EXPECT_EQ(control.quotactl("/proc", kOn, 0, folder_.path("quota")), ENOTSUP);
  EXPECT_EQ(control.quotactl("/proc", kOff, 0, folder_.path("quota")), ENOTSUP);
}

TEST_F(KernelQuotaSwitch, AVolumeInMemoryKeepsNone) {
  if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    mountTmpfs(folder_.path(), "64k");
    expectNoQuotas(volumes_, folder_.path());
  });
}

TEST_F(KernelQuotaSwitch, NameOtherThanVolumeDeviceIsNotQueried) {
  for (const char* device : {"/dev/null", "/dev/missing", "server:/export", "", "/"}) {
    FakeVolumeInfo volumes;
    volumes.mount({"/proc", device, "ext4"});
    expectNoQuotas(volumes, "/proc");
  }
}

}  // namespace
}  // namespace paddock
