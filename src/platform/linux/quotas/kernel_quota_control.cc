#include "platform/linux/quotas/kernel_quota_control.h"

#include <linux/dqblk_xfs.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <string>

#include "base/system_call.h"
#include "platform/linux/quotas/kernel_quota.h"

namespace paddock {

namespace {

constexpr std::array<const char*, 2> kKernelFiles = {"aquota.user", "aquota.group"};
constexpr std::array<unsigned, 2> kEnforced = {FS_QUOTA_UDQ_ENFD, FS_QUOTA_GDQ_ENFD};

// Whether limits are enforced. Volumes that count alone are off.
int query(const KernelQuota& quota, bool& on) {
  fs_quota_statv state{};
  state.qs_version = FS_QSTATV_VERSION1;
  const int error = quota.call(Q_XGETQSTATV, 0, &state);
  on = error == 0 && (state.qs_flags & kEnforced[quota.type]) != 0;
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
  unsigned flags = kEnforced[quota.type];
  const int error = quota.call(Q_XQUOTAON, 0, &flags);
  return error == ENOSYS ? switchFileOn(quota) : error;
}

int switchOff(const KernelQuota& quota) {
  unsigned flags = kEnforced[quota.type];
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
  KernelQuota quota;
  const int unknown = findKernelQuota(volumes_, path, request->type, quota);
  if (unknown != 0 && unknown != ENOTSUP) return unknown;
  if (request->command == kQuotaOnCommand) {
    if (const int error = quotaFileError(*request->quotaFile); error != 0) return error;
  }
  if (unknown != 0) return unknown;
  if (request->command != kQuotaStateCommand) {
    return errorOfNoQuotas(switchTo(quota, request->command == kQuotaOnCommand));
  }
  bool on = false;
  const int error = query(quota, on);
  *request->state = on ? 1 : 0;
  return errorOfNoQuotas(error);
}

namespace {

constexpr std::uint32_t kLastType = 1;

std::uint64_t blocksOf(std::uint64_t bytes) {
  return bytes / kQuotaBlock + (bytes % kQuotaBlock != 0 ? 1 : 0);
}

NextQuota nextOf(const KernelQuota& quota) {
  return [&quota](std::uint32_t from, if_nextdqblk& next) {
    return quota.call(static_cast<unsigned>(Q_GETNEXTQUOTA), from, &next);
  };
}

}  // namespace

int KernelQuotaRecords::list(const std::string& path, std::uint32_t type,
                             std::vector<QuotaRecord>& records) {
  records.clear();
  if (type > kLastType) return EINVAL;
  KernelQuota quota;
  if (const int error = findKernelQuota(volumes_, path, type, quota); error != 0) return error;
  return errorOfNoQuotas(listNextQuotas(nextOf(quota), records));
}

int KernelQuotaRecords::find(const std::string& path, std::uint32_t type, std::uint32_t id,
                             QuotaRecord& record) {
  record = {};
  if (type > kLastType) return EINVAL;
  KernelQuota quota;
  if (const int error = findKernelQuota(volumes_, path, type, quota); error != 0) return error;
  if_nextdqblk found{};
  int error = quota.call(static_cast<unsigned>(Q_GETNEXTQUOTA), id, &found);
  // The id that is asked for, or the next one, or none: of one that was never counted.
  if (error == 0 && found.dqb_id == id) record = quotaRecordOf(found);
  if (error == ENOENT) error = 0;
  record.id = error == 0 ? id : 0;
  return errorOfNoQuotas(error);
}

int KernelQuotaRecords::setLimits(const std::string& path, std::uint32_t type, std::uint32_t id,
                                  const QuotaLimits& limits) {
  if (type > kLastType || !areLimits(limits)) return EINVAL;
  KernelQuota quota;
  if (const int error = findKernelQuota(volumes_, path, type, quota); error != 0) return error;
  if_dqblk wanted{};
  if (limits.bytes) {
    wanted.dqb_bsoftlimit = blocksOf(limits.bytes->soft);
    wanted.dqb_bhardlimit = blocksOf(limits.bytes->hard);
    wanted.dqb_valid |= QIF_BLIMITS;
  }
  if (limits.files) {
    wanted.dqb_isoftlimit = limits.files->soft;
    wanted.dqb_ihardlimit = limits.files->hard;
    wanted.dqb_valid |= QIF_ILIMITS;
  }
  return errorOfNoQuotas(quota.call(static_cast<unsigned>(Q_SETQUOTA), id, &wanted));
}

}  // namespace paddock
