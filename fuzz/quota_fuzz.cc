// A quota file of any bytes: what is listed is what stands in it, and what qfupdate writes is what
// qflookup finds.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <vector>

#include "base/file_access.h"
#include "volumes/quota_entries.h"
#include "volumes/quota_files.h"

namespace {

using paddock::kQuotaIdOffset;
using paddock::kQuotaSlotSize;
using paddock::kUserQuota;
using paddock::QuotaEntry;
using paddock::QuotaFileHeader;
using paddock::QuotaSlot;

using Bytes = std::span<const std::uint8_t>;

void require(bool holds) {
  if (!holds) std::abort();
}

QuotaSlot slotAt(Bytes bytes, std::size_t number) {
  QuotaSlot slot{};
  const auto part = bytes.subspan(number * kQuotaSlotSize, kQuotaSlotSize);
  std::copy(part.begin(), part.end(), slot.begin());
  return slot;
}

paddock::FileDescriptor fileOf(Bytes bytes) {
  paddock::FileDescriptor file(::memfd_create("quota", MFD_CLOEXEC));
  require(::write(file.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
  return file;
}

std::uint32_t hostWord(Bytes bytes, std::size_t offset) {
  std::uint32_t word = 0;
  std::memcpy(&word, bytes.data() + offset, sizeof word);
  return word;
}

// The entries of a table, by the plainest means.
std::vector<QuotaEntry> entriesIn(Bytes bytes, std::uint32_t maxentries) {
  std::vector<QuotaEntry> entries;
  const std::size_t slots = bytes.size() / kQuotaSlotSize;
  for (std::size_t number = 1; number < slots && number <= maxentries; ++number) {
    const QuotaSlot slot = slotAt(bytes, number);
    const QuotaEntry entry = paddock::decodeQuotaEntry(slot);
    require(paddock::encodeQuotaEntry(entry) == slot);
    if (entry.id != 0) entries.push_back(entry);
  }
  return entries;
}

void checkEntries(Bytes bytes, const paddock::FileDescriptor& file) {
  const QuotaSlot slot = slotAt(bytes, 0);
  const QuotaFileHeader header = paddock::decodeQuotaHeader(slot);
  require(paddock::encodeQuotaHeader(header) == slot);
  paddock::QuotaEntries entries(file.get(), header.maxentries);
  std::vector<QuotaEntry> read;
  while (const auto entry = entries.next()) read.push_back(*entry);
  require(entries.error() == 0);
  require(read == entriesIn(bytes, header.maxentries));
}

// Of a file in this host's order, as these two take it.
void checkSearch(Bytes bytes, const paddock::FileDescriptor& file) {
  if (!paddock::isQuotaHeaderOf(kUserQuota, hostWord(bytes, 0), hostWord(bytes, 4),
                                hostWord(bytes, 8))) {
    return;
  }
  const std::uint32_t id = hostWord(bytes, 48);
  QuotaSlot written{};
  written.fill(0xA5);
  if (paddock::qfupdate(file.get(), id, kUserQuota, written) != 0 || id == 0) return;
  QuotaSlot found{};
  require(paddock::qflookup(file.get(), id, kUserQuota, found) == 0);
  require(found == written && hostWord(found, kQuotaIdOffset) == id);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < kQuotaSlotSize) return 0;
  const Bytes bytes(data, size);
  const paddock::FileDescriptor file = fileOf(bytes);
  checkEntries(bytes, file);
  checkSearch(bytes, file);
  return 0;
}
