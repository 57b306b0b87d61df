#include "samba/dos_attributes.h"

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <system_error>

namespace paddock::samba {

namespace {

// What stands behind the version, which is said twice.
struct Layout {
  std::size_t bytes;
  std::size_t attributes;  // at that position
  std::uint32_t version;
  bool hasFlags;  // at 0, of what is valid
};
constexpr Layout kLayouts[] = {
    {40, 0, 1, false}, {53, 4, 2, false}, {44, 4, 3, true}, {24, 4, 4, true}, {16, 4, 5, true}};
constexpr std::uint32_t kAttributesAreValid = 0x1;
constexpr std::uint32_t kReadOnly = 0x1;
constexpr std::size_t kMostDigits = 8;

std::uint32_t numberAt(std::string_view bytes, std::size_t at, std::size_t size) {
  std::uint32_t number = 0;
  for (std::size_t index = size; index-- > 0;)
    number = number << 8U | static_cast<unsigned char>(bytes[at + index]);
  return number;
}

std::size_t aligned(std::size_t at, std::size_t to) { return (at + to - 1) / to * to; }

DosReadOnly readOnlyOf(std::uint32_t attributes) {
  return (attributes & kReadOnly) != 0 ? DosReadOnly::yes : DosReadOnly::no;
}

// "0x21", the oldest form.
DosReadOnly readOnlyInText(std::string_view text) {
  if (!text.starts_with("0x") || text.size() > 2 + kMostDigits) return DosReadOnly::unknown;
  std::uint32_t number = 0;
  const char* last = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data() + 2, last, number, 16);
  return error == std::errc() && end == last ? readOnlyOf(number) : DosReadOnly::unknown;
}

}  // namespace

DosReadOnly dosReadOnlyIn(std::string_view value) {
  if (value.empty()) return DosReadOnly::no;
  const std::size_t end = value.find('\0');
  if (end == std::string_view::npos || end + 1 == value.size())
    return readOnlyInText(value.substr(0, end));
  const std::size_t start = aligned(end + 1, 2);
  if (value.size() < start + 4) return DosReadOnly::no;
  const std::uint32_t version = numberAt(value, start, 2);
  if (numberAt(value, start + 2, 2) != version) return DosReadOnly::no;
  const std::size_t at = aligned(start + 4, 4);
  for (const Layout& layout : kLayouts) {
    if (layout.version != version || value.size() < at + layout.bytes) continue;
    if (layout.hasFlags && (numberAt(value, at, 4) & kAttributesAreValid) == 0)
      return DosReadOnly::no;
    return readOnlyOf(numberAt(value, at + layout.attributes, 4));
  }
  return DosReadOnly::no;
}

}  // namespace paddock::samba
