#include "privileges/posix_privs.h"

#include "platform/accounts.h"
#include "platform/file_attributes.h"
#include "platform/services.h"

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

}  // namespace paddock
