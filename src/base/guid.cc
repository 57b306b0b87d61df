#include "base/guid.h"

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

}  // namespace paddock
