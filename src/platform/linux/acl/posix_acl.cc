#include "platform/linux/acl/posix_acl.h"

#include <algorithm>

namespace paddock::posix_acl {

namespace {

constexpr std::uint32_t kVersion = 2;
constexpr std::size_t kHeaderSize = 4;
constexpr std::size_t kEntrySize = 8;
constexpr std::uint32_t kUndefinedId = 0xFFFFFFFF;

enum Tag : std::uint16_t {
  kOwnerTag = 0x01,
  kUserTag = 0x02,
  kOwningGroupTag = 0x04,
  kGroupTag = 0x08,
  kMaskTag = 0x10,
  kOthersTag = 0x20,
};

struct RawEntry {
  std::uint16_t tag = 0;
  std::uint16_t bits = 0;
  std::uint32_t id = kUndefinedId;
};

std::uint32_t littleEndian(std::string_view value, std::size_t offset, std::size_t size) {
  std::uint32_t number = 0;
  for (std::size_t i = size; i > 0; --i)
    number = (number << 8U) | static_cast<unsigned char>(value[offset + i - 1]);
  return number;
}

void appendLittleEndian(std::string& value, std::uint32_t number, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i)
    value.push_back(static_cast<char>((number >> (8 * i)) & 0xFFU));
}

void append(std::string& value, const RawEntry& entry) {
  appendLittleEndian(value, entry.tag, 2);
  appendLittleEndian(value, entry.bits, 2);
  appendLittleEndian(value, entry.id, 4);
}

void append(std::string& value, Tag tag, std::vector<Named>& entries) {
  std::sort(entries.begin(), entries.end());
  for (const Named& entry : entries) append(value, {tag, entry.bits, entry.id});
}

// Reads entries one after the other, as the kernel wants them.
class Reader {
 public:
  explicit Reader(std::string_view value) : value_(value) {}

  std::optional<Acl> read() {
    Acl acl;
    const bool whole = one(kOwnerTag, acl.classes.owner) && named(kUserTag, acl.users) &&
                       one(kOwningGroupTag, acl.classes.group) && named(kGroupTag, acl.groups) &&
                       mask(acl) && one(kOthersTag, acl.classes.others) && offset_ == value_.size();
    if (!whole) return std::nullopt;
    return acl;
  }

 private:
  std::optional<RawEntry> next(Tag tag) {
    if (value_.size() - offset_ < kEntrySize) return std::nullopt;
    RawEntry entry;
    entry.tag = static_cast<std::uint16_t>(littleEndian(value_, offset_, 2));
    entry.bits = static_cast<std::uint16_t>(littleEndian(value_, offset_ + 2, 2));
    entry.id = littleEndian(value_, offset_ + 4, 4);
    if (entry.tag != tag || entry.bits > kAllBits) return std::nullopt;
    offset_ += kEntrySize;
    return entry;
  }

  bool one(Tag tag, Bits& bits) {
    const auto entry = next(tag);
    if (entry) bits = static_cast<Bits>(entry->bits);
    return entry.has_value();
  }

  bool named(Tag tag, std::vector<Named>& entries) {
    while (const auto entry = next(tag)) {
      if (entry->id == kUndefinedId) return false;
      entries.push_back({entry->id, static_cast<Bits>(entry->bits)});
    }
    return true;
  }

  bool mask(Acl& acl) {
    Bits bits = 0;
    if (one(kMaskTag, bits)) acl.mask = bits;
    return acl.mask.has_value() || !acl.namesAnybody();
  }

  std::string_view value_;
  std::size_t offset_ = kHeaderSize;
};

Bits digit(mode_t mode, unsigned shift) { return static_cast<Bits>((mode >> shift) & kAllBits); }

}  // namespace

Classes classesOf(mode_t mode) { return {digit(mode, 6), digit(mode, 3), digit(mode, 0)}; }

mode_t modeOf(const Classes& classes) {
  return static_cast<mode_t>(classes.owner) << 6U | static_cast<mode_t>(classes.group) << 3U |
         classes.others;
}

Classes Acl::effectiveClasses() const {
  return {classes.owner, static_cast<Bits>(classes.group & mask.value_or(kAllBits)),
          classes.others};
}

void Acl::computeMask() {
  mask.reset();
  if (!namesAnybody()) return;
  mask = classes.group;
  for (const auto* entries : {&users, &groups})
    for (const Named& entry : *entries) mask = static_cast<Bits>(*mask | entry.bits);
  if (mask == Bits{0}) mask = classes.others;
}

std::optional<Acl> decode(std::string_view value) {
  if (value.size() < kHeaderSize || littleEndian(value, 0, kHeaderSize) != kVersion)
    return std::nullopt;
  return Reader(value).read();
}

std::string encode(Acl acl) {
  std::string value;
  value.reserve(kHeaderSize + kEntrySize * (acl.users.size() + acl.groups.size() + 4));
  appendLittleEndian(value, kVersion, kHeaderSize);
  append(value, {kOwnerTag, acl.classes.owner});
  append(value, kUserTag, acl.users);
  append(value, {kOwningGroupTag, acl.classes.group});
  append(value, kGroupTag, acl.groups);
  if (acl.mask) append(value, {kMaskTag, *acl.mask});
  append(value, {kOthersTag, acl.classes.others});
  return value;
}

}  // namespace paddock::posix_acl
