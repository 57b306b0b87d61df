// Group membership in memory: the double of the Linux one, over users and groups of one node.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/group_membership.h"

namespace paddock {

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
  void addDirectGroups(const User& user, UserMembership& membership) const;
  void addGroupsAround(std::size_t at, UserMembership& membership) const;

  std::mutex mutex_;
  int error_ = 0;
  std::vector<User> users_;
  std::vector<Group> groups_;
};

}  // namespace paddock
