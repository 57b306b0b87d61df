#include "platform/linux/acl/kernel_access.h"

#include <sys/stat.h>

#include <algorithm>

namespace paddock {

namespace {

using posix_acl::Bits;

// Of an ACL: its mask, which the mode has in the group's place, is empty.
bool isIgnored(mode_t mode) { return (mode & S_IRWXG) == 0; }

posix_acl::Acl aclOf(mode_t mode) {
  posix_acl::Acl acl;
  acl.classes = posix_acl::classesOf(mode);
  return acl;
}

bool contains(const std::vector<std::uint32_t>& gids, std::uint32_t gid) {
  return std::find(gids.begin(), gids.end(), gid) != gids.end();
}

KernelBits bitsOfGroups(const std::vector<Bits>& each, Bits mask) {
  unsigned all = 0;
  for (const Bits bits : each) all |= bits;
  const Bits within = static_cast<Bits>(all & mask);
  const auto isApart = [&each](Bits wanted) {
    return std::none_of(each.begin(), each.end(),
                        [wanted](Bits bits) { return (bits & wanted) == wanted; });
  };
  const Bits writing = within & (posix_acl::kWrite | posix_acl::kExecute);
  return {KernelClass::group, within, isApart(within), isApart(writing)};
}

bool mayDelete(const KernelObject& object, const KernelObject* parent, const KernelUser& user) {
  constexpr Bits kNeeded = posix_acl::kWrite | posix_acl::kExecute;
  if (parent == nullptr || (kernelBits(*parent, user).bits & kNeeded) != kNeeded) return false;
  return (parent->mode & S_ISVTX) == 0 || object.uid == user.uid || parent->uid == user.uid;
}

}  // namespace

posix_acl::Acl aclInForce(const std::optional<posix_acl::Acl>& acl, mode_t mode) {
  return acl && !isIgnored(mode) ? *acl : aclOf(mode);
}

KernelBits bitsByAcl(const posix_acl::Acl& acl, std::uint32_t owningGroup, std::uint32_t uid,
                     const std::vector<std::uint32_t>& gids) {
  const Bits mask = acl.mask.value_or(posix_acl::kAllBits);
  for (const posix_acl::Named& named : acl.users)
    if (named.id == uid) return {KernelClass::namedUser, static_cast<Bits>(named.bits & mask)};
  std::vector<Bits> each;
  if (contains(gids, owningGroup)) each.push_back(acl.classes.group);
  for (const posix_acl::Named& named : acl.groups)
    if (contains(gids, named.id)) each.push_back(named.bits);
  return each.empty() ? KernelBits{KernelClass::others, acl.classes.others}
                      : bitsOfGroups(each, mask);
}

KernelBits kernelBits(const KernelObject& object, const KernelUser& user) {
  if (object.uid == user.uid) return {KernelClass::owner, posix_acl::classesOf(object.mode).owner};
  if (object.acl && !isIgnored(object.mode))
    return bitsByAcl(*object.acl, object.gid, user.uid, user.gids);
  return bitsByAcl(aclOf(object.mode), object.gid, user.uid, user.gids);
}

acl::Permission kernelPermissions(const KernelObject& object, const KernelObject* parent,
                                  const KernelUser& user) {
  const Bits bits = kernelBits(object, user).bits;
  acl::Permission permissions = acl::kReadAttributes | acl::kReadSecurity;
  if ((bits & posix_acl::kRead) != 0) permissions |= acl::kReadData | acl::kReadExtendedAttributes;
  if ((bits & posix_acl::kWrite) != 0)
    permissions |= acl::kWriteData | acl::kAppendData | acl::kWriteExtendedAttributes;
  if ((bits & posix_acl::kWrite) != 0 && S_ISDIR(object.mode)) permissions |= acl::kDeleteChild;
  if ((bits & posix_acl::kExecute) != 0) permissions |= acl::kExecute;
  if (object.uid == user.uid) permissions |= acl::kWriteAttributes | acl::kWriteSecurity;
  if (mayDelete(object, parent, user)) permissions |= acl::kDelete;
  return permissions;
}

}  // namespace paddock
