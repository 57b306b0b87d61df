#include "quotascan/quota_table.h"

#include <unistd.h>

#include <algorithm>
#include <span>

#include "base/system_call.h"
#include "quotascan/failure.h"
#include "quotascan/number_set.h"
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

}  // namespace paddock::quotascan
