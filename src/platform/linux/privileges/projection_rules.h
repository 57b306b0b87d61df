// The entries of a stored list as rules of a projection.
#pragma once

#include <vector>

#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/acl/principal_sids.h"
#include "platform/linux/privileges/acl_projection.h"
#include "platform/membership.h"

namespace paddock::nt_acl {

// `rules`: one per entry, in order. An entry of a foreign kind decides nothing; neither does one
// for somebody who has no uid or gid. 0, or an errno when that cannot be found out.
int readRules(PrincipalSids& sids, Membership& membership, const std::vector<Ace>& aces,
              std::vector<projection::Rule>& rules);

}  // namespace paddock::nt_acl
