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

QuotaEntry entryOf(const QuotaRecord& record) {
  QuotaEntry entry;
  entry.hardBytes = record.hardBytes;
  entry.softBytes = record.softBytes;
  entry.usedBytes = record.usedBytes;
  entry.hardFiles = saturated(record.hardFiles);
  entry.softFiles = saturated(record.softFiles);
  entry.usedFiles = saturated(record.usedFiles);
  entry.bytesTimeLimit = saturated(record.bytesGraceEnd);
  entry.filesTimeLimit = saturated(record.filesGraceEnd);
  entry.id = record.id;
  return entry;
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

QuotaEntry entryOf(const if_nextdqblk& quota) { return entryOf(quotaRecordOf(quota)); }

std::optional<Findings> kernelFindings(const NextQuota& nextQuota, const std::string& path) {
  std::vector<QuotaRecord> records;
  const int error = listNextQuotas(nextQuota, records);
  if (error == EIO) throw failureOf("read the kernel's quotas of", path, error);
  // What else it says means that it keeps none, or that we may not ask.
  if (error != 0) return std::nullopt;
  Findings findings;
  findings.haveLimits = true;
  for (const QuotaRecord& record : records) {
    const QuotaEntry entry = entryOf(record);
    if (entry.id != 0 && hasAnything(entry)) findings.entries.push_back(entry);
  }
  return findings;
}

}  // namespace paddock::quotascan
