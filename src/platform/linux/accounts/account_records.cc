#include "platform/linux/accounts/account_records.h"

#include <limits>
#include <unordered_map>

#include "base/text.h"
#include "platform/directory.h"

namespace paddock {

namespace {

std::vector<std::string> valuesOf(const Dictionary& record, const char* attribute) {
  std::vector<std::string> texts;
  if (const Array* values = record.array(attribute)) {
    for (const Value& value : *values) texts.push_back(*value.string());
  }
  return texts;
}

std::optional<std::string> firstOf(const Dictionary& record, const char* attribute) {
  const Array* values = record.array(attribute);
  return values != nullptr ? std::optional(*values->front().string()) : std::nullopt;
}

UserRecord userOf(const Dictionary& record) {
  return {valuesOf(record, schema::kRecordName),
          firstOf(record, schema::kUniqueID),
          firstOf(record, schema::kPrimaryGroupID),
          firstOf(record, schema::kRealName),
          firstOf(record, schema::kHomeDirectory),
          firstOf(record, schema::kUserShell),
          std::nullopt};
}

GroupRecord groupOf(const Dictionary& record) {
  return {valuesOf(record, schema::kRecordName), firstOf(record, schema::kPrimaryGroupID),
          valuesOf(record, schema::kGroupMembership)};
}

}  // namespace

AccountRecords readAccountRecords(LocalStore& store) {
  AccountRecords records;
  const auto hashes = store.passwordHashes();
  const Array users =
      store.recordsWithName(kRecordsAll,
                            {schema::kRecordName, schema::kUniqueID, schema::kPrimaryGroupID,
                             schema::kRealName, schema::kHomeDirectory, schema::kUserShell},
                            schema::kUsers);
  for (const Value& answer : users) {
    UserRecord user = userOf(*answer.dictionary());
    if (user.names.empty()) continue;
    const auto hash = hashes.find(user.names.front());
    if (hash != hashes.end()) user.passwordHash = hash->second;
    records.users.push_back(std::move(user));
  }
  const Array groups = store.recordsWithName(
      kRecordsAll, {schema::kRecordName, schema::kPrimaryGroupID, schema::kGroupMembership},
      schema::kGroups);
  for (const Value& answer : groups) {
    GroupRecord group = groupOf(*answer.dictionary());
    if (!group.names.empty()) records.groups.push_back(std::move(group));
  }
  return records;
}

namespace {

// The field that starts the text, which is cut off it with its colon.
std::string_view takeField(std::string_view& line) {
  const std::size_t colon = line.find(':');
  const std::string_view field = line.substr(0, colon);
  line = colon == std::string_view::npos ? std::string_view() : line.substr(colon + 1);
  return field;
}

}  // namespace

void AccountLinesIndex::add(std::string_view lines) {
  while (!lines.empty()) {
    const std::size_t end = lines.find('\n');
    std::string_view line = lines.substr(0, end);
    lines = end == std::string_view::npos ? std::string_view() : lines.substr(end + 1);
    const std::string_view name = takeField(line);
    takeField(line);
    const auto id = parseInteger(takeField(line));
    if (name.empty() || name.find_first_of("#+-") == 0) continue;
    if (!id || *id < 0 || *id > std::numeric_limits<std::uint32_t>::max()) continue;
    byName_.try_emplace(std::string(name), static_cast<std::uint32_t>(*id));
    ids_.insert(static_cast<std::uint32_t>(*id));
  }
}

std::optional<std::uint32_t> AccountLinesIndex::idOf(const std::string& name) const {
  const auto found = byName_.find(name);
  return found != byName_.end() ? std::optional(found->second) : std::nullopt;
}

}  // namespace paddock
