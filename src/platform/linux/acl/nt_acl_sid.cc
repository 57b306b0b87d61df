#include "platform/linux/acl/nt_acl_sid.h"

namespace paddock::nt_acl {

namespace {

constexpr std::uint8_t kSidRevision = 1;
constexpr std::size_t kMaximumSubAuthorities = 15;
constexpr unsigned kAuthorityBits = 48;

}  // namespace

std::optional<Sid> readSid(Reader& reader) {
  const bool known = reader.u8() == kSidRevision;
  const std::size_t count = reader.u8();
  if (!known || count > kMaximumSubAuthorities) return std::nullopt;
  Sid sid;
  sid.authority = reader.authority();
  sid.subAuthorities.resize(count);
  for (std::uint32_t& subAuthority : sid.subAuthorities) subAuthority = reader.u32();
  if (reader.failed()) return std::nullopt;
  return sid;
}

bool fits(const Sid& sid) {
  return sid.authority >> kAuthorityBits == 0 &&
         sid.subAuthorities.size() <= kMaximumSubAuthorities;
}

void writeSid(Writer& writer, const Sid& sid) {
  writer.u8(kSidRevision);
  writer.u8(static_cast<std::uint8_t>(sid.subAuthorities.size()));
  writer.authority(sid.authority);
  for (const std::uint32_t subAuthority : sid.subAuthorities) writer.u32(subAuthority);
}

}  // namespace paddock::nt_acl
