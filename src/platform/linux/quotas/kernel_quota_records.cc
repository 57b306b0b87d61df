#include "platform/linux/quotas/kernel_quota_records.h"

#include <cerrno>

#include "platform/linux/quotas/kernel_quota.h"

namespace paddock {

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
