// Who a user is to an access-control list.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/guid.h"
#include "platform/acl.h"
#include "platform/group_membership.h"

namespace paddock::effectiveprivs {

// An access-control list as it is judged: whom each entry is for, and what it says.

// Whom an entry is for: deliberately more kinds than acl::Subject, which knows only those whom the
// kernel's ACLs can name.
struct Subject {
  enum class Kind {
    nobody,         // an entry whose kind grants and denies nothing, or that matches no caller
    user,           // by `id`
    group,          // by `id`
    guid,           // a user or group by `guid`
    everyone,       // S-1-1-0
    network,        // S-1-5-2, callers over a network; any user judged by a list is one
    authenticated,  // S-1-5-11, Authenticated Users
    ownerRights,    // S-1-3-4, the owner of the object
    accounts,       // those in `uids`
    unknown,        // a principal that does not resolve: it may match any user
  };
  Kind kind = Kind::nobody;
  std::uint32_t id = 0;
  Guid guid{};
  // The SID as text, for those of no kind that has a name.
  std::string sid{};
  // Of Kind::guid: it is known to be a user's.
  bool isUsers = false;
  // Of Kind::accounts.
  std::shared_ptr<const std::set<std::uint32_t>> uids{};
};

struct Rule {
  bool allow = false;
  Subject subject;
  acl::Permission permissions = 0;
  // For those who inherit the entry alone, so that it says nothing of the object itself.
  bool onlyInherit = false;
};

// The entries in their order.
struct RuleList {
  std::vector<Rule> rules;
  // Nothing falls back to the mode.
  bool complete = false;
};

// How an entry is for a user.
struct Match {
  // The group of the membership that it names; absent when it names the user, or everybody.
  std::optional<std::size_t> group;
};

class Identity {
 public:
  // No valid uid: (uid_t)-1, see chown(2).
  static constexpr std::uint32_t kNoUid = 0xFFFFFFFF;

  // An id without an account is evaluated like any other, by what it owns and the entries that name
  // it, but is not an authenticated user. `hostGids` are the host's groups of the user (see
  // user_groups.h), which apply where the kernel decides.
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
  // Whether a subject that does not match might match by the records of a node that did not
  // respond. An id without any account is in no group.
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
