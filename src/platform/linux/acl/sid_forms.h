// The forms of SID that this system generates, and the GUIDs that it derives from foreign SIDs.
// docs/formats/acl.md describes them; they are on disk, so they never change.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/guid.h"
#include "platform/linux/acl/nt_acl.h"

namespace paddock::nt_acl {

// The own identifier authority: the bytes "Paddoc".
inline constexpr std::uint64_t kOwnAuthority = 0x506164646F63;

// S-1-22-1-UID for a user, S-1-22-2-GID for a group, and back; absent for every other SID.
Sid unixSid(const Principal& principal);
std::optional<Principal> unixPrincipal(const Sid& sid);

// The own authority and the GUID's bytes as four sub-authorities, most significant byte first, and
// back; absent for every other SID.
Sid guidSid(const Guid& guid);
std::optional<Guid> sidGuid(const Sid& sid);

// The SID of the entry that divides a list from its tail: the own authority and the one
// sub-authority 0.
Sid markerSid();

// The GUID that stands for a SID that is neither of the forms above nor a user's or group's: a
// name-based GUID (RFC 9562 version 8) that starts with the bytes "SID:" and goes on with the first
// 12 bytes of the SHA-256 of the SID's packet form.
Guid foreignGuid(const Sid& sid);
// Whether a GUID has that form. Another GUID has it by chance once in 2^38.
bool isForeignGuid(const Guid& guid);

// SIDs as text ([MS-DTYP] 2.4.2.1): "S-1-22-1-1000".

// An authority of 2^32 or more is written as 0x and twelve hexadecimal digits.
std::string sidText(const Sid& sid);

// Reads that form, also with fewer digits in a hexadecimal authority, as Samba writes it, and at
// most 15 sub-authorities. Absent for any other text.
std::optional<Sid> parseSid(std::string_view text);

// SIDs that mean the same on every machine: [MS-DTYP] 2.4.2.4.
inline constexpr std::uint64_t kWorldAuthority = 1;
inline constexpr std::uint64_t kLocalAuthority = 2;
inline constexpr std::uint64_t kCreatorAuthority = 3;
inline constexpr std::uint64_t kNtAuthority = 5;
// Of the groups that every server has by itself, S-1-5-32-...
inline constexpr std::uint32_t kBuiltinDomain = 32;

inline Sid everyoneSid() { return {1, {0}}; }
inline Sid creatorOwnerSid() { return {3, {0}}; }
inline Sid creatorGroupSid() { return {3, {1}}; }
// The owner of the object that has the entry.
inline Sid ownerRightsSid() { return {3, {4}}; }
// Users connected over a network, as in every session of an SMB server.
inline Sid networkSid() { return {5, {2}}; }
// Authenticated users.
inline Sid authenticatedUsersSid() { return {5, {11}}; }

// Whether the SID depends on the logon session or its kind: authenticated users, network and the
// like.
inline bool isOfSession(const Sid& sid) {
  return sid.authority == kNtAuthority && sid.subAuthorities.size() == 1;
}

}  // namespace paddock::nt_acl
