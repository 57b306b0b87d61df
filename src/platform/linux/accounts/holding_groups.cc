#include "platform/linux/accounts/holding_groups.h"

#include <algorithm>
#include <cerrno>

#include "base/computed_guid.h"

namespace paddock {

namespace {

void addOnce(std::vector<Guid>& guids, const Guid& guid) {
  if (std::find(guids.begin(), guids.end(), guid) == guids.end()) guids.push_back(guid);
}

// A record with no more than a computed GUID is that of the gid.
NodeGroup withGid(NodeGroup record) {
  const auto principal = record.guid ? computedPrincipal(*record.guid) : std::nullopt;
  if (!record.gid && principal && principal->type == PrincipalType::group)
    record.gid = principal->id;
  return record;
}

}  // namespace

void HoldingGroups::add(const NodeGroup& found, const Way& way) {
  const NodeGroup record = withGid(found);
  if ((!record.gid && !record.guid) || find(record)) return;
  if (entries_.size() == kMost)
    throw DirectoryError(ERANGE, "the user is in more than " + std::to_string(kMost) + " groups");
  const std::size_t at = entries_.size();
  entries_.push_back({{record.gid, {}, record.name, way.by, way.node, way.through}, record.guid});
  if (record.gid) byGid_.emplace(*record.gid, at);
  if (record.guid) byGuid_.emplace(*record.guid, at);
}

std::optional<std::size_t> HoldingGroups::find(const NodeGroup& record) const {
  if (record.gid) {
    const auto found = byGid_.find(*record.gid);
    return found != byGid_.end() ? std::optional(found->second) : std::nullopt;
  }
  const auto found = byGuid_.find(*record.guid);
  return found != byGuid_.end() ? std::optional(found->second) : std::nullopt;
}

void HoldingGroups::describe(std::size_t group, const NodeGroup& record) {
  HoldingGroup& known = entries_[group].group;
  if (known.name.empty()) known.name = record.name;
  if (!record.guid) return;
  addOnce(known.guids, *record.guid);
  byGuid_.emplace(*record.guid, group);
}

std::vector<Guid> HoldingGroups::guidsOf(std::size_t group) const {
  const Entry& entry = entries_[group];
  std::vector<Guid> guids = entry.group.guids;
  if (entry.foundBy) addOnce(guids, *entry.foundBy);
  if (entry.group.gid) addOnce(guids, computedGuid({PrincipalType::group, *entry.group.gid}));
  return guids;
}

std::vector<HoldingGroup> HoldingGroups::take() {
  std::vector<HoldingGroup> groups;
  groups.reserve(entries_.size());
  for (std::size_t at = 0; at < entries_.size(); ++at) {
    std::vector<Guid> guids = guidsOf(at);
    groups.push_back(std::move(entries_[at].group));
    groups.back().guids = std::move(guids);
  }
  *this = HoldingGroups();
  return groups;
}

}  // namespace paddock
