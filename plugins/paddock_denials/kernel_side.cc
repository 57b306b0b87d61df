#include "paddock_denials/kernel_side.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "base/system_call.h"
#include "platform/directory.h"
#include "platform/linux/accounts/nss.h"
#include "platform/linux/accounts/user_groups.h"
#include "platform/linux/acl/kernel_access.h"
#include "platform/linux/privileges/file_mode.h"

namespace paddock {

namespace {

int readAccess(int object, mode_t mode, posix_acl::Acl& acl) {
  AccessAcl access;
  const int error = readAccessAcl(linuxExtendedAttributes(), object, access);
  if (error != 0) return error;
  const auto decoded = access.value ? posix_acl::decode(*access.value) : std::nullopt;
  acl = aclInForce(decoded, mode);
  return 0;
}

int readInherited(int object, std::optional<posix_acl::Acl>& acl) {
  std::string value;
  const int error = linuxExtendedAttributes().get(object, posix_acl::kDefaultAttribute, value);
  if (error == ENODATA || error == EOPNOTSUPP) return 0;
  if (error == 0) acl = posix_acl::decode(value);
  return error;
}

Person personOf(const NssUser& user) {
  Person person{user.uid, user.name, {}};
  NssUserGroups groups;
  const int error = groups.groupsOf(user.uid, person.gids);
  if (error != 0) throw DirectoryError(error, "the groups of " + user.name + " cannot be found");
  return person;
}

}  // namespace

int readKernelSide(const std::string& path, KernelSide& kernel) {
  kernel = {};
  FileDescriptor object;
  if (const int error = openObject(path, object); error != 0) return error;
  struct stat status {};
  if (const int error = errnoOf([&] { return ::fstat(object.get(), &status); }); error != 0) {
    return error;
  }
  kernel.owner = status.st_uid;
  kernel.group = status.st_gid;
  const int error = readAccess(object.get(), status.st_mode, kernel.access);
  if (error != 0 || !S_ISDIR(status.st_mode)) return error;
  return readInherited(object.get(), kernel.inherited);
}

std::vector<Person> membersOfGroup(std::uint32_t gid) {
  std::vector<Person> members;
  const auto add = [&](const NssUser& user) {
    const bool isKnown = std::any_of(members.begin(), members.end(),
                                     [&](const Person& one) { return one.uid == user.uid; });
    if (user.uid != 0 && !isKnown) members.push_back(personOf(user));
  };
  if (const auto group = nssGroup(gid)) {
    for (const std::string& name : group->members) {
      if (const auto user = nssUser(name)) add(*user);
    }
  }
  for (const NssUser& user : nssUsers()) {
    if (user.gid == gid) add(user);
  }
  std::sort(members.begin(), members.end(),
            [](const Person& left, const Person& right) { return left.name < right.name; });
  return members;
}

}  // namespace paddock
