#include "base/guid.h"

#include <algorithm>
#include <array>

namespace paddock {

namespace {

constexpr std::string_view kHexDigits = "0123456789ABCDEF";
constexpr std::size_t kTextLength = 36;

bool hyphenAt(std::size_t position) {
  return position == 8 || position == 13 || position == 18 || position == 23;
}

std::optional<std::uint8_t> hexDigit(char character) {
  if (character >= '0' && character <= '9') return static_cast<std::uint8_t>(character - '0');
  if (character >= 'A' && character <= 'F') return static_cast<std::uint8_t>(character - 'A' + 10);
  if (character >= 'a' && character <= 'f') return static_cast<std::uint8_t>(character - 'a' + 10);
  return std::nullopt;
}

}  // namespace

std::string guidText(const Guid& guid) {
  std::string text;
  text.reserve(kTextLength);
  for (const std::uint8_t byte : guid.bytes) {
    if (hyphenAt(text.size())) text += '-';
    text += kHexDigits[byte >> 4U];
    text += kHexDigits[byte & 0x0FU];
  }
  return text;
}

std::optional<Guid> parseGuid(std::string_view text) {
  if (text.size() != kTextLength) return std::nullopt;
  Guid guid;
  std::size_t digits = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (hyphenAt(at)) {
      if (text[at] != '-') return std::nullopt;
      continue;
    }
    const auto digit = hexDigit(text[at]);
    if (!digit) return std::nullopt;
    std::uint8_t& byte = guid.bytes.at(digits / 2);
    byte = static_cast<std::uint8_t>((byte << 4U) | *digit);
    ++digits;
  }
  return guid;
}

namespace {

using Prefix = std::array<std::uint8_t, 12>;
constexpr Prefix kUserPrefix = {0x29, 0x18, 0x73, 0x3C, 0xAC, 0xBF,
                                0x4C, 0x23, 0xAD, 0x09, 0xB8, 0xFC};
constexpr Prefix kGroupPrefix = {0x88, 0x72, 0x13, 0x4E, 0xC1, 0xBC,
                                 0x44, 0xB8, 0x8D, 0xF6, 0xB2, 0x92};

bool startsWith(const Guid& guid, const Prefix& prefix) {
  return std::equal(prefix.begin(), prefix.end(), guid.bytes.begin());
}

}  // namespace

Guid computedGuid(const Principal& principal) {
  Guid guid;
  const Prefix& prefix = principal.type == PrincipalType::user ? kUserPrefix : kGroupPrefix;
  std::copy(prefix.begin(), prefix.end(), guid.bytes.begin());
  for (unsigned i = 0; i < 4; ++i)
    guid.bytes[prefix.size() + i] = static_cast<std::uint8_t>(principal.id >> (24 - 8 * i));
  return guid;
}

std::optional<Principal> computedPrincipal(const Guid& guid) {
  const bool user = startsWith(guid, kUserPrefix);
  if (!user && !startsWith(guid, kGroupPrefix)) return std::nullopt;
  Principal principal{user ? PrincipalType::user : PrincipalType::group, 0};
  for (std::size_t i = kUserPrefix.size(); i < guid.bytes.size(); ++i)
    principal.id = principal.id << 8U | guid.bytes[i];
  return principal;
}

}  // namespace paddock
