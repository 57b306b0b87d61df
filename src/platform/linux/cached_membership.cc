#include "platform/linux/cached_membership.h"

namespace paddock {

int CachedMembership::uidToGuid(std::uint32_t uid, Guid& guid) {
  return users_.get(uid, guid, [&](Guid& found) { return membership_.uidToGuid(uid, found); });
}

int CachedMembership::gidToGuid(std::uint32_t gid, Guid& guid) {
  return groups_.get(gid, guid, [&](Guid& found) { return membership_.gidToGuid(gid, found); });
}

int CachedMembership::guidToId(const Guid& guid, std::uint32_t& id, PrincipalType& type) {
  Principal principal;
  const int error = principals_.get(guid, principal, [&](Principal& found) {
    return membership_.guidToId(guid, found.id, found.type);
  });
  id = principal.id;
  if (error == 0) type = principal.type;
  return error;
}

}  // namespace paddock
