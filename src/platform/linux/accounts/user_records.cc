#include "platform/linux/accounts/user_records.h"

#include <algorithm>

#include "base/guid.h"
#include "platform/directory.h"
#include "platform/linux/accounts/account_searches.h"
#include "platform/linux/process/case_fold.h"

namespace paddock {

namespace {

constexpr auto kExact = MatchType::caseInsensitiveExact;

std::vector<std::string> namesIn(const Value& answer) {
  std::vector<std::string> names;
  const Array* values = answer.dictionary()->array(schema::kRecordName);
  if (values == nullptr) return names;
  for (const Value& value : *values)
    if (value.string() != nullptr) names.push_back(*value.string());
  return names;
}

// Adds what matches none of those that are there.
void addNames(std::vector<std::string>& names, const std::vector<std::string>& more) {
  for (const std::string& name : more) {
    const bool known = std::any_of(names.begin(), names.end(), [&](const std::string& one) {
      return caseFold(one) == caseFold(name);
    });
    if (!known) names.push_back(name);
  }
}

}  // namespace

UserRecords::UserRecords(std::vector<std::shared_ptr<DirectoryNode>> nodes, std::uint32_t uid)
    : nodes_(std::move(nodes)), uid_(uid) {
  for (std::size_t node = 0; node < nodes_.size(); ++node) {
    for (const Value& answer : nodes_[node]->findRecordsOfTypes({schema::kUsers}, schema::kUniqueID,
                                                                std::to_string(uid_), kExact)) {
      if (firstId(answer, schema::kUniqueID) != uid_) continue;
      records_.push_back({node, namesIn(answer), firstGuid(answer, schema::kGeneratedUID),
                          firstId(answer, schema::kPrimaryGroupID)});
      addNames(names_, records_.back().names);
    }
  }
}

std::vector<Guid> UserRecords::guids() const {
  std::vector<Guid> guids;
  const auto add = [&guids](const Guid& guid) {
    if (std::find(guids.begin(), guids.end(), guid) == guids.end()) guids.push_back(guid);
  };
  for (const NodeUser& record : records_)
    if (record.guid) add(*record.guid);
  add(computedGuid({PrincipalType::user, uid_}));
  return guids;
}

std::vector<std::string> UserRecords::namesOn(std::size_t node) {
  std::vector<std::string> names;
  for (const std::string& name : names_)
    if (meansUser(node, name)) names.push_back(name);
  return names;
}

bool UserRecords::meansUser(std::size_t node, const std::string& name) {
  if (const auto own = isOwnName(node, name)) return *own;
  for (std::size_t other = 0; other < nodes_.size(); ++other)
    if (const auto own = isOwnName(other, name)) return *own;
  return false;
}

std::optional<bool> UserRecords::isOwnName(std::size_t node, const std::string& name) {
  const auto [asked, isNew] = asked_.try_emplace({node, name});
  if (!isNew) return asked->second;
  const Array answers =
      nodes_[node]->findRecordNames(name, {schema::kUniqueID}, schema::kUsers, kExact);
  if (!answers.empty())
    asked->second = firstId(answers.front(), schema::kUniqueID) == std::optional(uid_);
  return asked->second;
}

}  // namespace paddock
