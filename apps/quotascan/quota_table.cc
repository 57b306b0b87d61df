#include "quotascan/quota_table.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <span>

#include "base/system_call.h"
#include "quotascan/quotascan_failure.h"
#include "quotascan/usage.h"
#include "volumes/quota_entries.h"

namespace paddock::quotascan {

namespace {

constexpr std::uint64_t kFullPercent = 90;
constexpr std::uint64_t kHundred = 100;
constexpr const char* kKept = "the file that was there stays";

// Calls `function` for each entry of the table, in the order of the slots.
template <typename Function>
void forEachEntry(int file, const QuotaFileHeader& header, const std::string& path,
                  Function function) {
  QuotaEntries entries(file, header.maxentries);
  while (const auto entry = entries.next()) function(*entry);
  if (entries.error() != 0) throw failureOf("read", path, entries.error(), kKept);
}

class TableWriter {
 public:
  TableWriter(int file, std::uint32_t slots, const std::string& path)
      : file_(file), slots_(slots), path_(path) {
    const int error =
        errnoOf([&] { return ::ftruncate(file_, static_cast<off_t>(quotaFileSize(slots_))); });
    if (error != 0) throw failureOf("write", path_, error, kKept);
  }

  void writeHeader(const QuotaFileHeader& header) const { write(encodeQuotaHeader(header), 0); }
  // Puts an entry into the first free slot of its id's row, of which a table that is not full has
  // one.
  void put(const QuotaEntry& entry) {
    QuotaProbe probe(entry.id, slots_);
    while (!probe.atEnd() && !taken_.insert(probe.slot())) probe.next();
    if (probe.atEnd()) throw Failure(path_ + " has no slot left for an entry; " + kKept);
    write(encodeQuotaEntry(entry), quotaSlotOffset(probe.slot()));
  }

 private:
  void write(const QuotaSlot& slot, std::uint64_t at) const {
    std::span<const std::uint8_t> bytes(slot);
    while (!bytes.empty()) {
      std::size_t count = 0;
      const int error = errnoOf(
          [&] { return ::pwrite(file_, bytes.data(), bytes.size(), static_cast<off_t>(at)); },
          &count);
      if (error != 0) throw failureOf("write", path_, error, kKept);
      at += count;
      bytes = bytes.subspan(count);
    }
  }

  int file_;
  std::uint32_t slots_;
  const std::string& path_;
  NumberSet<std::uint32_t> taken_;
};

const QuotaEntry* findingOf(std::uint32_t id, const Findings& findings) {
  const auto found = std::lower_bound(
      findings.entries.begin(), findings.entries.end(), id,
      [](const QuotaEntry& entry, std::uint32_t wanted) { return entry.id < wanted; });
  return found != findings.entries.end() && found->id == id ? &*found : nullptr;
}

void takeLimits(QuotaEntry& entry, const QuotaEntry& found) {
  entry.hardBytes = found.hardBytes;
  entry.softBytes = found.softBytes;
  entry.hardFiles = found.hardFiles;
  entry.softFiles = found.softFiles;
  entry.bytesTimeLimit = found.bytesTimeLimit;
  entry.filesTimeLimit = found.filesTimeLimit;
}

QuotaEntry updated(QuotaEntry entry, const Findings& findings) {
  const QuotaEntry* found = findingOf(entry.id, findings);
  entry.usedBytes = found != nullptr ? found->usedBytes : 0;
  entry.usedFiles = found != nullptr ? found->usedFiles : 0;
  if (found != nullptr && findings.haveLimits) takeLimits(entry, *found);
  return entry;
}

}  // namespace

std::uint32_t grownTableSize(std::uint32_t slots, std::uint64_t entries) {
  std::uint64_t size = slots;
  while (entries * kHundred > size * kFullPercent) size *= 2;
  return size <= UINT32_MAX ? static_cast<std::uint32_t>(size) : 0;
}

TableSummary summarizeTable(int file, const QuotaFileHeader& header, const Findings& findings,
                            const std::string& path) {
  TableSummary summary;
  NumberSet<std::uint32_t> ids;
  forEachEntry(file, header, path, [&](const QuotaEntry& entry) {
    if (!ids.insert(entry.id)) ++summary.repeated;
    if (updated(entry, findings) != entry) summary.isChanged = true;
  });
  for (const QuotaEntry& entry : findings.entries) {
    if (ids.insert(entry.id)) summary.isChanged = true;
  }
  summary.entries = static_cast<std::uint32_t>(ids.size());
  summary.slots = grownTableSize(header.maxentries, ids.size());
  if (summary.slots == 0) throw Failure(path + " has more entries than a quota file can; " + kKept);
  summary.isGrown = summary.slots != header.maxentries;
  if (summary.isGrown || summary.repeated > 0) summary.isChanged = true;
  return summary;
}

void rewriteTable(int oldFile, const QuotaFileHeader& header, const Findings& findings,
                  const TableSummary& summary, int newFile, const std::string& path,
                  const std::string& newPath) {
  QuotaFileHeader newHeader = header;
  newHeader.maxentries = summary.slots;
  TableWriter writer(newFile, summary.slots, newPath);
  writer.writeHeader(newHeader);
  NumberSet<std::uint32_t> written;
  const auto put = [&](const QuotaEntry& entry) {
    if (written.insert(entry.id)) writer.put(updated(entry, findings));
  };
  forEachEntry(oldFile, header, path, put);
  for (const QuotaEntry& entry : findings.entries) put(entry);
}

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
  // Other errors mean that it keeps none, or that access is denied.
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
