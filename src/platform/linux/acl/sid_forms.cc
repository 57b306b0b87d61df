#include "platform/linux/acl/sid_forms.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <limits>

#include "platform/linux/acl/nt_acl_packet.h"
#include "platform/linux/process/sha256.h"

namespace paddock::nt_acl {

namespace {

constexpr std::uint64_t kUnixAuthority = 22;
constexpr std::uint32_t kUnixUser = 1;
constexpr std::uint32_t kUnixGroup = 2;
constexpr std::size_t kGuidWords = 4;

constexpr std::array<std::uint8_t, 4> kForeignPrefix = {'S', 'I', 'D', ':'};
// The bytes of a GUID that hold its version and variant.
constexpr std::size_t kVersionAt = 6;
constexpr std::size_t kVariantAt = 8;
constexpr std::uint8_t kVersion = 0x80;
constexpr std::uint8_t kVersionMask = 0xF0;
constexpr std::uint8_t kVariant = 0x80;
constexpr std::uint8_t kVariantMask = 0xC0;

std::uint8_t replaced(std::uint8_t byte, std::uint8_t mask, std::uint8_t bits) {
  return static_cast<std::uint8_t>((byte & ~mask) | bits);
}

}  // namespace

Sid unixSid(const Principal& principal) {
  const bool user = principal.type == PrincipalType::user;
  return {kUnixAuthority, {user ? kUnixUser : kUnixGroup, principal.id}};
}

std::optional<Principal> unixPrincipal(const Sid& sid) {
  if (sid.authority != kUnixAuthority || sid.subAuthorities.size() != 2) return std::nullopt;
  const std::uint32_t kind = sid.subAuthorities[0];
  if (kind != kUnixUser && kind != kUnixGroup) return std::nullopt;
  return Principal{kind == kUnixUser ? PrincipalType::user : PrincipalType::group,
                   sid.subAuthorities[1]};
}

Sid guidSid(const Guid& guid) {
  Sid sid{kOwnAuthority, std::vector<std::uint32_t>(kGuidWords)};
  for (std::size_t at = 0; at < guid.bytes.size(); ++at)
    sid.subAuthorities[at / 4] = sid.subAuthorities[at / 4] << 8U | guid.bytes[at];
  return sid;
}

std::optional<Guid> sidGuid(const Sid& sid) {
  if (sid.authority != kOwnAuthority || sid.subAuthorities.size() != kGuidWords)
    return std::nullopt;
  Guid guid;
  for (std::size_t at = 0; at < guid.bytes.size(); ++at)
    guid.bytes[at] = static_cast<std::uint8_t>(sid.subAuthorities[at / 4] >> (24 - 8 * (at % 4)));
  return guid;
}

Sid markerSid() { return {kOwnAuthority, {0}}; }

Guid foreignGuid(const Sid& sid) {
  Writer packet;
  writeSid(packet, sid);
  const auto digest = sha256(std::move(packet).finish());
  Guid guid;
  std::copy(kForeignPrefix.begin(), kForeignPrefix.end(), guid.bytes.begin());
  std::copy_n(digest.begin(), guid.bytes.size() - kForeignPrefix.size(),
              guid.bytes.begin() + kForeignPrefix.size());
  guid.bytes[kVersionAt] = replaced(guid.bytes[kVersionAt], kVersionMask, kVersion);
  guid.bytes[kVariantAt] = replaced(guid.bytes[kVariantAt], kVariantMask, kVariant);
  return guid;
}

bool isForeignGuid(const Guid& guid) {
  return std::equal(kForeignPrefix.begin(), kForeignPrefix.end(), guid.bytes.begin()) &&
         (guid.bytes[kVersionAt] & kVersionMask) == kVersion &&
         (guid.bytes[kVariantAt] & kVariantMask) == kVariant;
}

namespace {

constexpr std::string_view kStart = "S-1-";
constexpr std::string_view kHexadecimal = "0x";
constexpr std::size_t kHexadecimalDigits = 12;

template <typename Number>
std::optional<Number> parseNumber(std::string_view text, int base) {
  Number number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

std::optional<std::uint64_t> parseAuthority(std::string_view text) {
  if (text.substr(0, kHexadecimal.size()) != kHexadecimal)
    return parseNumber<std::uint32_t>(text, 10);
  text.remove_prefix(kHexadecimal.size());
  if (text.size() > kHexadecimalDigits) return std::nullopt;
  return parseNumber<std::uint64_t>(text, 16);
}

// The text up to the next hyphen, which is taken off with it. `text` is null behind the last one.
std::string_view takeField(std::optional<std::string_view>& text) {
  const auto hyphen = text->find('-');
  const std::string_view field = text->substr(0, hyphen);
  if (hyphen == std::string_view::npos)
    text.reset();
  else
    text->remove_prefix(hyphen + 1);
  return field;
}

std::string authorityText(std::uint64_t authority) {
  if (authority <= std::numeric_limits<std::uint32_t>::max()) return std::to_string(authority);
  std::array<char, 24> text{};
  std::snprintf(text.data(), text.size(), "0x%012llx", static_cast<unsigned long long>(authority));
  return text.data();
}

}  // namespace

std::string sidText(const Sid& sid) {
  std::string text(kStart);
  text += authorityText(sid.authority);
  for (const std::uint32_t subAuthority : sid.subAuthorities)
    text.append("-").append(std::to_string(subAuthority));
  return text;
}

std::optional<Sid> parseSid(std::string_view text) {
  if (text.substr(0, kStart.size()) != kStart) return std::nullopt;
  std::optional<std::string_view> rest = text.substr(kStart.size());
  const auto authority = parseAuthority(takeField(rest));
  if (!authority) return std::nullopt;
  Sid sid{*authority, {}};
  while (rest) {
    const auto subAuthority = parseNumber<std::uint32_t>(takeField(rest), 10);
    if (!subAuthority) return std::nullopt;
    sid.subAuthorities.push_back(*subAuthority);
  }
  if (!fits(sid)) return std::nullopt;
  return sid;
}

}  // namespace paddock::nt_acl
