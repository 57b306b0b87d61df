#include "effectiveprivs/identity.h"

#include <algorithm>
#include <utility>

namespace paddock::effectiveprivs {

Identity::Identity(std::uint32_t uid, UserMembership membership,
                   std::vector<std::uint32_t> hostGids)
    : uid_(uid), membership_(std::move(membership)), hostGids_(std::move(hostGids)) {
  for (const Guid& guid : membership_.guids) byGuid_.emplace(guid, Match{});
  for (std::size_t at = 0; at < membership_.groups.size(); ++at) {
    const HoldingGroup& group = membership_.groups[at];
    if (group.gid) byGid_.emplace(*group.gid, at);
    for (const Guid& guid : group.guids) byGuid_.emplace(guid, Match{at});
  }
}

bool Identity::isInHostGroup(std::uint32_t gid) const {
  return std::find(hostGids_.begin(), hostGids_.end(), gid) != hostGids_.end();
}

std::optional<std::size_t> Identity::groupWithGid(std::uint32_t gid) const {
  const auto found = byGid_.find(gid);
  return found != byGid_.end() ? std::optional(found->second) : std::nullopt;
}

std::optional<Match> Identity::match(const Subject& subject, bool isOwner) const {
  using Kind = Subject::Kind;
  const auto matchIf = [](bool condition) {
    return condition ? std::optional(Match{}) : std::nullopt;
  };
  switch (subject.kind) {
    case Kind::user:
      return matchIf(owns(subject.id));
    case Kind::group:
      if (const auto group = groupWithGid(subject.id)) return Match{*group};
      return std::nullopt;
    case Kind::guid:
      return matchGuid(subject.guid);
    case Kind::everyone:
    case Kind::network:
      return Match{};
    case Kind::authenticated:
      return matchIf(isKnown());
    case Kind::accounts:
      return matchIf(uid_ != kNoUid && subject.uids->contains(uid_));
    case Kind::ownerRights:
      return matchIf(isOwner);
    case Kind::nobody:
    case Kind::unknown:
      break;
  }
  return std::nullopt;
}

bool Identity::mayMatch(const Subject& subject) const {
  using Kind = Subject::Kind;
  if (uid_ == kNoUid && !isKnown()) return false;
  return subject.kind == Kind::group || (subject.kind == Kind::guid && !subject.isUsers) ||
         (subject.kind == Kind::authenticated && !isKnown());
}

std::optional<Match> Identity::matchGuid(const Guid& guid) const {
  const auto found = byGuid_.find(guid);
  return found != byGuid_.end() ? std::optional(found->second) : std::nullopt;
}

}  // namespace paddock::effectiveprivs
