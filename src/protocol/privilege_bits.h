// The bits of an ACL entry's "bitmap" and "flags", and those of a propagation's mask: requests,
// replies, the extended ACLs of the module and the arguments of copyprivs have the same ones.
#pragma once

#include <array>
#include <cstdint>

namespace paddock::acl {

using Permission = std::uint32_t;
inline constexpr Permission kReadData = 2;   // on a folder: list
inline constexpr Permission kWriteData = 4;  // on a folder: add a file
inline constexpr Permission kExecute = 8;    // on a folder: search
inline constexpr Permission kDelete = 16;
inline constexpr Permission kAppendData = 32;  // on a folder: add a folder
inline constexpr Permission kDeleteChild = 64;
inline constexpr Permission kReadAttributes = 128;
inline constexpr Permission kWriteAttributes = 256;
inline constexpr Permission kReadExtendedAttributes = 512;
inline constexpr Permission kWriteExtendedAttributes = 1024;
inline constexpr Permission kReadSecurity = 2048;
inline constexpr Permission kWriteSecurity = 4096;
inline constexpr Permission kChangeOwner = 8192;
inline constexpr Permission kAllPermissions = 0x3FFE;
// Every permission, lowest first.
inline constexpr std::array<Permission, 13> kPermissions = {kReadData,
                                                            kWriteData,
                                                            kExecute,
                                                            kDelete,
                                                            kAppendData,
                                                            kDeleteChild,
                                                            kReadAttributes,
                                                            kWriteAttributes,
                                                            kReadExtendedAttributes,
                                                            kWriteExtendedAttributes,
                                                            kReadSecurity,
                                                            kWriteSecurity,
                                                            kChangeOwner};

using Flag = std::uint32_t;
inline constexpr Flag kInherited = 16;         // came from a parent folder
inline constexpr Flag kFileInherit = 32;       // files created inside inherit the entry
inline constexpr Flag kDirectoryInherit = 64;  // folders created inside inherit the entry
inline constexpr Flag kLimitInherit = 128;     // inheritance stops after one level
inline constexpr Flag kOnlyInherit = 256;      // applies to descendants alone
inline constexpr Flag kAllFlags = 0x1F0;
inline constexpr std::array<Flag, 5> kFlags = {kInherited, kFileInherit, kDirectoryInherit,
                                               kLimitInherit, kOnlyInherit};

}  // namespace paddock::acl

namespace paddock {

// What a propagation sets.
inline constexpr std::uint32_t kSetOwner = 1;
inline constexpr std::uint32_t kSetGroup = 2;
inline constexpr std::uint32_t kSetOwnerPermissions = 4;
inline constexpr std::uint32_t kSetGroupPermissions = 8;
inline constexpr std::uint32_t kSetOtherPermissions = 16;
inline constexpr std::uint32_t kSetInheritedEntries = 32;
inline constexpr std::uint32_t kSetEverything = 63;

}  // namespace paddock
