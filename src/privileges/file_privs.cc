#include "privileges/file_privs.h"

#include <charconv>
#include <optional>
#include <utility>

#include "base/text.h"
#include "platform/accounts.h"
#include "platform/file_attributes.h"
#include "platform/logger.h"
#include "platform/services.h"
#include "privileges/get_acl.h"
#include "privileges/set_acl.h"
#include "protocol/keys.h"

namespace paddock {

namespace {

std::optional<std::string> unlessEmpty(const std::string* name) {
  if (name == nullptr || name->empty()) return std::nullopt;
  return *name;
}

bool userExists(const std::string& name) {
  std::uint32_t uid = 0;
  return services().accounts->getpwnam(name, uid) == 0;
}

bool groupExists(const std::string& name) {
  std::uint32_t gid = 0;
  return services().accounts->getgrnam(name, gid) == 0;
}

}  // namespace

Status get_posix_privs(const std::string& path, std::string& owner, std::string& group,
                       std::optional<std::uint32_t>& permissions,
                       std::optional<std::string>& fileType, int* error) {
  FileAttributes attributes;
  const int refused = services().fileAttributes->read(path, attributes);
  if (error != nullptr) *error = refused;
  if (refused != 0) return CANNOT_STAT_ERR;
  owner = attributes.ownerName.value_or("");
  group = attributes.groupName.value_or("");
  permissions = attributes.permissions;
  fileType = attributes.type;
  return kSuccess;
}

Status set_posix_privs(const std::string& path, const std::string* owner, const std::string* group,
                       std::optional<std::uint32_t> permissions, int* error) {
  const FileAttributeChanges changes{unlessEmpty(owner), unlessEmpty(group), permissions};
  if (changes.ownerName && !userExists(*changes.ownerName)) return USER_NOT_FOUND_ERR;
  if (changes.groupName && !groupExists(*changes.groupName)) return GROUP_NOT_FOUND_ERR;
  // An empty set of changes is applied as well, so that a missing path is noticed.
  const int refused = services().fileAttributes->apply(path, changes);
  if (error != nullptr) *error = refused;
  return refused == 0 ? kSuccess : CANNOT_CHANGE_PRIVS_ERR;
}

namespace {

constexpr const char* kOwnerKey = "owner";
constexpr const char* kGroupKey = "group";
constexpr const char* kPrivsKey = "privs";
constexpr const char* kAclKey = "acl";
constexpr const char* kPathKey = "path";

constexpr std::size_t kModeDigits = 3;
constexpr std::uint32_t kModeBits = 0777;
constexpr int kOctal = 8;

std::string octalDigits(std::uint32_t permissions) {
  std::string digits(kModeDigits, '0');
  std::uint32_t rest = permissions & kModeBits;
  for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit) {
    *digit = static_cast<char>('0' + rest % kOctal);
    rest /= kOctal;
  }
  return digits;
}

void logError(const std::string& text) {
  services().logger->log(kLogError, "paddock_sharing: " + text);
}

Status readPosixPrivs(const std::string& path, Dictionary& privileges) {
  if (!services().fileAttributes->exists(path)) return FILE_NOT_FOUND_ERR;
  std::string owner;
  std::string group;
  std::optional<std::uint32_t> permissions;
  std::optional<std::string> fileType;
  int error = 0;
  const Status status = get_posix_privs(path, owner, group, permissions, fileType, &error);
  if (status != kSuccess) {
    logError("The owner, group and mode of " + path +
             " cannot be read: " + sharing_error_string(error));
    return status;
  }
  privileges.set(kOwnerKey, std::move(owner));
  privileges.set(kGroupKey, std::move(group));
  if (fileType) privileges.set(protocol::kFileType, std::move(*fileType));
  if (permissions) privileges.set(kPrivsKey, octalDigits(*permissions));
  return kSuccess;
}

// Deliberate: three characters whose start is octal are a mode, so that "7x9" is mode 7.
std::optional<std::uint32_t> modeIn(const std::string* privs) {
  if (privs == nullptr || utf8Length(*privs) != kModeDigits) return std::nullopt;
  std::uint32_t mode = 0;
  const char* end = privs->data() + privs->size();
  if (std::from_chars(privs->data(), end, mode, kOctal).ec != std::errc()) return std::nullopt;
  return mode;
}

Status writePosixPrivs(const std::string& path, const Dictionary& privileges) {
  const std::string* owner = privileges.string(kOwnerKey);
  const std::string* group = privileges.string(kGroupKey);
  int error = 0;
  const Status status =
      set_posix_privs(path, owner, group, modeIn(privileges.string(kPrivsKey)), &error);
  if (status == kSuccess) return status;
  std::string reason = reasonOfRefusal(*services().fileAttributes, path, error);
  if (status == USER_NOT_FOUND_ERR) reason = "there is no user " + *owner;
  if (status == GROUP_NOT_FOUND_ERR) reason = "there is no group " + *group;
  logError("The owner, group and mode of " + path + " were not set: " + reason);
  return status;
}

}  // namespace

Status read_file_privs(const std::string& path, Dictionary& privileges) {
  privileges = {};
  if (const Status status = readPosixPrivs(path, privileges); status != kSuccess) {
    privileges.set(protocol::kPosixErr, sharing_error_string(status));
  }
  Array acl;
  if (const Status status = get_acl(path, acl); status != kSuccess) {
    privileges.set(protocol::kAclErr, sharing_error_string(status));
  } else {
    privileges.set(kAclKey, std::move(acl));
  }
  privileges.set(kPathKey, path);
  return kSuccess;
}

Status write_file_privs(const std::string& path, const Dictionary& privileges) {
  const Status posixStatus = writePosixPrivs(path, privileges);
  const Array* acl = privileges.array(kAclKey);
  const Status aclStatus = acl != nullptr ? set_acl(path, *acl) : kSuccess;
  return aclStatus != kSuccess ? aclStatus : posixStatus;
}

}  // namespace paddock
