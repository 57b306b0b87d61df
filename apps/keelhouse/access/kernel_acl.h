// The kernel's own ACLs of a path, acl(5): the attributes system.posix_acl_access and
// system.posix_acl_default.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/principal.h"
#include "samba/samba_attributes.h"

namespace paddock::keelhouse {

inline constexpr unsigned kKernelRead = 4;
inline constexpr unsigned kKernelWrite = 2;
inline constexpr unsigned kKernelExecute = 1;

// Named users and groups alone, with what the mask leaves of their bits.
struct KernelAcl {
  struct Entry {
    Principal who;
    unsigned bits = 0;
  };
  std::vector<Entry> entries;

  // The bits of the entry of that user or group; absent when there is none.
  std::optional<unsigned> bitsOf(const Principal& who) const;
};

// Absent for bytes that are no such ACL: another version, an unknown tag, a length that does not
// fit.
std::optional<KernelAcl> parseKernelAcl(std::string_view bytes);

struct KernelAcls {
  std::string error;                       // why they cannot be read; empty when they can
  std::optional<KernelAcl> access;         // absent: the mode alone
  std::optional<KernelAcl> defaultAccess;  // of what is made inside; absent: none
};

// Links are followed. Only a folder has a default.
KernelAcls readKernelAcls(const std::string& path, bool folder);

// What Samba makes of the list of the path where it does not ignore the kernel's ACLs. In force
// also when that cannot be found out, and when there is none.
samba::ListForce listForce(const std::string& path);

// "r-x" and the like.
std::string kernelBitsText(unsigned bits);

}  // namespace paddock::keelhouse
