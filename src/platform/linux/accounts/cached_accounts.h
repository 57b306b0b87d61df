// Accounts whose names, asked for by id, are kept (AccountCache). Names are always looked up.
#pragma once

#include "platform/accounts.h"
#include "platform/linux/accounts/account_cache.h"

namespace paddock {

class CachedAccounts final : public Accounts {
 public:
  // The caller keeps what it passes alive.
  CachedAccounts(Accounts& accounts, const AccountFiles& files)
      : accounts_(accounts), users_(files), groups_(files) {}

  int getpwnam(const std::string& name, std::uint32_t& uid) override {
    return accounts_.getpwnam(name, uid);
  }
  int getgrnam(const std::string& name, std::uint32_t& gid) override {
    return accounts_.getgrnam(name, gid);
  }
  int getpwuid(std::uint32_t uid, std::string& name) override {
    return users_.get(uid, name, [&](auto& found) { return accounts_.getpwuid(uid, found); });
  }
  int getgrgid(std::uint32_t gid, std::string& name) override {
    return groups_.get(gid, name, [&](auto& found) { return accounts_.getgrgid(gid, found); });
  }
  int getgrnam_r(const std::string& name, std::size_t bufferSize, std::uint32_t& gid) override {
    return accounts_.getgrnam_r(name, bufferSize, gid);
  }

 private:
  Accounts& accounts_;
  AccountCache<std::uint32_t, std::string> users_;
  AccountCache<std::uint32_t, std::string> groups_;
};

}  // namespace paddock
