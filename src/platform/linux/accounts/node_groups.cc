#include "platform/linux/accounts/node_groups.h"

#include <algorithm>

#include "base/text.h"
#include "platform/directory_schema.h"
#include "platform/linux/accounts/account_answers.h"

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

}  // namespace paddock
