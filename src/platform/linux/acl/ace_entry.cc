#include "platform/linux/acl/ace_entry.h"

#include <algorithm>
#include <array>
#include <string>

#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/process/sha256.h"

namespace paddock::nt_acl {

namespace {

// The place of the flags among the bytes of an ACE ([MS-DTYP] 2.4.4.1).
constexpr std::size_t kFlagsAt = 1;

// What can be changed of an entry.
struct Content {
  int tag = acl::kUndefinedTag;
  Guid qualifier;
  acl::Permission permissions = 0;
  acl::Flag flags = 0;
  friend bool operator==(const Content&, const Content&) = default;
};

class AceOrigin final : public acl::Origin {
 public:
  AceOrigin(Ace from, const Content& as) : ace(std::move(from)), content(as) {}
  const Ace ace;
  const Content content;
};

int tagOf(const Ace& ace) {
  if (!ace.foreign.empty()) return acl::kForeignTag;
  return ace.type == kDenied ? acl::kExtendedDeny : acl::kExtendedAllow;
}

Content contentOf(const Ace& ace, const Guid& qualifier) {
  const int tag = tagOf(ace);
  return {tag, qualifier, tag == acl::kForeignTag ? 0 : permissionsOf(ace.mask),
          flagsOf(ace.flags)};
}

Content contentOf(const acl::Entry& entry) {
  return {entry.tag, entry.qualifier.value_or(Guid{}), entry.permset.permissions,
          entry.flagset.flags};
}

const AceOrigin* originOf(const acl::Entry& entry) {
  return dynamic_cast<const AceOrigin*>(entry.origin.get());
}

Ace foreignAce(const acl::Entry& entry) {
  Ace ace = originOf(entry)->ace;
  const std::uint8_t unknown = ace.flags & ~aceFlagsOf(acl::kAllFlags);
  ace.flags = static_cast<std::uint8_t>(unknown | aceFlagsOf(entry.flagset.flags));
  return ace;
}

}  // namespace

std::unique_ptr<acl::Entry> entryOf(const Ace& ace, const Guid& qualifier) {
  const Content content = contentOf(ace, qualifier);
  auto entry = std::make_unique<acl::Entry>();
  entry->tag = content.tag;
  entry->qualifier = content.qualifier;
  entry->permset.permissions = content.permissions;
  entry->flagset.flags = content.flags;
  entry->origin = std::make_shared<AceOrigin>(ace, content);
  return entry;
}

const Ace* unchangedAce(const acl::Entry& entry) {
  const AceOrigin* origin = originOf(entry);
  return origin != nullptr && entry.qualifier && origin->content == contentOf(entry) ? &origin->ace
                                                                                     : nullptr;
}

const Sid* originalSid(const acl::Entry& entry) {
  const AceOrigin* origin = originOf(entry);
  if (origin == nullptr || !origin->ace.foreign.empty()) return nullptr;
  return entry.qualifier == origin->content.qualifier ? &origin->ace.sid : nullptr;
}

bool canBeStored(const acl::Entry& entry) {
  return entry.tag != acl::kForeignTag || originOf(entry) != nullptr;
}

Ace changedAce(const acl::Entry& entry, const Sid& sid) {
  if (entry.tag == acl::kForeignTag) return foreignAce(entry);
  const bool allowed = entry.tag == acl::kExtendedAllow;
  const std::uint32_t mask = maskOf(entry.permset.permissions);
  return {allowed ? kAllowed : kDenied,
          aceFlagsOf(entry.flagset.flags),
          allowed ? mask | kSynchronizeMask : mask,
          sid,
          {}};
}

Guid foreignAceGuid(const Ace& ace) {
  constexpr std::array<std::uint8_t, 4> kPrefix = {'A', 'C', 'E', ':'};
  std::string bytes = ace.foreign;
  if (bytes.size() > kFlagsAt) bytes[kFlagsAt] = 0;
  const auto digest = sha256(bytes);
  Guid guid;
  std::copy(kPrefix.begin(), kPrefix.end(), guid.bytes.begin());
  std::copy_n(digest.begin(), guid.bytes.size() - kPrefix.size(),
              guid.bytes.begin() + kPrefix.size());
  guid.bytes[6] = static_cast<std::uint8_t>((guid.bytes[6] & 0x0FU) | 0x80U);
  guid.bytes[8] = static_cast<std::uint8_t>((guid.bytes[8] & 0x3FU) | 0x80U);
  return guid;
}

namespace {

struct Pair {
  std::uint32_t ours;
  std::uint32_t theirs;
};

constexpr std::array<Pair, 13> kMaskBits{{
    {acl::kReadData, kReadDataMask},
    {acl::kWriteData, kWriteDataMask},
    {acl::kExecute, kExecuteMask},
    {acl::kDelete, kDeleteMask},
    {acl::kAppendData, kAppendDataMask},
    {acl::kDeleteChild, kDeleteChildMask},
    {acl::kReadAttributes, kReadAttributesMask},
    {acl::kWriteAttributes, kWriteAttributesMask},
    {acl::kReadExtendedAttributes, kReadExtendedAttributesMask},
    {acl::kWriteExtendedAttributes, kWriteExtendedAttributesMask},
    {acl::kReadSecurity, kReadSecurityMask},
    {acl::kWriteSecurity, kWriteSecurityMask},
    {acl::kChangeOwner, kChangeOwnerMask},
}};

constexpr std::array<Pair, 5> kFlagBits{{
    {acl::kInherited, kInherited},
    {acl::kFileInherit, kObjectInherit},
    {acl::kDirectoryInherit, kContainerInherit},
    {acl::kLimitInherit, kNoPropagateInherit},
    {acl::kOnlyInherit, kInheritOnly},
}};

template <typename Pairs>
std::uint32_t translated(const Pairs& pairs, std::uint32_t bits, std::uint32_t Pair::*from,
                         std::uint32_t Pair::*to) {
  std::uint32_t result = 0;
  for (const Pair& pair : pairs)
    if ((bits & pair.*from) != 0) result |= pair.*to;
  return result;
}

}  // namespace

std::uint32_t maskOf(acl::Permission permissions) {
  return translated(kMaskBits, permissions, &Pair::ours, &Pair::theirs);
}

acl::Permission permissionsOf(std::uint32_t mask) {
  return translated(kMaskBits, mask, &Pair::theirs, &Pair::ours);
}

std::uint8_t aceFlagsOf(acl::Flag flags) {
  return static_cast<std::uint8_t>(translated(kFlagBits, flags, &Pair::ours, &Pair::theirs));
}

acl::Flag flagsOf(std::uint8_t aceFlags) {
  return translated(kFlagBits, aceFlags, &Pair::theirs, &Pair::ours);
}

}  // namespace paddock::nt_acl
