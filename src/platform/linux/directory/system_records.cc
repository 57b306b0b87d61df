#include "platform/linux/directory/system_records.h"

#include <algorithm>
#include <limits>

#include "base/guid.h"
#include "base/text.h"
#include "platform/directory.h"
#include "platform/linux/accounts/nss.h"

namespace paddock {

namespace {

void add(SystemRecord& record, const char* attribute, std::vector<std::string> values) {
  std::erase_if(values,
                [](const std::string& text) { return text.empty() || !isDirectoryText(text); });
  if (!values.empty()) record.push_back({attribute, std::move(values)});
}

// Absent when the name is not text, as no such record can be named.
std::optional<SystemRecord> named(const std::string& name, const char* type) {
  if (name.empty() || !isDirectoryText(name)) return std::nullopt;
  return SystemRecord{{schema::kRecordName, {name}}, {schema::kRecordType, {type}}};
}

std::optional<SystemRecord> recordOf(const NssUser& user) {
  auto record = named(user.name, schema::kUsers);
  if (!record) return record;
  add(*record, schema::kRealName, {user.comment.substr(0, user.comment.find(','))});
  add(*record, schema::kUniqueID, {std::to_string(user.uid)});
  add(*record, schema::kPrimaryGroupID, {std::to_string(user.gid)});
  add(*record, schema::kGeneratedUID, {guidText(computedGuid({PrincipalType::user, user.uid}))});
  add(*record, schema::kHomeDirectory, {user.home});
  add(*record, schema::kUserShell, {user.shell});
  return record;
}

std::optional<SystemRecord> recordOf(const NssGroup& group) {
  auto record = named(group.name, schema::kGroups);
  if (!record) return record;
  add(*record, schema::kPrimaryGroupID, {std::to_string(group.gid)});
  add(*record, schema::kGeneratedUID, {guidText(computedGuid({PrincipalType::group, group.gid}))});
  add(*record, schema::kGroupMembership, group.members);
  return record;
}

template <typename Entry>
std::optional<SystemRecord> recordOf(const std::optional<Entry>& entry) {
  return entry ? recordOf(*entry) : std::nullopt;
}

template <typename Entry>
std::vector<SystemRecord> recordsOf(const std::vector<Entry>& entries) {
  std::vector<SystemRecord> records;
  for (const Entry& entry : entries)
    if (auto record = recordOf(entry)) records.push_back(std::move(*record));
  return records;
}

PrincipalType principalType(const std::string& type) {
  return type == schema::kUsers ? PrincipalType::user : PrincipalType::group;
}

// An id in the one form in which records carry it.
std::optional<std::uint32_t> idIn(const std::string& text) {
  const auto number = parseInteger(text);
  if (!number || *number < 0 || *number > std::numeric_limits<std::uint32_t>::max())
    return std::nullopt;
  if (std::to_string(*number) != text) return std::nullopt;
  return static_cast<std::uint32_t>(*number);
}

std::optional<std::uint32_t> idIn(const std::string& type, const std::string& attribute,
                                  const std::string& value) {
  if (attribute != schema::kGeneratedUID) return idIn(value);
  const auto guid = parseGuid(value);
  const auto principal = guid ? computedPrincipal(*guid) : std::nullopt;
  if (!principal || principal->type != principalType(type)) return std::nullopt;
  return principal->id;
}

}  // namespace

bool isSystemType(const std::string& type) {
  return type == schema::kUsers || type == schema::kGroups;
}

std::vector<SystemRecord> systemRecords(const std::string& type) {
  return type == schema::kUsers ? recordsOf(nssUsers()) : recordsOf(nssGroups());
}

std::optional<SystemRecord> systemRecordByName(const std::string& type, const std::string& name) {
  if (name.empty() || !isDirectoryText(name)) return std::nullopt;
  auto record = type == schema::kUsers ? recordOf(nssUser(name)) : recordOf(nssGroup(name));
  // A service of the switch may take another spelling for the name.
  if (!record || record->front().values.front() != name) return std::nullopt;
  return record;
}

bool isSystemKey(const std::string& type, const std::string& attribute) {
  return attribute == schema::kGeneratedUID ||
         attribute == (type == schema::kUsers ? schema::kUniqueID : schema::kPrimaryGroupID);
}

std::optional<SystemRecord> systemRecordByKey(const std::string& type, const std::string& attribute,
                                              const std::string& value) {
  const auto id = idIn(type, attribute, value);
  if (!id) return std::nullopt;
  return type == schema::kUsers ? recordOf(nssUser(uid_t{*id})) : recordOf(nssGroup(gid_t{*id}));
}

}  // namespace paddock
