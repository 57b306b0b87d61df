// A membership service that keeps the answers of another one (AccountCache).
#pragma once

#include "base/guid.h"
#include "platform/linux/accounts/account_cache.h"
#include "platform/membership.h"

namespace paddock {

class CachedMembership final : public Membership {
 public:
  // The caller keeps what it passes alive.
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
