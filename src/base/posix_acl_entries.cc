#include "base/posix_acl_entries.h"

#include <cstddef>

namespace paddock::posix_acl {

namespace {

constexpr std::uint32_t kVersion = 2;
constexpr std::size_t kHeaderSize = 4;
constexpr std::size_t kEntrySize = 8;
constexpr std::uint32_t kAllBits = 7;

// `size` bytes from `at` as a number, least significant first.
std::uint32_t numberAt(std::string_view bytes, std::size_t at, std::size_t size) {
  std::uint32_t number = 0;
  for (std::size_t index = size; index-- > 0;)
    number = number << 8U | static_cast<unsigned char>(bytes[at + index]);
  return number;
}

void append(std::string& bytes, std::uint32_t number, std::size_t size) {
  for (std::size_t index = 0; index < size; ++index)
    bytes.push_back(static_cast<char>((number >> (8 * index)) & 0xFFU));
}

bool isTag(std::uint32_t number) {
  constexpr std::uint32_t kHighest = static_cast<std::uint32_t>(Tag::others);
  return number != 0 && number <= kHighest && (number & (number - 1)) == 0;
}

}  // namespace

std::optional<std::vector<Entry>> readEntries(std::string_view value) {
  if (value.size() < kHeaderSize || (value.size() - kHeaderSize) % kEntrySize != 0 ||
      numberAt(value, 0, kHeaderSize) != kVersion)
    return std::nullopt;
  std::vector<Entry> entries;
  entries.reserve(value.size() / kEntrySize);
  for (std::size_t at = kHeaderSize; at < value.size(); at += kEntrySize) {
    const std::uint32_t tag = numberAt(value, at, 2);
    const std::uint32_t bits = numberAt(value, at + 2, 2);
    if (!isTag(tag) || bits > kAllBits) return std::nullopt;
    entries.push_back(
        {static_cast<Tag>(tag), static_cast<std::uint16_t>(bits), numberAt(value, at + 4, 4)});
  }
  return entries;
}

std::string writeEntries(const std::vector<Entry>& entries) {
  std::string value;
  value.reserve(kHeaderSize + kEntrySize * entries.size());
  append(value, kVersion, kHeaderSize);
  for (const Entry& entry : entries) {
    append(value, static_cast<std::uint32_t>(entry.tag), 2);
    append(value, entry.bits, 2);
    append(value, entry.id, 4);
  }
  return value;
}

}  // namespace paddock::posix_acl
