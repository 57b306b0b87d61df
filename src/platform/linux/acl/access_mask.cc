#include "platform/linux/acl/access_mask.h"

#include <array>

#include "platform/linux/acl/nt_acl.h"

namespace paddock::nt_acl {

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
