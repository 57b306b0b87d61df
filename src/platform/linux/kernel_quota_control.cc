#include "platform/linux/kernel_quota_control.h"

#include <linux/dqblk_xfs.h>
#include <linux/quota.h>
#include <sys/quota.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <array>
#include <string>

#include "base/system_call.h"

namespace paddock {

namespace {

constexpr std::array<const char*, 2> kKernelFiles = {"aquota.user", "aquota.group"};
constexpr std::array<unsigned, 2> kEnforced = {FS_QUOTA_UDQ_ENFD, FS_QUOTA_GDQ_ENFD};

// One volume's quotas of one type, as the kernel addresses them.
struct KernelQuota {
  std::string device;
  std::string mountPoint;
  unsigned type;

  unsigned enforced() const { return kEnforced[type]; }

  int call(unsigned command, int id, void* address) const {
    const auto word = static_cast<int>(QCMD(command, type));
    return errnoOf(
        [&] { return ::quotactl(word, device.c_str(), id, static_cast<caddr_t>(address)); });
  }
};

// What the kernel says, in its many ways, of a volume without quotas.
int keepsNone(int error) {
  switch (error) {
    case EINVAL:
    case ENODEV:
    case ENOENT:
    case ENOSYS:
    case ENOTBLK:
    case ENXIO:
    case EOPNOTSUPP:
    case ESRCH:
      return ENOTSUP;
    default:
      return error;
  }
}

bool isDevice(const std::string& path, dev_t number) {
  struct stat status {};
  return errnoOf([&] { return ::stat(path.c_str(), &status); }) == 0 && S_ISBLK(status.st_mode) &&
         status.st_rdev == number;
}

// The block device of the volume. A name of the mount table counts only when it is that device.
int findDevice(const std::string& path, const MountedVolume& volume, std::string& device) {
  struct stat status {};
  const int error = errnoOf([&] { return ::stat(path.c_str(), &status); });
  if (error != 0) return error;
  const std::string byNumber = "/dev/block/" + std::to_string(major(status.st_dev)) + ":" +
                               std::to_string(minor(status.st_dev));
  for (const std::string& candidate : {volume.f_mntfromname, byNumber}) {
    if (candidate.rfind('/', 0) != 0 || !isDevice(candidate, status.st_dev)) continue;
    device = candidate;
    return 0;
  }
  return ENOTSUP;
}

// Whether limits are enforced. Volumes that count alone are off.
int query(const KernelQuota& quota, bool& on) {
  fs_quota_statv state{};
  state.qs_version = FS_QSTATV_VERSION1;
  const int error = quota.call(Q_XGETQSTATV, 0, &state);
  on = error == 0 && (state.qs_flags & quota.enforced()) != 0;
  return error;
}

// Switches quotas on that are in a file of the kernel's.
int switchFileOn(const KernelQuota& quota) {
  const std::string slash = quota.mountPoint == "/" ? "" : "/";
  std::string file = quota.mountPoint + slash + kKernelFiles[quota.type];
  struct stat status {};
  const int missing = errnoOf([&] { return ::lstat(file.c_str(), &status); });
  if (missing != 0) return missing;
  // In a folder that others may write, one of another user's could set any limit.
  if (!S_ISREG(status.st_mode) || status.st_uid != 0) return EACCES;
  const int error = quota.call(Q_QUOTAON, QFMT_VFS_V1, file.data());
  return error == EINVAL || error == ESRCH ? quota.call(Q_QUOTAON, QFMT_VFS_V0, file.data())
                                           : error;
}

int switchOn(const KernelQuota& quota) {
  unsigned flags = quota.enforced();
  const int error = quota.call(Q_XQUOTAON, 0, &flags);
  return error == ENOSYS ? switchFileOn(quota) : error;
}

int switchOff(const KernelQuota& quota) {
  unsigned flags = quota.enforced();
  const int error = quota.call(Q_XQUOTAOFF, 0, &flags);
  return error == ENOSYS ? quota.call(Q_QUOTAOFF, 0, nullptr) : error;
}

int switchTo(const KernelQuota& quota, bool wanted) {
  const int error = wanted ? switchOn(quota) : switchOff(quota);
  if (error == 0) return 0;
  // Some say EEXIST, some EBUSY, some EINVAL of a state that is already there.
  bool on = false;
  return query(quota, on) == 0 && on == wanted ? 0 : error;
}

}  // namespace

int KernelQuotaControl::quotactl(const std::string& path, std::uint32_t commandWord,
                                 std::uint32_t /*id*/, const QuotaArgument& argument) {
  const auto request = quotaRequest(commandWord, argument);
  if (!request) return EINVAL;
  MountedVolume volume;
  if (const int error = volumes_.statfs(path, volume); error != 0) return error;
  if (request->command == kQuotaOnCommand) {
    if (const int error = quotaFileError(*request->quotaFile); error != 0) return error;
  }
  KernelQuota quota{"", volume.f_mntonname, request->type};
  if (const int error = findDevice(path, volume, quota.device); error != 0) return error;
  if (request->command != kQuotaStateCommand) {
    return keepsNone(switchTo(quota, request->command == kQuotaOnCommand));
  }
  bool on = false;
  const int error = query(quota, on);
  *request->state = on ? 1 : 0;
  return keepsNone(error);
}

}  // namespace paddock
