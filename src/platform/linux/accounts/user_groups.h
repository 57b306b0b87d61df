// The groups that a user is in, as the kernel will know them of the user's processes: those of the
// name service. Groups that only a directory node knows (see group_membership.h) are none of them,
// deliberately: a process never has them, nor does an SMB server's session, so a kernel's ACL that
// counted them for the users whom it names would give those what others in the same group do not
// get, and setting one would wait for directory servers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/accounts/account_cache.h"

namespace paddock {

class UserGroups {
 public:
  virtual ~UserGroups() = default;
  // Returns 0 with all groups of the user, the primary one included, ascending and without
  // duplicates; none for an id that no account has. Returns an errno, and no groups, on failure.
  // Thread-safe.
  virtual int groupsOf(std::uint32_t uid, std::vector<std::uint32_t>& gids) = 0;
};

// getgrouplist(3).
class NssUserGroups final : public UserGroups {
 public:
  int groupsOf(std::uint32_t uid, std::vector<std::uint32_t>& gids) override;
};

// Caches the answers of another one.
class CachedUserGroups final : public UserGroups {
 public:
  // The arguments must outlive this object.
  CachedUserGroups(UserGroups& groups, const AccountFiles& files)
      : groups_(groups), known_(files) {}

  int groupsOf(std::uint32_t uid, std::vector<std::uint32_t>& gids) override;

 private:
  UserGroups& groups_;
  AccountCache<std::uint32_t, std::vector<std::uint32_t>> known_;
};

// Who may change the directory after having authenticated.

// A user as a directory record describes it.
struct AuthenticatedUser {
  std::string name;                           // the record's name
  std::optional<std::string> uniqueId;        // UniqueID
  std::optional<std::string> primaryGroupId;  // PrimaryGroupID
};

// By name or id 0.
bool isRoot(const AuthenticatedUser& user);

// Whether the name service counts the user to the group: as a member by name, or by the primary
// group of the record or of the system's user of that name. False for an unknown group.
bool isInSystemGroup(const AuthenticatedUser& user, const std::string& group);

}  // namespace paddock
