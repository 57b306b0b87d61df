#include "quotascan/kernel_counts.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include "base/system_call.h"
#include "quotascan/failure.h"

namespace paddock::quotascan {

namespace {

std::uint32_t saturated(std::uint64_t number) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();
  return static_cast<std::uint32_t>(number < kMost ? number : kMost);
}

// Limits of bytes are told in blocks.
std::uint64_t bytesOf(std::uint64_t blocks) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  return blocks > kMost / QIF_DQBLKSIZE ? kMost : blocks * QIF_DQBLKSIZE;
}

bool hasAnything(const QuotaEntry& entry) {
  return entry.usedBytes != 0 || entry.usedFiles != 0 || entry.hardBytes != 0 ||
         entry.softBytes != 0 || entry.hardFiles != 0 || entry.softFiles != 0;
}

}  // namespace

NextQuota kernelQuotasOf(int folder, QuotaType type) {
  const auto command =
      static_cast<unsigned>(Q_GETNEXTQUOTA) << SUBCMDSHIFT | static_cast<unsigned>(type);
  return [folder, command](std::uint32_t from, if_nextdqblk& quota) {
    // The form that takes a descriptor needs no name of the device, which may be that of another.
    return errnoOf([&] { return ::syscall(SYS_quotactl_fd, folder, command, from, &quota); });
  };
}

QuotaEntry entryOf(const if_nextdqblk& quota) {
  QuotaEntry entry;
  entry.hardBytes = bytesOf(quota.dqb_bhardlimit);
  entry.softBytes = bytesOf(quota.dqb_bsoftlimit);
  entry.usedBytes = quota.dqb_curspace;
  entry.hardFiles = saturated(quota.dqb_ihardlimit);
  entry.softFiles = saturated(quota.dqb_isoftlimit);
  entry.usedFiles = saturated(quota.dqb_curinodes);
  entry.bytesTimeLimit = saturated(quota.dqb_btime);
  entry.filesTimeLimit = saturated(quota.dqb_itime);
  entry.id = quota.dqb_id;
  return entry;
}

std::optional<Findings> kernelFindings(const NextQuota& nextQuota, const std::string& path) {
  Findings findings;
  findings.haveLimits = true;
  for (std::uint32_t from = 0;;) {
    if_nextdqblk quota{};
    const int error = nextQuota(from, quota);
    if (error == ENOENT) return findings;
    if (error == EIO) throw failureOf("read the kernel's quotas of", path, error);
    // What else it says means that it keeps none, or that we may not ask.
    if (error != 0) return std::nullopt;
    const QuotaEntry entry = entryOf(quota);
    if (entry.id != 0 && hasAnything(entry)) findings.entries.push_back(entry);
    if (entry.id < from || entry.id == std::numeric_limits<std::uint32_t>::max()) return findings;
    from = entry.id + 1;
  }
}

}  // namespace paddock::quotascan
