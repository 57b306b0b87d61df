// The bytes of a POSIX ACL as the kernel stores it: version 2 of the value of
// system.posix_acl_access and system.posix_acl_default (include/uapi/linux/posix_acl_xattr.h). What
// the entries mean, and which of them an ACL needs, is for the callers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace paddock::posix_acl {

enum class Tag : std::uint16_t {
  owner = 0x01,
  user = 0x02,
  owningGroup = 0x04,
  group = 0x08,
  mask = 0x10,
  others = 0x20,
};

// What the kernel writes for an entry that names nobody.
inline constexpr std::uint32_t kNoId = 0xFFFFFFFF;

struct Entry {
  Tag tag = Tag::others;
  std::uint16_t bits = 0;    // any of read 4, write 2, execute 1
  std::uint32_t id = kNoId;  // of a named user or group
  friend bool operator==(const Entry&, const Entry&) = default;
};

// The entries in the order in which they stand. nullopt for another version, an unknown tag, other
// bits than the three, and a length that is not that of whole entries.
std::optional<std::vector<Entry>> readEntries(std::string_view value);

std::string writeEntries(const std::vector<Entry>& entries);

}  // namespace paddock::posix_acl
