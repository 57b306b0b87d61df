// The forms of SID that this system makes, and the GUIDs that it makes of SIDs of others.
// docs/formats/acl.md describes them; they are on disk, so they never change.
#pragma once

#include <optional>

#include "base/computed_guid.h"
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

}  // namespace paddock::nt_acl
