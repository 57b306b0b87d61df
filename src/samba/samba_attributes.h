// Samba's module acl_xattr keeps a hash of the kernel's ACLs beside a list that one of its clients
// has set (xattr.idl, version 4), and goes by the kernel's ACLs where that hash is another one than
// theirs, unless configured to ignore them. What it keeps while it ignores them has a hash of zeros
// (version 3), which is another one than theirs, too.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace paddock::samba {

struct KernelAcls {
  std::uint32_t uid = 0;
  std::uint32_t gid = 0;
  mode_t mode = 0;                           // with the type
  std::optional<std::string> access;         // the value of system.posix_acl_access
  std::optional<std::string> defaultAccess;  // of system.posix_acl_default
};

// The hash in a value of the attribute that holds lists; absent where it has none of the kernel's
// ACLs.
std::optional<std::string> kernelAclHashIn(std::string_view value);

// Absent for ACLs that are none.
std::optional<std::string> kernelAclHashOf(const KernelAcls& acls);

// Whether smbd honours a list on a share not configured to ignore the kernel's ACLs. On one that
// is, every list is in force.
enum class ListForce {
  inForce,     // versions 1 and 2, which want no hash, and a hash that is the kernel's
  neverHeld,   // kept with no hash, while the kernel's ACLs were ignored
  overridden,  // the kernel's ACLs are other ones by now
  unknown,     // kept with a hash that only smbd can make
};

// Absent for a value that is none of such a list. `kernelHash` is asked only where it matters;
// absent from it is what cannot be known.
std::optional<ListForce> listForce(std::string_view value,
                                   const std::function<std::optional<std::string>()>& kernelHash);

// The attributes of Windows' files, read-only among them, as smbd keeps them in an extended
// attribute (xattr_DOSATTRIB of its xattr.idl).
inline constexpr const char* kDosAttributesName = "user.DOSATTRIB";
// Whether smbd takes a file for read-only. Unknown: for a text that is no number, which it reads in
// its own way.
enum class DosReadOnly { no, yes, unknown };
// A value that smbd does not read, of an unknown version or cut short, says no.
DosReadOnly dosReadOnlyIn(std::string_view value);

}  // namespace paddock::samba
