// Accounts with cached lookups by id (AccountCache). Lookups by name are not cached.
#pragma once

#include "base/guid.h"
#include "platform/accounts.h"
#include "platform/linux/accounts/account_cache.h"
#include "platform/membership.h"

namespace paddock {

class CachedAccounts final : public Accounts {
 public:
  // The arguments must outlive this object.
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

// A membership service that caches the answers of another one (AccountCache).
class CachedMembership final : public Membership {
 public:
  // The arguments must outlive this object.
  CachedMembership(Membership& membership, const AccountFiles& files)
      : membership_(membership), users_(files), groups_(files), principals_(files) {}

  int uidToGuid(std::uint32_t uid, Guid& guid) override;
  int gidToGuid(std::uint32_t gid, Guid& guid) override;
  std::vector<GuidAnswer> toGuids(const std::vector<Principal>& principals) override;
  int guidToId(const Guid& guid, std::uint32_t& id, PrincipalType& type) override;

 private:
  AccountCache<std::uint32_t, Guid>& cacheOf(const Principal& principal) {
    return principal.type == PrincipalType::user ? users_ : groups_;
  }

  Membership& membership_;
  AccountCache<std::uint32_t, Guid> users_;
  AccountCache<std::uint32_t, Guid> groups_;
  AccountCache<Guid, Principal> principals_;
};

}  // namespace paddock
