// POSIX.1e access-control lists, acl(5), as the kernel stores them (base/posix_acl_entries.h) in
// system.posix_acl_access and system.posix_acl_default.
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

// The permissions of the three classes.
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
  // Limits the owning group and all named entries. Required when there are named entries.
  std::optional<Bits> mask;
  friend bool operator==(const Acl&, const Acl&) = default;

  bool namesAnybody() const { return !users.empty() || !groups.empty(); }
  // The classes as they are in effect: the owning group's part within the mask.
  Classes effectiveClasses() const;
  // Sets the mask that limits nothing, if there are named entries. It is not empty as long as
  // others have any permission: the kernel ignores an ACL whose mask is empty, and users named
  // without permissions would have those of others.
  void computeMask();
};

// nullopt for anything that the kernel would refuse: another version, an unknown tag, entries out
// of order, missing or duplicated, more bits than three, trailing bytes.
std::optional<Acl> decode(std::string_view value);

// Entries in the kernel's order, ids ascending. Ids must be unique among users and among groups.
std::string encode(Acl acl);

}  // namespace paddock::posix_acl
