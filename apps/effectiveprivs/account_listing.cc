#include "effectiveprivs/account_listing.h"

#include <algorithm>
#include <utility>

#include "base/guid.h"
#include "base/text.h"
#include "platform/directory.h"
#include "platform/linux/accounts/account_searches.h"
#include "platform/linux/accounts/nss.h"
#include "platform/linux/process/case_fold.h"
#include "platform/search_node.h"

namespace paddock::effectiveprivs {

namespace {

constexpr auto kExact = MatchType::caseInsensitiveExact;

// The texts of an attribute of an answer.
std::vector<std::string> textsOf(const Value& answer, const char* attribute) {
  std::vector<std::string> texts;
  const Array* values = answer.dictionary()->array(attribute);
  if (values == nullptr) return texts;
  for (const Value& value : *values)
    if (value.string() != nullptr) texts.push_back(*value.string());
  return texts;
}

std::vector<Guid> guidsOf(const Value& answer, const char* attribute) {
  std::vector<Guid> guids;
  for (const std::string& text : textsOf(answer, attribute))
    if (const auto guid = parseGuid(text)) guids.push_back(*guid);
  return guids;
}

void addOnce(std::vector<Guid>& guids, const Guid& guid) {
  if (std::find(guids.begin(), guids.end(), guid) == guids.end()) guids.push_back(guid);
}

template <typename Key>
std::optional<std::size_t> valueIn(const std::map<Key, std::size_t>& map, const Key& key) {
  const auto found = map.find(key);
  return found != map.end() ? std::optional(found->second) : std::nullopt;
}

template <typename Key>
void addAll(const std::map<Key, Places>& members, const Key& key, Places& places) {
  const auto found = members.find(key);
  if (found != members.end()) places.insert(found->second.begin(), found->second.end());
}

}  // namespace

AccountListing::AccountListing(DirectoryService& directory) {
  const auto session = directory.openLocal();
  for (const Value& path : session->searchNode()->getAttribute(schema::kSearchPath))
    if (path.string() != nullptr) nodes_.push_back({session->findNode(*path.string()), {}});
  for (Node& node : nodes_) readUsers(node);
  for (std::size_t at = 0; at < nodes_.size(); ++at)
    if (!isHost(at)) readGroups(at);
  readHost();
}

bool AccountListing::isHost(std::size_t node) const {
  return nodes_[node].node->path() == kSystemNodePath;
}

void AccountListing::readUsers(Node& node) {
  const Array answers = node.node->findRecordNames(
      kRecordsAll,
      {schema::kRecordName, schema::kUniqueID, schema::kGeneratedUID, schema::kPrimaryGroupID},
      schema::kUsers, kExact);
  for (const Value& answer : answers) {
    const auto uid = firstId(answer, schema::kUniqueID);
    const std::vector<std::string> names = textsOf(answer, schema::kRecordName);
    for (const std::string& name : names) node.uids.emplace(caseFold(name), uid);
    if (!uid) continue;
    const std::size_t user = addUser(*uid, names.empty() ? std::string() : names.front());
    if (const auto guid = firstGuid(answer, schema::kGeneratedUID)) {
      addOnce(users_[user].guids, *guid);
      usersByGuid_.emplace(*guid, user);
    }
    if (const auto gid = firstId(answer, schema::kPrimaryGroupID))
      primaryMembers_[*gid].insert(user);
  }
}

std::size_t AccountListing::addUser(std::uint32_t uid, const std::string& name) {
  const auto [found, isNew] = usersByUid_.try_emplace(uid, users_.size());
  if (isNew) {
    const Guid guid = computedGuid({PrincipalType::user, uid});
    users_.push_back({uid, name, {guid}});
    usersByGuid_.emplace(guid, found->second);
  }
  return found->second;
}

void AccountListing::readGroups(std::size_t node) {
  const Array answers = nodes_[node].node->findRecordNames(
      kRecordsAll,
      {schema::kRecordName, schema::kPrimaryGroupID, schema::kGeneratedUID, schema::kNestedGroups},
      schema::kGroups, kExact);
  for (const Value& answer : answers) {
    const auto group = groupOf(answer);
    if (!group) continue;
    const std::vector<Guid> nested = guidsOf(answer, schema::kNestedGroups);
    for (const Guid& guid : nested) groupWithGuid(guid);
    Group& known = groups_[*group];
    const std::string* name = firstValue(answer, schema::kRecordName);
    if (name != nullptr) known.records.push_back({node, *name});
    if (name != nullptr && known.listed.name.empty()) known.listed.name = *name;
    for (const Guid& guid : nested) addOnce(known.nested, guid);
  }
}

std::optional<std::size_t> AccountListing::groupOf(const Value& answer) {
  const auto guid = firstGuid(answer, schema::kGeneratedUID);
  auto gid = firstId(answer, schema::kPrimaryGroupID);
  const auto computed = guid ? computedPrincipal(*guid) : std::nullopt;
  if (!gid && computed && computed->type == PrincipalType::group) gid = computed->id;
  if (!gid && !guid) return std::nullopt;
  if (gid) {
    const std::size_t group = groupWithGid(*gid);
    if (guid) {
      addOnce(groups_[group].listed.guids, *guid);
      groupsByGuid_.emplace(*guid, group);
    }
    return group;
  }
  const auto [found, isNew] = groupsByGuid_.try_emplace(*guid, groups_.size());
  if (isNew) groups_.push_back({{std::nullopt, {*guid}, {}}, {}, {}, {}});
  return found->second;
}

// As getgrouplist(3) does it: by the first name of each uid.
void AccountListing::readHost() {
  std::map<std::string, std::size_t> names;
  std::set<std::uint32_t> seen;
  for (const NssUser& user : nssUsers()) {
    if (!seen.insert(user.uid).second) continue;
    const std::size_t place = addUser(user.uid, user.name);
    names.emplace(user.name, place);
    hostMembers_[user.gid].insert(place);
  }
  for (const NssGroup& group : nssGroups()) {
    hostGroups_.insert(group.gid);
    for (const std::string& member : group.members)
      if (const auto user = valueIn(names, member)) hostMembers_[group.gid].insert(*user);
  }
}

std::size_t AccountListing::groupWithGid(std::uint32_t gid) {
  const auto [found, isNew] = groupsByGid_.try_emplace(gid, groups_.size());
  if (isNew) {
    const Guid guid = computedGuid({PrincipalType::group, gid});
    groups_.push_back({{gid, {guid}, {}}, {}, {}, {}});
    groupsByGuid_.emplace(guid, found->second);
  }
  return found->second;
}

std::optional<std::size_t> AccountListing::userWithUid(std::uint32_t uid) {
  if (const auto known = valueIn(usersByUid_, uid)) return known;
  const auto user = nssUser(uid_t{uid});
  if (!user) return std::nullopt;
  const std::size_t place = addUser(uid, user->name);
  hostMembers_[user->gid].insert(place);
  return place;
}

std::optional<std::size_t> AccountListing::userWithGuid(const Guid& guid) {
  const auto computed = computedPrincipal(guid);
  if (computed && computed->type == PrincipalType::user) return userWithUid(computed->id);
  return valueIn(usersByGuid_, guid);
}

std::optional<std::size_t> AccountListing::groupWithGuid(const Guid& guid) {
  const auto computed = computedPrincipal(guid);
  if (computed && computed->type == PrincipalType::group) return groupWithGid(computed->id);
  return valueIn(groupsByGuid_, guid);
}

// The host may know groups that it does not enumerate.
void AccountListing::learnHostGroup(std::uint32_t gid) {
  if (!hostGroups_.insert(gid).second) return;
  const auto group = nssGroup(gid_t{gid});
  if (!group) return;
  for (const std::string& member : group->members)
    if (const auto user = nssUser(member)) hostMembers_[gid].insert(addUser(user->uid, user->name));
}

Places AccountListing::hostMembers(std::uint32_t gid) {
  learnHostGroup(gid);
  Places found;
  addAll(hostMembers_, gid, found);
  return found;
}

const std::vector<std::size_t>& AccountListing::members(std::size_t group) {
  auto& members = groups_[group].members;
  if (members) return *members;
  Places found;
  if (const auto gid = groups_[group].listed.gid) {
    learnHostGroup(*gid);
    addAll(primaryMembers_, *gid, found);
    addAll(hostMembers_, *gid, found);
  }
  for (const Record& record : groups_[group].records) addMembers(group, record, found);
  return members.emplace(found.begin(), found.end());
}

void AccountListing::addMembers(std::size_t group, const Record& record, Places& found) {
  const Array answers =
      nodes_[record.node].node->findRecordNames(record.name,
                                                {schema::kPrimaryGroupID, schema::kGeneratedUID,
                                                 schema::kGroupMembership, schema::kGroupMembers},
                                                schema::kGroups, kExact);
  for (const Value& answer : answers) {
    if (!isAbout(group, answer)) continue;
    for (const std::string& name : textsOf(answer, schema::kGroupMembership))
      if (const auto user = userNamed(record.node, name)) found.insert(*user);
    for (const Guid& guid : guidsOf(answer, schema::kGroupMembers))
      if (const auto user = userWithGuid(guid)) found.insert(*user);
  }
}

bool AccountListing::isAbout(std::size_t group, const Value& answer) const {
  const ListedGroup& listed = groups_[group].listed;
  const auto guid = firstGuid(answer, schema::kGeneratedUID);
  if (const auto gid = firstId(answer, schema::kPrimaryGroupID)) return gid == listed.gid;
  return guid && std::find(listed.guids.begin(), listed.guids.end(), *guid) != listed.guids.end();
}

// Whom a name in a group of the node means: the node's own user, else the first in search order.
std::optional<std::size_t> AccountListing::userNamed(std::size_t node, const std::string& name) {
  const std::string folded = caseFold(name);
  const auto own = nodes_[node].uids.find(folded);
  if (own != nodes_[node].uids.end()) return own->second ? userWithUid(*own->second) : std::nullopt;
  for (const Node& other : nodes_) {
    const auto found = other.uids.find(folded);
    if (found != other.uids.end())
      return found->second ? userWithUid(*found->second) : std::nullopt;
  }
  return std::nullopt;
}

Places AccountListing::nested(std::size_t group) const {
  Places found;
  for (const Guid& guid : groups_[group].nested) {
    const auto inner = groupsByGuid_.find(guid);
    if (inner != groupsByGuid_.end()) found.insert(inner->second);
  }
  return found;
}

HeldUsers AccountListing::heldBy(std::size_t group) {
  HeldUsers held;
  held.steps.push_back({group, std::nullopt});
  Places knownGroups{group};
  Places knownUsers;
  std::size_t begin = 0;
  for (std::size_t level = 0; level <= GroupMembership::kMostLevels; ++level) {
    const std::size_t end = held.steps.size();
    for (std::size_t step = begin; step < end; ++step) {
      for (const std::size_t user : members(held.steps[step].group))
        if (knownUsers.insert(user).second) held.users.push_back({user, step});
      for (const std::size_t inner : nested(held.steps[step].group))
        if (knownGroups.insert(inner).second) held.steps.push_back({inner, step});
    }
    begin = end;
  }
  return held;
}

}  // namespace paddock::effectiveprivs
