// A membership service in memory: the double of the Linux one.
//
// Ids without a GUID of their own have the computed one.
#pragma once

#include <map>
#include <mutex>

#include "base/computed_guid.h"
#include "platform/membership.h"

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

  std::mutex mutex_;
  int error_ = 0;
  std::map<std::pair<PrincipalType, std::uint32_t>, Guid> guids_;
  std::map<Guid, Principal> principals_;
};

}  // namespace paddock
