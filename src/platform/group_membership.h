// Group membership of users over all directory nodes.
//
// Who a user is. A uid: every user record with it, on whatever node, is the same user, under all of
// the records' names and GUIDs and the GUID that is computed from the uid.
//
// What holds a user:
// - the group that a record of the user names as primary ("dsAttrTypeStandard:PrimaryGroupID");
// - every group of the host's (initgroups(3));
// - a group whose "dsAttrTypeStandard:GroupMembership" has a name of the user. A name means the
//   user that the group's own node has under it, and where that node has none the first in search
//   order, so that who has the same name on another node gains nothing;
// - a group whose "dsAttrTypeStandard:GroupMembers" has a GUID of the user;
// - a group whose "dsAttrTypeStandard:NestedGroups" has a GUID of a group that holds the user,
//   up to kMostLevels levels; groups nested deeper do not hold the user. Cycles are no error.
//
// Group records with the same gid are the same group. Groups that have neither gid nor GUID cannot
// be named in a list and are omitted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/guid.h"

namespace paddock {

enum class HeldBy { primaryGroup, member, nestedGroup };

struct HoldingGroup {
  std::optional<std::uint32_t> gid;
  // Every GUID that names it, the membership service's first.
  std::vector<Guid> guids;
  // Empty when only its gid is known.
  std::string name;
  // How the user was first found in it, and the path of the node that has it.
  HeldBy by = HeldBy::member;
  std::string node;
  // Of a nested group: the index of the group in it that holds the user.
  std::optional<std::size_t> through;
};

struct UserMembership {
  // Whether any account has the uid.
  bool isKnown = false;
  // Every GUID that names the user, the membership service's first.
  std::vector<Guid> guids;
  // Each group once, in the order of nesting distance.
  std::vector<HoldingGroup> groups;
  // The error, naming the node.
  std::string error;
};

class GroupMembership {
 public:
  static constexpr std::size_t kMostLevels = 16;

  virtual ~GroupMembership() = default;

  // Returns 0 with the membership; no groups for a uid that no account has. Returns an errno, with
  // only `error` set, as soon as one node cannot answer: missing data is never guessed, and a
  // server that does not answer is waited for once. ERANGE: more groups than a process can have.
  // Thread-safe.
  virtual int membershipOf(std::uint32_t uid, UserMembership& membership) = 0;
};

}  // namespace paddock
