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

namespace paddock::ace {

inline constexpr const char* kDisplayName = "displayName";
inline constexpr const char* kGuid = "guid";
inline constexpr const char* kAllowPermission = "allowPermission";
inline constexpr const char* kBitmap = "bitmap";
inline constexpr const char* kFlags = "flags";
inline constexpr const char* kIsUser = "isUser";
inline constexpr const char* kUniqueID = "uniqueID";
inline constexpr const char* kGroupID = "groupID";

inline constexpr const char* kAllow = "YES";
inline constexpr const char* kDeny = "NO";

// Deliberate: "isUser" is 0 for a user and not 0 for a group, against what its name says.
inline constexpr std::int64_t kUserKind = 0;
inline constexpr std::int64_t kGroupKind = 1;
// The bytes "????".
inline constexpr std::int64_t kUnknownKind = 0x3F3F3F3F;

}  // namespace paddock::ace
