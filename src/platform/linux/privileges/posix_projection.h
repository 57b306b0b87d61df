// The access granted by an extended list, as a POSIX ACL, so that the kernel grants what the list
// grants. docs/formats/acl.md describes what such an ACL cannot express.
//
// A named user has what the whole list gives that user, groups counted; a named group what the list
// gives to a user who is in no other group; owner, group and others keep the mode. What the list
// does not decide falls back to the mode, unless the list is complete: for a user to the group's
// part when he is in the group, else to that of others; for a group to that of others, or to its
// own when it is the owning group. On a folder, the default ACL is what the inheritable entries
// give in the same way, as far as it is the same for files and folders and at every depth, because
// a default ACL knows no difference; but its owner, who will have made the thing, has everything.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "platform/acl.h"
#include "platform/linux/acl/list_rules.h"
#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/acl/posix_acl.h"
#include "platform/linux/acl/principal_sids.h"
#include "platform/membership.h"

namespace paddock::projection {

struct Source {
  std::vector<acl::Rule> rules;
  bool complete = false;
  posix_acl::Classes classes;
  std::uint32_t gid = 0;
};

// All groups of a user, the primary one too, ascending.
using GroupsOf = std::function<const std::vector<std::uint32_t>&(std::uint32_t uid)>;

// ACLs without named entries when no entry names a principal; the mode is then equivalent.
posix_acl::Acl accessAcl(const Source& source, const GroupsOf& groupsOf);
posix_acl::Acl defaultAcl(const Source& source, const GroupsOf& groupsOf);

// The users that either of them asks for the groups of.
std::vector<std::uint32_t> namedUsers(const std::vector<acl::Rule>& rules);

}  // namespace paddock::projection

namespace paddock::nt_acl {

// The entries of a stored list as rules of a projection.

// `rules`: one per entry, in order. An entry of a foreign kind decides nothing; neither does one
// for a principal without uid or gid. Returns 0, or an errno when the lookup fails.
int readRules(PrincipalSids& sids, Membership& membership, const std::vector<Ace>& aces,
              std::vector<acl::Rule>& rules);

}  // namespace paddock::nt_acl
