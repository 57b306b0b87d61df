#include "platform/testing/in_memory_membership.h"

#include <cerrno>
#include <optional>

namespace paddock {

void InMemoryMembership::setGuid(const Principal& principal, const Guid& guid) {
  const std::lock_guard lock(mutex_);
  guids_[{principal.type, principal.id}] = guid;
  principals_[guid] = principal;
}

void InMemoryMembership::failWith(int error) {
  const std::lock_guard lock(mutex_);
  error_ = error;
}

int InMemoryMembership::uidToGuid(std::uint32_t uid, Guid& guid) {
  return toGuid({PrincipalType::user, uid}, guid);
}

int InMemoryMembership::gidToGuid(std::uint32_t gid, Guid& guid) {
  return toGuid({PrincipalType::group, gid}, guid);
}

int InMemoryMembership::guidToId(const Guid& guid, std::uint32_t& id, PrincipalType& type) {
  id = 0;
  const std::lock_guard lock(mutex_);
  if (error_ != 0) return error_;
  const auto own = principals_.find(guid);
  const auto principal =
      own == principals_.end() ? computedPrincipal(guid) : std::optional(own->second);
  if (!principal) return ENOENT;
  id = principal->id;
  type = principal->type;
  return 0;
}

int InMemoryMembership::toGuid(const Principal& principal, Guid& guid) {
  guid = {};
  const std::lock_guard lock(mutex_);
  if (error_ != 0) return error_;
  const auto own = guids_.find({principal.type, principal.id});
  guid = own == guids_.end() ? computedGuid(principal) : own->second;
  return 0;
}

}  // namespace paddock
