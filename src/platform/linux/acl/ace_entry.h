// Entries of acl.h to and from entries of a stored list, one by one.
#pragma once

#include <memory>

#include "platform/acl_list.h"
#include "platform/linux/acl/nt_acl.h"

namespace paddock::nt_acl {

// The entry that `ace` reads as; it remembers both. An ACE of another type than allowed and denied
// has the tag kForeignTag and no permissions.
std::unique_ptr<acl::Entry> entryOf(const Ace& ace, const Guid& qualifier);

// The ACE that the entry was read from, when nothing of the entry was changed since, so that it
// goes back as it was; null otherwise. Lives as long as the entry's origin.
const Ace* unchangedAce(const acl::Entry& entry);

// The SID that the entry's qualifier had on disk; null when it was not read, or its qualifier
// has changed since, or it was foreign.
const Sid* originalSid(const acl::Entry& entry);

// False for a foreign entry that was not read from here, so that nothing is known of its bytes.
bool canBeStored(const acl::Entry& entry);

// The ACE of an entry that is new or was changed. `sid` is its qualifier's. An allowed one has
// SYNCHRONIZE besides its permissions. A foreign one keeps its bytes but for the flags.
// Precondition: acl_valid takes the entry, and it can be stored.
Ace changedAce(const acl::Entry& entry, const Sid& sid);

// The qualifier of an ACE whose SID, if it has one, is not looked for: a name-based GUID (RFC 9562
// version 8), the bytes "ACE:" and 12 bytes of the SHA-256 of the ACE without its flags.
Guid foreignAceGuid(const Ace& ace);

}  // namespace paddock::nt_acl
