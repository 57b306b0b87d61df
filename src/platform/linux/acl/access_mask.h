// Permissions and flags of acl.h to and from the access mask and flags of a Windows entry
// ([MS-DTYP] 2.4.3 and 2.4.4.1, [MS-SMB2] 2.2.13.1): one bit to one bit each.
#pragma once

#include <cstdint>

#include "platform/acl.h"

namespace paddock::nt_acl {

inline constexpr std::uint32_t kReadDataMask = 0x00000001;
inline constexpr std::uint32_t kWriteDataMask = 0x00000002;
inline constexpr std::uint32_t kAppendDataMask = 0x00000004;
inline constexpr std::uint32_t kReadExtendedAttributesMask = 0x00000008;
inline constexpr std::uint32_t kWriteExtendedAttributesMask = 0x00000010;
inline constexpr std::uint32_t kExecuteMask = 0x00000020;
inline constexpr std::uint32_t kDeleteChildMask = 0x00000040;
inline constexpr std::uint32_t kReadAttributesMask = 0x00000080;
inline constexpr std::uint32_t kWriteAttributesMask = 0x00000100;
inline constexpr std::uint32_t kDeleteMask = 0x00010000;
inline constexpr std::uint32_t kReadSecurityMask = 0x00020000;
inline constexpr std::uint32_t kWriteSecurityMask = 0x00040000;
inline constexpr std::uint32_t kChangeOwnerMask = 0x00080000;
// No permission of its own; a client that may do anything at all needs it.
inline constexpr std::uint32_t kSynchronizeMask = 0x00100000;

// Bits that are no permission are left out, in both directions.
std::uint32_t maskOf(acl::Permission permissions);
acl::Permission permissionsOf(std::uint32_t mask);

// The five flags; others are left out, in both directions.
std::uint8_t aceFlagsOf(acl::Flag flags);
acl::Flag flagsOf(std::uint8_t aceFlags);

}  // namespace paddock::nt_acl
