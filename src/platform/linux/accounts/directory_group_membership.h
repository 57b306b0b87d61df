// The groups that hold a user, of the host and of every node of a directory.
#pragma once

#include <string>

#include "platform/directory.h"
#include "platform/group_membership.h"
#include "platform/linux/accounts/user_groups.h"

namespace paddock {

class DirectoryGroupMembership final : public GroupMembership {
 public:
  // `hostGroups` answers for the node "/System". Both must outlive this object.
  DirectoryGroupMembership(DirectoryService& directory, UserGroups& hostGroups)
      : directory_(directory), hostGroups_(hostGroups) {}

  int membershipOf(std::uint32_t uid, UserMembership& membership) override;

 private:
  DirectoryService& directory_;
  UserGroups& hostGroups_;
};

}  // namespace paddock
