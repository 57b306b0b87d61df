// What the kernel itself counts on a volume; see quotactl(2), Q_GETNEXTQUOTA.
#pragma once

#include <linux/quota.h>

#include <functional>
#include <optional>
#include <string>

#include "quotascan/quota_table.h"
#include "volumes/quota_file_format.h"

namespace paddock::quotascan {

// Asks for the quota of the first id from the one given on. 0 or an errno.
using NextQuota = std::function<int(std::uint32_t from, if_nextdqblk& quota)>;

// The kernel's, of the volume that the folder is on.
NextQuota kernelQuotasOf(int folder, QuotaType type);

// All ids' usage and limits. Nothing where the kernel does not count, or does not tell. Throws
// Failure when it cannot read what it keeps; `path` is the volume's, for the message.
std::optional<Findings> kernelFindings(const NextQuota& nextQuota, const std::string& path);

// One id's figures in the units of a quota file. What a field cannot hold is the largest it can.
QuotaEntry entryOf(const if_nextdqblk& quota);

}  // namespace paddock::quotascan
