// Which groups hold a user, of every directory node.
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
// - a group whose "dsAttrTypeStandard:NestedGroups" has a GUID of a group that holds the user. That
//   goes on for kMostLevels levels; what is nested deeper does not hold the user. Groups that hold
//   one another are no error.
//
// Group records with the same gid are the same group. Groups that have neither gid nor GUID name
// nobody in a list and are left out.
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
  // Empty when no record says more than its gid.
  std::string name;
  // How the user was first found in it, and the path of the node that says so.
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
  // Each group once, those that are reached over fewer others first.
  std::vector<HoldingGroup> groups;
  // What went wrong, naming the node.
  std::string error;
};

class GroupMembership {
 public:
  static constexpr std::size_t kMostLevels = 16;

  virtual ~GroupMembership() = default;

  // 0 and the membership; no groups for a uid that no account has. An errno, and nothing but
  // `error`, as soon as one node cannot answer: what is not known is never guessed, and a server
  // that does not answer is waited for once. ERANGE: more groups than a process can have. Any
  // thread may call.
  virtual int membershipOf(std::uint32_t uid, UserMembership& membership) = 0;
};

}  // namespace paddock
