// POSIX.1e access-control lists as the kernel stores them: acl(5), and version 2 of the value of
// system.posix_acl_access and system.posix_acl_default (include/uapi/linux/posix_acl_xattr.h).
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace paddock::posix_acl {

inline constexpr const char* kAccessAttribute = "system.posix_acl_access";
inline constexpr const char* kDefaultAttribute = "system.posix_acl_default";

// Any of read 4, write 2, execute 1, as in a digit of an octal mode.
using Bits = std::uint8_t;
inline constexpr Bits kRead = 4;
inline constexpr Bits kWrite = 2;
inline constexpr Bits kExecute = 1;
inline constexpr Bits kAllBits = 7;

// What a mode gives the three classes.
struct Classes {
  Bits owner = 0;
  Bits group = 0;
  Bits others = 0;
  friend bool operator==(const Classes&, const Classes&) = default;
};

// The permission bits of a mode; the others are ignored.
Classes classesOf(mode_t mode);
mode_t modeOf(const Classes& classes);

struct Named {
  std::uint32_t id = 0;
  Bits bits = 0;
  friend auto operator<=>(const Named&, const Named&) = default;
};

struct Acl {
  Classes classes;  // the owning group's entry, not the mask
  std::vector<Named> users;
  std::vector<Named> groups;
  // Bounds the owning group and whatever is named. There is one when anything is named.
  std::optional<Bits> mask;
  friend bool operator==(const Acl&, const Acl&) = default;

  bool namesAnybody() const { return !users.empty() || !groups.empty(); }
  // The classes as they are in effect: the owning group's part within the mask.
  Classes effectiveClasses() const;
  // The mask that bounds nothing, where anything is named. It is not empty as long as others have
  // anything: the kernel does not look at an ACL whose mask is empty, and who is named to have
  // nothing would have what others have.
  void computeMask();
};

// Absent for anything that the kernel would refuse: another version, a tag that is not known,
// entries out of order or missing or there twice, more bits than three, bytes that are left over.
std::optional<Acl> decode(std::string_view value);

// Entries in the kernel's order, ids ascending. An id is to stand once among users and groups each.
std::string encode(Acl acl);

}  // namespace paddock::posix_acl
