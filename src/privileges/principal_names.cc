#include "privileges/principal_names.h"

#include <vector>

#include "platform/directory.h"
#include "platform/directory_values.h"
#include "platform/membership.h"
#include "platform/services.h"
#include "privileges/ace_dictionary.h"

namespace paddock {

namespace {

Array search(const std::vector<std::string>& types, const std::string& attribute,
             const std::string& value) {
  const auto session = services().directory->openLocal();
  return session->searchNode()->findRecordsOfTypes(types, attribute, value,
                                                   MatchType::caseInsensitiveExact);
}

const std::string* nameIn(const Dictionary& record) {
  const std::string* name = firstValue(record, schema::kRealName);
  return name != nullptr ? name : firstValue(record, schema::kRecordName);
}

const Dictionary* firstRecord(const Array& records) {
  return records.empty() ? nullptr : records.front().dictionary();
}

std::optional<PrincipalName> nameByRecord(const std::string& text) {
  const Array found = search({schema::kUsers, schema::kGroups}, schema::kGeneratedUID, text);
  const Dictionary* record = firstRecord(found);
  if (record == nullptr) return std::nullopt;
  const bool user = firstText(*record, schema::kRecordType) == schema::kUsers;
  // A record without any name leaves the principal unknown.
  const std::string* name = nameIn(*record);
  return name != nullptr ? PrincipalName{*name, user ? ace::kUserKind : ace::kGroupKind}
                         : PrincipalName{text, ace::kUnknownKind};
}

std::optional<PrincipalName> nameByMembership(const Guid& guid) {
  std::uint32_t id = 0;
  PrincipalType type = PrincipalType::user;
  if (services().membership->guidToId(guid, id, type) != 0) return std::nullopt;
  const bool user = type == PrincipalType::user;
  const auto name = get_name_for_id(std::to_string(id), user ? schema::kUsers : schema::kGroups);
  if (!name) return std::nullopt;
  return PrincipalName{*name, user ? ace::kUserKind : ace::kGroupKind};
}

}  // namespace

PrincipalName principal_name(const Guid& guid) {
  const std::string text = guidText(guid);
  if (auto known = nameByRecord(text)) return *known;
  if (auto known = nameByMembership(guid)) return *known;
  return {text, ace::kUnknownKind};
}

std::optional<std::string> get_name_for_id(const std::string& id, const std::string& recordType) {
  const char* attribute =
      recordType == schema::kUsers ? schema::kUniqueID : schema::kPrimaryGroupID;
  const Array found = search({recordType}, attribute, id);
  const Dictionary* record = firstRecord(found);
  const std::string* name = record != nullptr ? nameIn(*record) : nullptr;
  return name != nullptr ? std::optional(*name) : std::nullopt;
}

}  // namespace paddock
