#include "platform/linux/acl/sid_forms.h"

#include <algorithm>
#include <array>

#include "platform/linux/acl/nt_acl_sid.h"
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

}  // namespace paddock::nt_acl
