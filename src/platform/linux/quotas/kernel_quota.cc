#include "platform/linux/quotas/kernel_quota.h"

#include <sys/quota.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <limits>

#include "base/system_call.h"
#include "platform/quota_control.h"

namespace paddock {

namespace {

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

// Byte limits are given in blocks.
std::uint64_t bytesOf(std::uint64_t blocks) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  return blocks > kMost / kQuotaBlock ? kMost : blocks * kQuotaBlock;
}

}  // namespace

int KernelQuota::call(unsigned command, std::uint32_t id, void* address) const {
  const auto word = static_cast<int>(QCMD(command, type));
  return errnoOf([&] {
    return ::quotactl(word, device.c_str(), static_cast<int>(id), static_cast<caddr_t>(address));
  });
}

int findKernelQuota(VolumeInfo& volumes, const std::string& path, unsigned type,
                    KernelQuota& quota) {
  if (const int error = quotaPathError(path); error != 0) return error;
  MountedVolume volume;
  if (const int error = volumes.statfs(path, volume); error != 0) return error;
  quota = {"", volume.f_mntonname, type};
  return findDevice(path, volume, quota.device);
}

int errorOfNoQuotas(int error) {
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

QuotaRecord quotaRecordOf(const if_nextdqblk& quota) {
  QuotaRecord record;
  record.id = quota.dqb_id;
  record.usedBytes = quota.dqb_curspace;
  record.softBytes = bytesOf(quota.dqb_bsoftlimit);
  record.hardBytes = bytesOf(quota.dqb_bhardlimit);
  record.bytesGraceEnd = quota.dqb_btime;
  record.usedFiles = quota.dqb_curinodes;
  record.softFiles = quota.dqb_isoftlimit;
  record.hardFiles = quota.dqb_ihardlimit;
  record.filesGraceEnd = quota.dqb_itime;
  return record;
}

int listNextQuotas(const NextQuota& nextQuota, std::vector<QuotaRecord>& records) {
  records.clear();
  for (std::uint32_t from = 0;;) {
    if_nextdqblk quota{};
    const int error = nextQuota(from, quota);
    if (error == ENOENT) return 0;
    if (error != 0) {
      records.clear();
      return error;
    }
    records.push_back(quotaRecordOf(quota));
    // A kernel that answered with an id before the one that was asked for would be asked for ever.
    if (quota.dqb_id < from || quota.dqb_id == std::numeric_limits<std::uint32_t>::max()) return 0;
    from = quota.dqb_id + 1;
  }
}

}  // namespace paddock
