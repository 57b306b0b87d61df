// The groups that a user is in, as the kernel will know them of the user's processes.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/linux/account_cache.h"

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
