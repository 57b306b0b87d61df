// The entries of a list as acl.h has them, to and from those of a stored list.
#pragma once

#include <vector>

#include "platform/acl_list.h"
#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/acl/principal_sids.h"

namespace paddock::nt_acl {

// Appends the entries to `list`. 0, or an errno when a principal cannot be found out.
int readEntries(PrincipalSids& sids, const std::vector<Ace>& aces, acl::List& list);

// The stored entries of `list`, in its order. An entry that nobody changed since it was read goes
// back as it was, but for the SID of somebody who has a uid or gid; so does one that was made
// afresh and says what an entry of `replaced` says, the list in whose place this one is to stand.
// Precondition: acl_valid takes the list. 0, or an errno: EINVAL for a foreign SID that nobody
// remembers and for a foreign entry that was not read here, or that of the membership service.
int writeEntries(PrincipalSids& sids, const acl::List& list, const std::vector<Ace>& replaced,
                 std::vector<Ace>& aces);

}  // namespace paddock::nt_acl
