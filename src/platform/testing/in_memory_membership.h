// A membership service in memory: the double of the Linux one.
//
// Ids without a GUID of their own have the computed one.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/guid.h"
#include "base/mutex.h"
#include "platform/group_membership.h"
#include "platform/membership.h"
#include "platform/testing/call_rules.h"

namespace paddock {

class InMemoryMembership final : public Membership {
 public:
  // Gives the user or group a GUID of its own.
  void setGuid(const Principal& principal, const Guid& guid);
  // Every call fails with this errno from now on; 0: no longer.
  void failWith(int error);

  int uidToGuid(std::uint32_t uid, Guid& guid) override;
  int gidToGuid(std::uint32_t gid, Guid& guid) override;
  int guidToId(const Guid& guid, std::uint32_t& id, PrincipalType& type) override;

 private:
  int toGuid(const Principal& principal, Guid& guid);

  Mutex mutex_;
  int error_ PADDOCK_GUARDED_BY(mutex_) = 0;
  std::map<std::pair<PrincipalType, std::uint32_t>, Guid> guids_ PADDOCK_GUARDED_BY(mutex_);
  std::map<Guid, Principal> principals_ PADDOCK_GUARDED_BY(mutex_);
};

// Group membership in memory: the double of the Linux one, over users and groups of one node.
class InMemoryGroupMembership final : public GroupMembership {
 public:
  struct User {
    std::string name;
    std::uint32_t uid = 0;
    std::optional<Guid> guid;
    std::optional<std::uint32_t> primaryGid;
  };
  struct Group {
    std::string name;
    std::optional<std::uint32_t> gid;
    std::optional<Guid> guid;
    std::vector<std::string> memberNames;
    std::vector<Guid> memberGuids;
    std::vector<Guid> nestedGuids;
  };

  // Names, uids, gids and GUIDs that were not there before.
  void add(const User& user);
  void add(const Group& group);
  // Every call fails with this errno from now on; 0: no longer.
  void failWith(int error);

  int membershipOf(std::uint32_t uid, UserMembership& membership) override;

 private:
  void addDirectGroups(const User& user, UserMembership& membership) const PADDOCK_REQUIRES(mutex_);
  void addGroupsAround(std::size_t at, UserMembership& membership) const PADDOCK_REQUIRES(mutex_);

  Mutex mutex_;
  int error_ PADDOCK_GUARDED_BY(mutex_) = 0;
  std::vector<User> users_ PADDOCK_GUARDED_BY(mutex_);
  std::vector<Group> groups_ PADDOCK_GUARDED_BY(mutex_);
};

// Membership. A failure is the errno, and a GUID or an id of zero; traces leave it out.
class ForwardingMembership final : public Forwarder<Membership> {
 public:
  using Forwarder::Forwarder;
  int uidToGuid(std::uint32_t uid, Guid& guid) override {
    guid = {};
    const int error = ask("membership.uidToGuid");
    return error != 0 ? error : wrapped().uidToGuid(uid, guid);
  }
  int gidToGuid(std::uint32_t gid, Guid& guid) override {
    guid = {};
    const int error = ask("membership.gidToGuid");
    return error != 0 ? error : wrapped().gidToGuid(gid, guid);
  }
  int guidToId(const Guid& guid, std::uint32_t& id, PrincipalType& type) override {
    id = 0;
    const int error = ask("membership.guidToId");
    return error != 0 ? error : wrapped().guidToId(guid, id, type);
  }
};

}  // namespace paddock
