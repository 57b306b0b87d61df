// The groups that a user is in, as the kernel will know them of the user's processes: those of the
// name service. Groups that only a directory node knows (see group_membership.h) are none of them,
// deliberately: a process never has them, nor does an SMB server's session, so a kernel's ACL that
// counted them for the users whom it names would give those what others in the same group do not
// get, and setting one would wait for directory servers.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/linux/accounts/account_cache.h"

namespace paddock {

class UserGroups {
 public:
  virtual ~UserGroups() = default;
  // 0 and all groups of the user, the primary one too, ascending and each once; none for an id that
  // no account has. An errno and no groups when that cannot be found out. Any thread may call.
  virtual int groupsOf(std::uint32_t uid, std::vector<std::uint32_t>& gids) = 0;
};

// getgrouplist(3).
class NssUserGroups final : public UserGroups {
 public:
  int groupsOf(std::uint32_t uid, std::vector<std::uint32_t>& gids) override;
};

// Keeps the answers of another one.
class CachedUserGroups final : public UserGroups {
 public:
  // The caller keeps what it passes alive.
  CachedUserGroups(UserGroups& groups, const AccountFiles& files)
      : groups_(groups), known_(files) {}

  int groupsOf(std::uint32_t uid, std::vector<std::uint32_t>& gids) override;

 private:
  UserGroups& groups_;
  AccountCache<std::uint32_t, std::vector<std::uint32_t>> known_;
};

}  // namespace paddock
