#include "quotascan/quota_table.h"

#include <unistd.h>

#include <algorithm>
#include <span>

#include "base/system_call.h"
#include "quotascan/failure.h"
#include "quotascan/number_set.h"

namespace paddock::quotascan {

namespace {

constexpr std::uint64_t kFullPercent = 90;
constexpr std::uint64_t kHundred = 100;
constexpr std::size_t kChunkSlots = 1024;
constexpr const char* kKept = "the file that was there stays";

// Calls `function` for each entry of a table, in the order of the slots.
class TableReader {
 public:
  TableReader(int file, std::uint32_t slots, const std::string& path)
      : file_(file),
        end_(quotaFileSize(slots)),
        path_(path),
        buffer_(kChunkSlots * kQuotaSlotSize) {}

  template <typename Function>
  void forEach(Function function) {
    std::uint64_t at = nextData(quotaSlotOffset(0));
    while (at < end_) {
      const std::size_t size = std::min<std::uint64_t>(buffer_.size(), end_ - at);
      readAll(at, std::span(buffer_).first(size));
      for (std::size_t slot = 0; slot < size; slot += kQuotaSlotSize) {
        const auto bytes =
            std::span<const std::uint8_t, kQuotaSlotSize>(&buffer_[slot], kQuotaSlotSize);
        if (quotaEntryId(bytes) != 0) function(decodeQuotaEntry(bytes));
      }
      at = nextData(at + size);
    }
  }

 private:
  // The first slot at or behind `at` that is not in a hole; where holes are not told, `at`.
  std::uint64_t nextData(std::uint64_t at) const {
    if (at >= end_) return at;
    std::uint64_t found = 0;
    const int error =
        errnoOf([&] { return ::lseek(file_, static_cast<off_t>(at), SEEK_DATA); }, &found);
    if (error == ENXIO) return end_;
    return error == 0 ? std::max(at, found - found % kQuotaSlotSize) : at;
  }
  void readAll(std::uint64_t at, std::span<std::uint8_t> bytes) const {
    while (!bytes.empty()) {
      std::size_t count = 0;
      const int error = errnoOf(
          [&] { return ::pread(file_, bytes.data(), bytes.size(), static_cast<off_t>(at)); },
          &count);
      if (error != 0) throw failureOf("read", path_, error, kKept);
      if (count == 0) throw Failure(path_ + " became shorter while it was read; " + kKept);
      at += count;
      bytes = bytes.subspan(count);
    }
  }

  int file_;
  std::uint64_t end_;
  const std::string& path_;
  std::vector<std::uint8_t> buffer_;
};

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

// How many different ids the old table and the findings have.
std::uint64_t countIds(TableReader& old, const Findings& findings) {
  NumberSet<std::uint32_t> ids;
  old.forEach([&](const QuotaEntry& entry) { ids.insert(entry.id); });
  for (const QuotaEntry& entry : findings.entries) ids.insert(entry.id);
  return ids.size();
}

}  // namespace

std::uint32_t grownTableSize(std::uint32_t slots, std::uint64_t entries) {
  std::uint64_t size = slots;
  while (entries * kHundred > size * kFullPercent) size *= 2;
  return size <= UINT32_MAX ? static_cast<std::uint32_t>(size) : 0;
}

TableSummary rewriteTable(int oldFile, const QuotaFileHeader& header, const Findings& findings,
                          int newFile, const std::string& path, const std::string& newPath) {
  TableReader old(oldFile, header.maxentries, path);
  TableSummary summary;
  summary.slots = grownTableSize(header.maxentries, countIds(old, findings));
  if (summary.slots == 0) throw Failure(path + " has more entries than a quota file can; " + kKept);
  summary.isGrown = summary.slots != header.maxentries;
  QuotaFileHeader newHeader = header;
  newHeader.maxentries = summary.slots;
  TableWriter writer(newFile, summary.slots, newPath);
  writer.writeHeader(newHeader);
  NumberSet<std::uint32_t> written;
  const auto put = [&](const QuotaEntry& entry) {
    if (!written.insert(entry.id)) return false;
    writer.put(entry);
    return true;
  };
  old.forEach([&](const QuotaEntry& entry) {
    if (!put(updated(entry, findings))) ++summary.repeated;
  });
  for (const QuotaEntry& entry : findings.entries) put(updated(entry, findings));
  summary.entries = static_cast<std::uint32_t>(written.size());
  return summary;
}

}  // namespace paddock::quotascan
