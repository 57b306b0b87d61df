#include "store/backup/backup_folder.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <utility>

#include "base/value.h"
#include "platform/accounts.h"
#include "platform/acl.h"
#include "platform/logger.h"
#include "platform/services.h"
#include "platform/text_file.h"
#include "privileges/ace_dictionary.h"
#include "privileges/get_acl.h"
#include "privileges/module_logger.h"
#include "privileges/set_acl.h"
#include "protocol/keys.h"
#include "store/directory_access.h"

namespace paddock {

namespace {

constexpr const char* kMarkerName = ".com.veltro.backstow.supported";
constexpr Status kMarkerStays = -1;

// A relative path would be one of the daemon's own working folder.
bool canHoldMarker(const std::string& folder) {
  return folder.starts_with('/') && folder.find('\0') == std::string::npos;
}

// Of a path that leads nowhere, nothing is left to remove.
bool meansNothingIsThere(int error) {
  return error == ENOENT || error == ENOTDIR || error == ENAMETOOLONG || error == ELOOP;
}

std::string markerPath(const std::string& folder) {
  return folder.substr(0, folder.find_last_not_of('/') + 1) + "/" + kMarkerName;
}

}  // namespace

Status delete_backup_marker_for_path(const std::string& path) {
  if (!canHoldMarker(path)) return kSuccess;
  const int error = services().textFiles->removeFile(path, kMarkerName);
  if (error == 0 || meansNothingIsThere(error)) return kSuccess;
  // Behind a link that is not followed for a removal, as a rule there is none either.
  if (error == EACCES && !services().textFiles->exists(markerPath(path))) return kSuccess;
  services().logger->log(kLogError,
                         "paddock_sharing: Couldn't delete backup share point marker at " +
                             markerPath(path) + "\nerror: " + sharing_error_string(error));
  return kMarkerStays;
}

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

namespace {

constexpr const char* kFunction = "set_backup_permissions_for_path";
constexpr std::size_t kGroupBufferSize = 200;
constexpr Status kGroupNotKnown = -1;
constexpr std::int64_t kBackupPermissions =
    acl::kReadData | acl::kWriteData | acl::kExecute | acl::kAppendData | acl::kDeleteChild;
static_assert(kBackupPermissions == 110);

bool isBackupEntry(const Value& entry) {
  const Dictionary* dictionary = entry.dictionary();
  const std::string* name =
      dictionary != nullptr ? dictionary->string(protocol::kDisplayName) : nullptr;
  return name != nullptr && *name == kBackupGroup &&
         dictionary->integer(ace::kBitmap) == kBackupPermissions;
}

Dictionary backupEntry(std::uint32_t gid) {
  return {{protocol::kDisplayName, kBackupGroup},
          {protocol::kGroupID, gid},
          {protocol::kAllowPermission, ace::kAllow},
          {ace::kBitmap, kBackupPermissions},
          {ace::kFlags, 0},
          {protocol::kIsUser, ace::kGroupKind}};
}

// Reading takes a list that cannot be read for one that is not there; it must not be replaced by
// one of a single entry. 0 when there really are no entries.
int whyNoEntries(const std::string& path) {
  acl::AclService& service = *services().acl;
  acl::List* const read = service.acl_get_file(path, acl::kTypeExtended);
  const int error = read == nullptr ? errno : 0;
  const OwnedAcl list(read, kFunction);
  if (!list) return error == ENOENT ? 0 : error;
  acl::Entry* entry = nullptr;
  return service.acl_get_entry(list.get(), acl::kFirstEntry, entry) == 0 ? EAGAIN : 0;
}

void addBackupEntry(const std::string& path, std::uint32_t gid, Array entries) {
  if (const int error = entries.empty() ? whyNoEntries(path) : 0; error != 0) {
    get_logger(kFunction).log(
        kLogError, "the ACL of " + path +
                       " stays as it is, since it cannot be read: " + sharing_error_string(error));
    return;
  }
  entries.insert(entries.begin(), backupEntry(gid));
  (void)set_acl(path, entries);
}

}  // namespace

Status set_backup_permissions_for_path(const std::string& path) {
  Array entries;
  if (const Status status = get_acl(path, entries); status != kSuccess) return status;
  if (const Status status = require_backup_group(); status != kSuccess) return status;
  std::uint32_t gid = 0;
  if (services().accounts->getgrnam_r(kBackupGroup, kGroupBufferSize, gid) != 0) {
    return kGroupNotKnown;
  }
  if (std::any_of(entries.begin(), entries.end(), isBackupEntry)) return kSuccess;
  addBackupEntry(path, gid, std::move(entries));
  return kSuccess;
}

}  // namespace paddock
