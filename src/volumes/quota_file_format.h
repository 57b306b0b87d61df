// The 64-bit hashed quota file: tables, header, entry, hashing. docs/formats/quota.md describes it.
//
// The file is a row of 64-byte slots: the header, then `maxentries` hash-table entries. Every
// number in it is big-endian.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace paddock {

using QuotaType = int;
inline constexpr QuotaType kUserQuota = 0;
inline constexpr QuotaType kGroupQuota = 1;
inline constexpr std::size_t kQuotaTypes = 2;

// Indexed by type; the last one stands for any other type.
inline constexpr std::array<const char*, kQuotaTypes + 1> qfextension = {"user", "group",
                                                                         "undefined"};
inline constexpr const auto& gQuotaFileExtension = qfextension;
inline constexpr std::array<std::uint32_t, kQuotaTypes> quotamagic = {0xFF31FF35, 0xFF31FF27};
inline constexpr const auto& gQuotamagic = quotamagic;
inline constexpr const char* qfname = ".quota";
inline constexpr const char* kQuotaOperationsName = ".quota.ops";
inline constexpr const char* quotagroup = "operator";

inline constexpr std::size_t kQuotaSlotSize = 64;
inline constexpr std::size_t kQuotaIdOffset = 44;  // in an entry
inline constexpr std::uint32_t kQuotaVersion = 1;
inline constexpr std::uint32_t kQuotaGracePeriod = 7 * 24 * 60 * 60;  // seconds
inline constexpr std::array<char, 16> kQuotaTag = {'Q', 'U', 'O', 'T', 'A', ' ', 'H', 'A',
                                                   'S', 'H', ' ', 'F', 'I', 'L', 'E', '\0'};

// One slot as it stands in the file.
using QuotaSlot = std::array<std::uint8_t, kQuotaSlotSize>;

// The header, numbers in host order.
struct QuotaFileHeader {
  std::uint32_t magic = 0;
  std::uint32_t version = kQuotaVersion;
  std::uint32_t maxentries = 0;
  std::uint32_t entryCount = 0;
  std::uint32_t flags = 0;
  std::uint32_t checkTime = 0;
  std::uint32_t bytesGracePeriod = kQuotaGracePeriod;  // seconds
  std::uint32_t filesGracePeriod = kQuotaGracePeriod;  // seconds
  std::array<char, 16> tag = kQuotaTag;
  std::array<std::uint8_t, 16> spare{};
  friend bool operator==(const QuotaFileHeader&, const QuotaFileHeader&) = default;
};

// An entry, numbers in host order. Id 0 marks an empty slot; a limit of 0 is none.
struct QuotaEntry {
  std::uint64_t hardBytes = 0;
  std::uint64_t softBytes = 0;
  std::uint64_t usedBytes = 0;
  std::uint32_t hardFiles = 0;
  std::uint32_t softFiles = 0;
  std::uint32_t usedFiles = 0;
  std::uint32_t bytesTimeLimit = 0;
  std::uint32_t filesTimeLimit = 0;
  std::uint32_t id = 0;
  std::array<std::uint8_t, 16> spare{};
  friend bool operator==(const QuotaEntry&, const QuotaEntry&) = default;
};

// To and from the bytes in the file. Every 64 bytes decode.
QuotaSlot encodeQuotaHeader(const QuotaFileHeader& header);
QuotaFileHeader decodeQuotaHeader(std::span<const std::uint8_t, kQuotaSlotSize> slot);
QuotaSlot encodeQuotaEntry(const QuotaEntry& entry);
QuotaEntry decodeQuotaEntry(std::span<const std::uint8_t, kQuotaSlotSize> slot);

// The id of an entry as it stands in the file, without decoding the rest.
std::uint32_t quotaEntryId(std::span<const std::uint8_t, kQuotaSlotSize> slot);

// Whether a file whose header begins with these words can be used as one of `type`: the type's
// magic, a version that is known, and a power of two (not 0) of slots.
bool isQuotaHeaderOf(QuotaType type, std::uint32_t magic, std::uint32_t version,
                     std::uint32_t maxentries);

// How many slots the table of a volume of this size gets: a power of two, 0 for any type but user
// and group. `blockSize` is in bytes.
std::uint32_t quotaTableSize(QuotaType type, std::uint64_t blockSize, std::uint64_t totalBlocks);

// The bytes of a file with so many slots behind its header.
constexpr std::uint64_t quotaFileSize(std::uint32_t maxentries) {
  return (std::uint64_t{maxentries} + 1) * kQuotaSlotSize;
}
// Where a slot of the table begins in the file.
constexpr std::uint64_t quotaSlotOffset(std::uint32_t slot) {
  return (std::uint64_t{slot} + 1) * kQuotaSlotSize;
}

// The slots that may hold an id, in the order in which they are tried:
//
//   for (QuotaProbe probe(id, maxentries); !probe.atEnd(); probe.next()) ... probe.slot() ...
//
// The slot at which the row would end is never tried, deliberately: of n slots n - 1 are, each
// once. `maxentries` is a power of two.
class QuotaProbe {
 public:
  QuotaProbe(std::uint32_t id, std::uint32_t maxentries);
  bool atEnd() const { return slot_ == stop_; }
  std::uint32_t slot() const { return slot_; }
  void next() { slot_ = (slot_ + step_) & mask_; }

 private:
  std::uint32_t mask_;
  std::uint32_t step_;
  std::uint32_t slot_;
  std::uint32_t stop_;
};

}  // namespace paddock
