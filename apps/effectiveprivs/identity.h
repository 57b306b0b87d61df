// Who a user is to an access-control list.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "effectiveprivs/rule.h"
#include "platform/group_membership.h"

namespace paddock::effectiveprivs {

// How an entry is for a user.
struct Match {
  // The group of the membership that it names; absent when it names the user, or everybody.
  std::optional<std::size_t> group;
};

class Identity {
 public:
  // What nobody has: (uid_t)-1, see chown(2).
  static constexpr std::uint32_t kNoUid = 0xFFFFFFFF;

  // An id that no account has is judged like any other, by what it owns and what names it; but it
  // has authenticated nobody.
  // `hostGids` are the groups of the host's that hold the user (see user_groups.h), which are what
  // counts where the kernel decides.
  Identity(std::uint32_t uid, UserMembership membership, std::vector<std::uint32_t> hostGids);

  std::uint32_t uid() const { return uid_; }
  bool isRoot() const { return uid_ == 0; }
  bool isKnown() const { return membership_.isKnown; }
  const UserMembership& membership() const { return membership_; }

  bool owns(std::uint32_t owner) const { return uid_ != kNoUid && owner == uid_; }
  // Whether the kernel takes the user for a member of that group.
  bool isInHostGroup(std::uint32_t gid) const;
  const std::vector<std::uint32_t>& hostGids() const { return hostGids_; }
  // The group of the membership that has the gid.
  std::optional<std::size_t> groupWithGid(std::uint32_t gid) const;
  // Whether an entry of an object is for the user. `isOwner`: whether the user owns the object.
  std::optional<Match> match(const Subject& subject, bool isOwner) const;
  // Whether one that does not match might, by what a node says that could not be asked. Whoever has
  // no account anywhere is in no group.
  bool mayMatch(const Subject& subject) const;

 private:
  std::optional<Match> matchGuid(const Guid& guid) const;

  std::uint32_t uid_;
  UserMembership membership_;
  std::vector<std::uint32_t> hostGids_;
  std::map<std::uint32_t, std::size_t> byGid_;
  std::map<Guid, Match> byGuid_;
};

}  // namespace paddock::effectiveprivs
