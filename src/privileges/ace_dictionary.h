// One entry of an extended ACL as a dictionary, in requests and replies.
//
//   "displayName"      string   the principal's full name, else its short name, else the GUID text;
//                               written only
//   "guid"             string   36 characters
//   "allowPermission"  string   "YES" or "NO", exactly
//   "bitmap"           number   the permissions of platform/acl.h
//   "flags"            number   the flags of platform/acl.h
//   "isUser"           number   the kind of the principal, see below
//   "uniqueID"         number   a user's uid, read when there is no "guid"
//   "groupID"          number   a group's gid, read when there is no "guid"
#pragma once

#include <cstdint>
#include <optional>

#include "base/value.h"
#include "platform/acl.h"
#include "protocol/keys.h"

namespace paddock::ace {

inline constexpr const char* kGuid = "guid";
inline constexpr const char* kBitmap = "bitmap";
inline constexpr const char* kFlags = "flags";

inline constexpr const char* kAllow = "YES";
inline constexpr const char* kDeny = "NO";

// Deliberate: "isUser" is 0 for a user and not 0 for a group, against what its name says.
inline constexpr std::int64_t kUserKind = 0;
inline constexpr std::int64_t kGroupKind = 1;
// The bytes "????".
inline constexpr std::int64_t kUnknownKind = 0x3F3F3F3F;

}  // namespace paddock::ace

namespace paddock {

// Numbers in an entry's dictionary: integers, booleans as 0 or 1, decimal texts. `value` may be
// null.

// The lowest 32 bits of a number of either sign; none when there is no number.
std::uint32_t readBits(const Value* value);

// An id or a kind; absent when there is no number. One above the signed range reads as -1: it is
// there, is not 0, and is no id.
std::optional<std::int64_t> readId(const Value* value);

// The bits of an entry's dictionary, one at a time into the entry's sets.

// Adds the permission to the set when `bitmap` has its bit. 0, or what the failed call returned,
// which is logged.
int add_perm_if_set(std::uint32_t bitmap, acl::Permset* permset, acl::Permission permission);

// The same for a flag.
int add_flag_if_set(std::uint32_t flags, acl::Flagset* flagset, acl::Flag flag);

}  // namespace paddock
