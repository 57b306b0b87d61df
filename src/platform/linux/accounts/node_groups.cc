#include "platform/linux/accounts/node_groups.h"

#include <algorithm>
#include <cerrno>

#include "base/guid.h"
#include "base/text.h"
#include "platform/directory.h"
#include "platform/linux/accounts/account_searches.h"

namespace paddock {

namespace {

constexpr auto kExact = MatchType::caseInsensitiveExact;

NodeGroup recordOf(const Value& answer) {
  const std::string* name = firstValue(answer, schema::kRecordName);
  return {name != nullptr ? *name : std::string(), firstId(answer, schema::kPrimaryGroupID),
          firstGuid(answer, schema::kGeneratedUID)};
}

}  // namespace

std::vector<GroupMatch> NodeGroups::withGids(const std::vector<std::uint32_t>& gids) {
  std::vector<std::string> texts;
  texts.reserve(gids.size());
  for (const std::uint32_t gid : gids) texts.push_back(std::to_string(gid));
  auto matches = match(schema::kPrimaryGroupID, &Listing::byGid, texts);
  // Only the first value is a record's gid.
  std::erase_if(matches,
                [&](const GroupMatch& one) { return one.group.gid != gids[one.question]; });
  return matches;
}

std::vector<GroupMatch> NodeGroups::nesting(const std::vector<Guid>& guids) {
  std::vector<std::string> texts;
  texts.reserve(guids.size());
  for (const Guid& guid : guids) texts.push_back(guidText(guid));
  return match(schema::kNestedGroups, &Listing::byNested, texts);
}

std::vector<NodeGroup> NodeGroups::withValue(const char* attribute,
                                             const std::string& value) const {
  std::vector<NodeGroup> groups;
  for (const Value& answer : node_->findRecordsOfTypes({schema::kGroups}, attribute, value, kExact))
    groups.push_back(recordOf(answer));
  return groups;
}

std::vector<GroupMatch> NodeGroups::match(const char* attribute, Index index,
                                          const std::vector<std::string>& texts) {
  if (!listing_ && texts.size() > kMostLookUps - lookUps_) list();
  if (listing_) return find(index, texts);
  lookUps_ += texts.size();
  return lookUp(attribute, texts);
}

std::vector<GroupMatch> NodeGroups::lookUp(const char* attribute,
                                           const std::vector<std::string>& texts) const {
  std::vector<GroupMatch> matches;
  for (std::size_t question = 0; question < texts.size(); ++question)
    for (NodeGroup& group : withValue(attribute, texts[question]))
      matches.push_back({question, std::move(group)});
  return matches;
}

std::vector<GroupMatch> NodeGroups::find(Index index, const std::vector<std::string>& texts) const {
  std::vector<GroupMatch> matches;
  for (std::size_t question = 0; question < texts.size(); ++question) {
    const auto found = ((*listing_).*index).find(asciiLower(texts[question]));
    if (found == ((*listing_).*index).end()) continue;
    for (const std::size_t at : found->second) matches.push_back({question, listing_->groups[at]});
  }
  return matches;
}

void NodeGroups::list() {
  Listing listing;
  const Array answers = node_->findRecordNames(
      kRecordsAll,
      {schema::kRecordName, schema::kPrimaryGroupID, schema::kGeneratedUID, schema::kNestedGroups},
      schema::kGroups, kExact);
  for (const Value& answer : answers) {
    const std::size_t at = listing.groups.size();
    listing.groups.push_back(recordOf(answer));
    if (const std::string* gid = firstValue(answer, schema::kPrimaryGroupID))
      listing.byGid[*gid].push_back(at);
    const Array* nested = answer.dictionary()->array(schema::kNestedGroups);
    if (nested == nullptr) continue;
    for (const Value& guid : *nested)
      if (guid.string() != nullptr) listing.byNested[asciiLower(*guid.string())].push_back(at);
  }
  listing_ = std::move(listing);
}

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
