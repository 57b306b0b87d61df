// What the kernel itself lets a user do with an object, in the permissions of a list: acl(5),
// "ACCESS CHECK ALGORITHM", and what chmod(2), utimensat(2), chown(2), stat(2) and unlink(2) say.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "platform/acl.h"
#include "platform/linux/acl/posix_acl.h"

namespace paddock {

struct KernelObject {
  std::uint32_t uid = 0;
  std::uint32_t gid = 0;
  mode_t mode = 0;  // stat(2)'s
  std::optional<posix_acl::Acl> acl;
};

// A process of the user's, which is not root.
struct KernelUser {
  std::uint32_t uid = 0;
  std::vector<std::uint32_t> gids;
};

// What the kernel takes the user for.
enum class KernelClass { owner, namedUser, group, others };

struct KernelBits {
  KernelClass who = KernelClass::others;
  posix_acl::Bits bits = 0;
  // Of a member of several groups of the ACL: none of them has all of the bits, so that the kernel
  // refuses who wants all at once, although it lets each one through by itself.
  bool isApart = false;
  // The same of writing and searching alone, which making and removing things in a folder takes.
  bool isWritingApart = false;
};

KernelBits kernelBits(const KernelObject& object, const KernelUser& user);

// The ACL that counts: the kernel ignores one whose mask is empty, and goes by the mode.
posix_acl::Acl aclInForce(const std::optional<posix_acl::Acl>& acl, mode_t mode);
// What such an ACL gives a user who is not the owner. Of several groups everything that any of them
// gives.
KernelBits bitsByAcl(const posix_acl::Acl& acl, std::uint32_t owningGroup, std::uint32_t uid,
                     const std::vector<std::uint32_t>& gids);

// `parent`: the folder around; null when there is none.
acl::Permission kernelPermissions(const KernelObject& object, const KernelObject* parent,
                                  const KernelUser& user);

}  // namespace paddock
