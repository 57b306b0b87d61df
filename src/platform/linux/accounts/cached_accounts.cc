#include "platform/linux/accounts/cached_accounts.h"

#include <cerrno>

namespace paddock {

int CachedMembership::uidToGuid(std::uint32_t uid, Guid& guid) {
  return users_.get(uid, guid, [&](Guid& found) { return membership_.uidToGuid(uid, found); });
}

int CachedMembership::gidToGuid(std::uint32_t gid, Guid& guid) {
  return groups_.get(gid, guid, [&](Guid& found) { return membership_.gidToGuid(gid, found); });
}

std::vector<Membership::GuidAnswer> CachedMembership::toGuids(
    const std::vector<Principal>& principals) {
  constexpr int kNotKept = EAGAIN;  // an answer that is not kept
  std::vector<GuidAnswer> answers(principals.size());
  std::vector<std::size_t> places;
  std::vector<Principal> unknown;
  for (std::size_t at = 0; at < principals.size(); ++at) {
    const auto notKept = [&](Guid&) {
      places.push_back(at);
      unknown.push_back(principals[at]);
      return kNotKept;
    };
    answers[at].error = cacheOf(principals[at]).get(principals[at].id, answers[at].guid, notKept);
  }
  if (unknown.empty()) return answers;
  const auto found = membership_.toGuids(unknown);
  for (std::size_t number = 0; number < places.size(); ++number) {
    GuidAnswer& answer = answers[places[number]];
    answer.error = cacheOf(unknown[number]).get(unknown[number].id, answer.guid, [&](Guid& guid) {
      guid = found[number].guid;
      return found[number].error;
    });
  }
  return answers;
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
