// Entries of acl.h to and from entries of a stored list, one by one.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/acl.h"
#include "platform/acl_list.h"
#include "platform/linux/acl/nt_acl.h"

namespace paddock::nt_acl {

// The entry that represents `ace`; it keeps both. An ACE of another type than allowed and denied
// has the tag kForeignTag and no permissions.
std::unique_ptr<acl::Entry> entryOf(const Ace& ace, const Guid& qualifier);

// The ACE that the entry was read from, when nothing of the entry was changed since, so that it is
// written back unchanged; null otherwise. Lives as long as the entry's origin.
const Ace* unchangedAce(const acl::Entry& entry);

// The SID that the entry's qualifier had on disk; null when it was not read, or its qualifier
// has changed since, or it was foreign.
const Sid* originalSid(const acl::Entry& entry);

// False for a foreign entry that was not read here, whose bytes are therefore unknown.
bool canBeStored(const acl::Entry& entry);

// The ACE of an entry that is new or was changed. `sid` is its qualifier's. An allowed one has
// SYNCHRONIZE besides its permissions. A foreign one keeps its bytes but for the flags.
// Precondition: acl_valid takes the entry, and it can be stored.
Ace changedAce(const acl::Entry& entry, const Sid& sid);

// The qualifier of an ACE whose SID, if any, is not parsed: a name-based GUID (RFC 9562 version 8),
// the bytes "ACE:" and 12 bytes of the SHA-256 of the ACE without its flags.
Guid foreignAceGuid(const Ace& ace);

// Permissions and flags of acl.h to and from the access mask and flags of a Windows entry
// ([MS-DTYP] 2.4.3 and 2.4.4.1, [MS-SMB2] 2.2.13.1): one bit to one bit each.
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
