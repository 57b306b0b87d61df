#include "effectiveprivs/kernel_access.h"

#include <sys/stat.h>

#include <algorithm>

namespace paddock::effectiveprivs {

namespace {

using posix_acl::Bits;

bool isIn(std::uint32_t gid, const KernelUser& user) {
  return std::find(user.gids.begin(), user.gids.end(), gid) != user.gids.end();
}

KernelBits bitsByMode(const KernelObject& object, const KernelUser& user) {
  const posix_acl::Classes classes = posix_acl::classesOf(object.mode);
  if (isIn(object.gid, user)) return {KernelClass::group, classes.group};
  return {KernelClass::others, classes.others};
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

KernelBits bitsByAcl(const posix_acl::Acl& acl, const KernelObject& object,
                     const KernelUser& user) {
  const Bits mask = acl.mask.value_or(posix_acl::kAllBits);
  for (const posix_acl::Named& named : acl.users)
    if (named.id == user.uid) return {KernelClass::namedUser, static_cast<Bits>(named.bits & mask)};
  std::vector<Bits> each;
  if (isIn(object.gid, user)) each.push_back(acl.classes.group);
  for (const posix_acl::Named& named : acl.groups)
    if (isIn(named.id, user)) each.push_back(named.bits);
  return each.empty() ? KernelBits{KernelClass::others, acl.classes.others}
                      : bitsOfGroups(each, mask);
}

bool mayDelete(const KernelObject& object, const KernelObject* parent, const KernelUser& user) {
  constexpr Bits kNeeded = posix_acl::kWrite | posix_acl::kExecute;
  if (parent == nullptr || (kernelBits(*parent, user).bits & kNeeded) != kNeeded) return false;
  return (parent->mode & S_ISVTX) == 0 || object.uid == user.uid || parent->uid == user.uid;
}

}  // namespace

KernelBits kernelBits(const KernelObject& object, const KernelUser& user) {
  if (object.uid == user.uid) return {KernelClass::owner, posix_acl::classesOf(object.mode).owner};
  // The kernel ignores an ACL whose mask, which the mode has in the group's place, is empty.
  if (object.acl && (object.mode & S_IRWXG) != 0) return bitsByAcl(*object.acl, object, user);
  return bitsByMode(object, user);
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

}  // namespace paddock::effectiveprivs
