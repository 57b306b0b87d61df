#include "platform/linux/accounts/account_records.h"

#include <unordered_map>

#include "platform/directory.h"
#include "platform/directory_schema.h"

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

}  // namespace paddock
