// What the kernel itself counts on a volume; see quotactl(2), Q_GETNEXTQUOTA.
#pragma once

#include <optional>
#include <string>

#include "platform/linux/quotas/kernel_quota.h"
#include "quotascan/quota_table.h"
#include "volumes/quota_file_format.h"

namespace paddock::quotascan {

// The kernel's, of the volume that the folder is on.
NextQuota kernelQuotasOf(int folder, QuotaType type);

// All ids' usage and limits. Nothing where the kernel does not count, or does not tell. Throws
// Failure when it cannot read what it keeps; `path` is the volume's, for the message.
std::optional<Findings> kernelFindings(const NextQuota& nextQuota, const std::string& path);

// One id's figures in the units of a quota file. What a field cannot hold is the largest it can.
QuotaEntry entryOf(const if_nextdqblk& quota);

}  // namespace paddock::quotascan
