#include "store/backup/backup_group.h"

#include <optional>

#include "store/directory_access.h"
#include "store/schema.h"

namespace paddock {

namespace {

constexpr std::uint32_t kFirstNumber = 250;
constexpr std::uint32_t kLastNumber = 4294967294;
constexpr Status kUnknownFailure = -1;

void addValues(const Value& answer, std::unordered_set<std::string>& numbers) {
  const Dictionary* attributes = answer.dictionary();
  const Array* values =
      attributes != nullptr ? attributes->array(schema::kPrimaryGroupID) : nullptr;
  if (values == nullptr) return;
  for (const Value& value : *values) {
    if (value.string() != nullptr) numbers.insert(*value.string());
  }
}

// The numbers of all local groups in one search: one search for each number would take its time
// when thousands are taken.
Status takenNumbers(std::unordered_set<std::string>& numbers) {
  try {
    const Array answers = get_local_node()->findRecordNames(
        kRecordsAll, {schema::kPrimaryGroupID}, schema::kGroups, MatchType::caseInsensitiveExact);
    for (const Value& answer : answers) addValues(answer, numbers);
    return kSuccess;
  } catch (const DirectoryError& error) {
    // Without the numbers none is known to be free, whatever the error says of itself.
    const Status status = error.status().value_or(kUnknownFailure);
    return status != kSuccess ? status : kUnknownFailure;
  }
}

Status giveNumber(DirectoryRecord& group) {
  std::unordered_set<std::string> taken;
  if (const Status status = takenNumbers(taken); status != kSuccess) return status;
  const std::uint32_t number = first_free_group_number(taken, kFirstNumber, kLastNumber);
  group.setAttribute(schema::kPrimaryGroupID, std::to_string(number));
  return kSuccess;
}

}  // namespace

std::uint32_t first_free_group_number(const std::unordered_set<std::string>& taken,
                                      std::uint32_t first, std::uint32_t last) {
  std::uint32_t number = first;
  while (number < last && taken.contains(std::to_string(number))) ++number;
  return number;
}

Status require_backup_group() {
  DirectoryRecordPtr group;
  (void)get_local_ds_record_by_name(kBackupGroup, schema::kGroups, false, group);
  if (group == nullptr) {
    const Status status = get_local_ds_record_by_name(kBackupGroup, schema::kGroups, true, group);
    if (group == nullptr) return status;
  }
  // One without a number is what a creation left that did not come to its end.
  if (group->getAttributeFirstValue(schema::kPrimaryGroupID)) return kSuccess;
  return giveNumber(*group);
}

}  // namespace paddock
