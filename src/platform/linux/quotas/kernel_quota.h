// How the kernel is asked about the quotas of one volume; see quotactl(2).
#pragma once

#include <linux/quota.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/quota_records.h"
#include "platform/volume_info.h"

namespace paddock {

// One volume's quotas of one type, as the kernel addresses them.
struct KernelQuota {
  std::string device;
  std::string mountPoint;
  unsigned type = 0;

  // 0 or the kernel's errno.
  int call(unsigned command, std::uint32_t id, void* address) const;
};

// The quotas of the volume that `path` is on. 0 or an errno; ENOTSUP for one without a device.
int findKernelQuota(VolumeInfo& volumes, const std::string& path, unsigned type,
                    KernelQuota& quota);

// ENOTSUP for everything that the kernel says of a volume without quotas, else `error`.
int errorOfNoQuotas(int error);

// Asks for the quota of the first id from the one given on. 0 or an errno, ENOENT when there is
// none.
using NextQuota = std::function<int(std::uint32_t from, if_nextdqblk& quota)>;

QuotaRecord quotaRecordOf(const if_nextdqblk& quota);

// Every quota that there is, in ascending order of the ids. 0, or the errno of a question other
// than the last, with no records.
int listNextQuotas(const NextQuota& nextQuota, std::vector<QuotaRecord>& records);

}  // namespace paddock
