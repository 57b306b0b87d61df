#include "platform/testing/in_memory_membership.h"

#include <algorithm>
#include <cerrno>
#include <optional>

#include "base/guid.h"
#include "base/text.h"

namespace paddock {

void InMemoryMembership::setGuid(const Principal& principal, const Guid& guid) {
  const MutexLock lock(mutex_);
  guids_[{principal.type, principal.id}] = guid;
  principals_[guid] = principal;
}

void InMemoryMembership::failWith(int error) {
  const MutexLock lock(mutex_);
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
  const MutexLock lock(mutex_);
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
  const MutexLock lock(mutex_);
  if (error_ != 0) return error_;
  const auto own = guids_.find({principal.type, principal.id});
  guid = own == guids_.end() ? computedGuid(principal) : own->second;
  return 0;
}

namespace {

constexpr const char* kNode = "/Local";

std::vector<Guid> guidsOf(PrincipalType type, const std::optional<Guid>& own,
                          const std::optional<std::uint32_t>& id) {
  std::vector<Guid> guids;
  if (own) guids.push_back(*own);
  if (id) guids.push_back(computedGuid({type, *id}));
  return guids;
}

bool holdsAny(const std::vector<Guid>& members, const std::vector<Guid>& guids) {
  return std::find_first_of(members.begin(), members.end(), guids.begin(), guids.end()) !=
         members.end();
}

bool holdsName(const std::vector<std::string>& members, const std::string& name) {
  return std::any_of(members.begin(), members.end(), [&](const std::string& member) {
    return asciiLower(member) == asciiLower(name);
  });
}

void take(const InMemoryGroupMembership::Group& group, HeldBy by,
          std::optional<std::size_t> through, UserMembership& membership) {
  HoldingGroup holding{group.gid,  guidsOf(PrincipalType::group, group.guid, group.gid),
                       group.name, by,
                       kNode,      through};
  const auto known = [&](const HoldingGroup& one) { return one.guids == holding.guids; };
  auto& groups = membership.groups;
  if (holding.guids.empty() || std::any_of(groups.begin(), groups.end(), known)) return;
  groups.push_back(std::move(holding));
}

}  // namespace

void InMemoryGroupMembership::add(const User& user) {
  const MutexLock lock(mutex_);
  users_.push_back(user);
}

void InMemoryGroupMembership::add(const Group& group) {
  const MutexLock lock(mutex_);
  groups_.push_back(group);
}

void InMemoryGroupMembership::failWith(int error) {
  const MutexLock lock(mutex_);
  error_ = error;
}

int InMemoryGroupMembership::membershipOf(std::uint32_t uid, UserMembership& membership) {
  membership = {};
  const MutexLock lock(mutex_);
  if (error_ != 0) {
    membership.error = std::string(kNode) + " does not answer";
    return error_;
  }
  const auto user =
      std::find_if(users_.begin(), users_.end(), [&](const User& one) { return one.uid == uid; });
  membership.guids =
      guidsOf(PrincipalType::user, user != users_.end() ? user->guid : std::nullopt, uid);
  membership.isKnown = user != users_.end();
  if (!membership.isKnown) return 0;
  addDirectGroups(*user, membership);
  std::size_t at = 0;
  for (std::size_t level = 0; level < kMostLevels; ++level)
    for (const std::size_t end = membership.groups.size(); at < end; ++at)
      addGroupsAround(at, membership);
  return 0;
}

void InMemoryGroupMembership::addDirectGroups(const User& user, UserMembership& membership) const {
  for (const Group& group : groups_)
    if (user.primaryGid && group.gid == user.primaryGid)
      take(group, HeldBy::primaryGroup, std::nullopt, membership);
  // A primary group may have no record.
  if (user.primaryGid && membership.groups.empty())
    take({{}, user.primaryGid, {}, {}, {}, {}}, HeldBy::primaryGroup, std::nullopt, membership);
  for (const Group& group : groups_)
    if (holdsName(group.memberNames, user.name) || holdsAny(group.memberGuids, membership.guids))
      take(group, HeldBy::member, std::nullopt, membership);
}

void InMemoryGroupMembership::addGroupsAround(std::size_t at, UserMembership& membership) const {
  const std::vector<Guid> guids = membership.groups[at].guids;
  for (const Group& group : groups_)
    if (holdsAny(group.nestedGuids, guids)) take(group, HeldBy::nestedGroup, at, membership);
}

}  // namespace paddock
