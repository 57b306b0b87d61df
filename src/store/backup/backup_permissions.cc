#include "store/backup/backup_permissions.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <utility>

#include "base/value.h"
#include "platform/accounts.h"
#include "platform/acl.h"
#include "platform/logger.h"
#include "platform/services.h"
#include "privileges/ace_dictionary.h"
#include "privileges/get_acl.h"
#include "privileges/module_logger.h"
#include "privileges/owned_acl.h"
#include "privileges/set_acl.h"
#include "store/backup/backup_group.h"

namespace paddock {

namespace {

constexpr const char* kFunction = "set_backup_permissions_for_path";
constexpr std::size_t kGroupBufferSize = 200;
constexpr Status kGroupNotKnown = -1;
constexpr std::int64_t kBackupPermissions =
    acl::kReadData | acl::kWriteData | acl::kExecute | acl::kAppendData | acl::kDeleteChild;
static_assert(kBackupPermissions == 110);

bool isBackupEntry(const Value& entry) {
  const Dictionary* dictionary = entry.dictionary();
  const std::string* name = dictionary != nullptr ? dictionary->string(ace::kDisplayName) : nullptr;
  return name != nullptr && *name == kBackupGroup &&
         dictionary->integer(ace::kBitmap) == kBackupPermissions;
}

Dictionary backupEntry(std::uint32_t gid) {
  return {{ace::kDisplayName, kBackupGroup},
          {ace::kGroupID, gid},
          {ace::kAllowPermission, ace::kAllow},
          {ace::kBitmap, kBackupPermissions},
          {ace::kFlags, 0},
          {ace::kIsUser, ace::kGroupKind}};
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
