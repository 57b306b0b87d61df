// Samba's module acl_xattr keeps a hash of the kernel's ACLs beside a list that one of its clients
// has set (xattr.idl, version 4), and goes by the kernel's ACLs where that hash is another one than
// theirs, unless it is told to ignore them.
#pragma once

#include <sys/types.h>

#include <cstdint>
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

}  // namespace paddock::samba
