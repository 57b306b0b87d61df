// A quota file's table with new figures in it, written to another file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/quotas/kernel_quota.h"
#include "volumes/quota_file_format.h"

namespace paddock::quotascan {

// What was found out about a volume: one entry for each id that uses something (or, where the
// kernel reported it, has a limit), in ascending order of the ids, none for id 0.
struct Findings {
  std::vector<QuotaEntry> entries;
  bool haveLimits = false;  // false: of the figures, `usedBytes` and `usedFiles` alone count
};

// What a table becomes with the findings in it.
struct TableSummary {
  std::uint32_t entries = 0;
  std::uint32_t slots = 0;
  bool isGrown = false;
  std::uint32_t repeated = 0;  // entries left out because their id stood in the table before
  bool isChanged = false;      // false: the old table holds just this
};

// How many slots a table of `slots` gets for so many entries: twice as many until at most 90 in 100
// are taken. 0 when there is no such number.
std::uint32_t grownTableSize(std::uint32_t slots, std::uint64_t entries);

// Reads the table of `file`, whose header is `header`. `path` is for messages. Throws Failure when
// it cannot be read, or has no room for the entries.
TableSummary summarizeTable(int file, const QuotaFileHeader& header, const Findings& findings,
                            const std::string& path);

// Writes to the empty file `newFile` the header of `oldFile`, its number of slots aside unchanged,
// and the entries, each where a search finds it:
//   - the old ones, with what was found of their ids; one of which nothing was found keeps its
//     limits and uses 0;
//   - those of new ids, when they use something or have a limit.
// `summary` is that of the old file, which has not changed since. A file that ends early has no
// entries behind its end. Slots without an entry take no room on disk. Throws Failure.
void rewriteTable(int oldFile, const QuotaFileHeader& header, const Findings& findings,
                  const TableSummary& summary, int newFile, const std::string& path,
                  const std::string& newPath);

// What the kernel itself counts on a volume; see quotactl(2), Q_GETNEXTQUOTA.

// The kernel's, of the volume that the folder is on.
NextQuota kernelQuotasOf(int folder, QuotaType type);

// All ids' usage and limits. Absent where the kernel does not count, or does not report it. Throws
// Failure when it cannot read what it keeps; `path` is the volume's, for the message.
std::optional<Findings> kernelFindings(const NextQuota& nextQuota, const std::string& path);

// One id's figures in the units of a quota file. What a field cannot hold is the largest it can.
QuotaEntry entryOf(const if_nextdqblk& quota);

}  // namespace paddock::quotascan
