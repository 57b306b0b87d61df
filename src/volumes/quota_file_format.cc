#include "volumes/quota_file_format.h"

#include <algorithm>
#include <bit>

namespace paddock {

namespace {

constexpr std::uint32_t kHashMultiplier = 2654435761U;
constexpr unsigned kGibibyteShift = 30;

struct TableBounds {
  std::uint64_t slotsPerGibibyte;
  std::uint64_t maximum;
};
constexpr std::uint64_t kMinimumSlots = 2048;
constexpr std::array<TableBounds, kQuotaTypes> kTableBounds = {
    TableBounds{256, 2'097'152},
    TableBounds{32, 262'144},
};

// Reads or writes the fields of a slot one after the other.
template <typename Number>
Number bigEndian(const std::uint8_t* bytes) {
  Number number = 0;
  for (std::size_t at = 0; at < sizeof(Number); ++at) {
    number = static_cast<Number>(number << 8U | bytes[at]);
  }
  return number;
}

class SlotReader {
 public:
  explicit SlotReader(std::span<const std::uint8_t, kQuotaSlotSize> slot) : next_(slot.data()) {}

  template <typename Number>
  void read(Number& number) {
    number = bigEndian<Number>(next_);
    next_ += sizeof(Number);
  }
  template <typename Byte, std::size_t size>
  void read(std::array<Byte, size>& bytes) {
    std::copy_n(next_, size, bytes.begin());
    next_ += size;
  }

 private:
  const std::uint8_t* next_;
};

class SlotWriter {
 public:
  template <typename Number>
  void write(Number number) {
    for (std::size_t at = sizeof(Number); at > 0; --at) {
      slot_[next_ + at - 1] = static_cast<std::uint8_t>(number);
      number = static_cast<Number>(number >> 8U);
    }
    next_ += sizeof(Number);
  }
  template <typename Byte, std::size_t size>
  void write(const std::array<Byte, size>& bytes) {
    std::copy_n(bytes.begin(), size, slot_.begin() + static_cast<std::ptrdiff_t>(next_));
    next_ += size;
  }
  const QuotaSlot& slot() const { return slot_; }

 private:
  QuotaSlot slot_{};
  std::size_t next_ = 0;
};

// The fields of a slot in their order; `visit` is called with each.
template <typename Header, typename Visit>
void forEachHeaderField(Header& header, Visit visit) {
  visit(header.magic);
  visit(header.version);
  visit(header.maxentries);
  visit(header.entryCount);
  visit(header.flags);
  visit(header.checkTime);
  visit(header.bytesGracePeriod);
  visit(header.filesGracePeriod);
  visit(header.tag);
  visit(header.spare);
}

template <typename Entry, typename Visit>
void forEachEntryField(Entry& entry, Visit visit) {
  visit(entry.hardBytes);
  visit(entry.softBytes);
  visit(entry.usedBytes);
  visit(entry.hardFiles);
  visit(entry.softFiles);
  visit(entry.usedFiles);
  visit(entry.bytesTimeLimit);
  visit(entry.filesTimeLimit);
  visit(entry.id);
  visit(entry.spare);
}

}  // namespace

QuotaSlot encodeQuotaHeader(const QuotaFileHeader& header) {
  SlotWriter writer;
  forEachHeaderField(header, [&writer](const auto& field) { writer.write(field); });
  return writer.slot();
}

QuotaFileHeader decodeQuotaHeader(std::span<const std::uint8_t, kQuotaSlotSize> slot) {
  SlotReader reader(slot);
  QuotaFileHeader header;
  forEachHeaderField(header, [&reader](auto& field) { reader.read(field); });
  return header;
}

QuotaSlot encodeQuotaEntry(const QuotaEntry& entry) {
  SlotWriter writer;
  forEachEntryField(entry, [&writer](const auto& field) { writer.write(field); });
  return writer.slot();
}

QuotaEntry decodeQuotaEntry(std::span<const std::uint8_t, kQuotaSlotSize> slot) {
  SlotReader reader(slot);
  QuotaEntry entry;
  forEachEntryField(entry, [&reader](auto& field) { reader.read(field); });
  return entry;
}

std::uint32_t quotaEntryId(std::span<const std::uint8_t, kQuotaSlotSize> slot) {
  return bigEndian<std::uint32_t>(slot.data() + kQuotaIdOffset);
}

bool isQuotaHeaderOf(QuotaType type, std::uint32_t magic, std::uint32_t version,
                     std::uint32_t maxentries) {
  if (type != kUserQuota && type != kGroupQuota) return false;
  return magic == quotamagic[static_cast<std::size_t>(type)] && version <= kQuotaVersion &&
         std::has_single_bit(maxentries);
}

std::uint32_t quotaTableSize(QuotaType type, std::uint64_t blockSize, std::uint64_t totalBlocks) {
  if (type != kUserQuota && type != kGroupQuota) return 0;
  const TableBounds& bounds = kTableBounds[static_cast<std::size_t>(type)];
  const std::uint64_t gibibytes = (blockSize * totalBlocks) >> kGibibyteShift;
  const std::uint64_t slots =
      std::clamp(gibibytes * bounds.slotsPerGibibyte, kMinimumSlots, bounds.maximum);
  return static_cast<std::uint32_t>(std::bit_ceil(slots));
}

QuotaProbe::QuotaProbe(std::uint32_t id, std::uint32_t maxentries) : mask_(maxentries - 1) {
  const std::uint32_t hash = id * kHashMultiplier;
  // A table of one slot shifts by 32, which takes more than 32 bits.
  const int shift = 32 - std::countr_zero(maxentries);
  slot_ = static_cast<std::uint32_t>(std::uint64_t{hash} >> shift) & mask_;
  step_ = ((hash >> 11U) & (mask_ >> 1U)) | 1U;
  stop_ = (slot_ + mask_ * step_) & mask_;
}

}  // namespace paddock
