// Extended ACLs of real files, with a membership service and groups of a test's own.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/linux/accounts/user_groups.h"
#include "platform/linux/acl/posix_acl.h"
#include "platform/linux/acl/principal_sids.h"
#include "platform/linux/files/file_object.h"
#include "platform/linux/privileges/file_acls.h"
#include "platform/testing/in_memory_membership.h"

namespace paddock {

// Groups of users that need not exist.
class ListedGroups final : public UserGroups {
 public:
  std::map<std::uint32_t, std::vector<std::uint32_t>> groups;
  int error = 0;

  int groupsOf(std::uint32_t uid, std::vector<std::uint32_t>& gids) override {
    gids.clear();
    if (error != 0) return error;
    const auto found = groups.find(uid);
    if (found != groups.end()) gids = found->second;
    std::sort(gids.begin(), gids.end());
    return 0;
  }
};

struct FileAclWorld {
  explicit FileAclWorld(FileAclOptions options = {},
                        const ExtendedAttributes& attributes = linuxExtendedAttributes())
      : acls(std::move(options), sids, membership, groups, attributes) {}

  InMemoryMembership membership;
  PrincipalSids sids{membership, ""};
  ListedGroups groups;
  FileAcls acls;
};

// An attribute of the object at the path, links followed; absent when it has none. What cannot be
// read throws.
inline std::optional<std::string> attributeOf(const std::string& path, const std::string& name) {
  FileDescriptor object;
  std::string value;
  int error = openObject(path, object);
  if (error == 0) error = linuxExtendedAttributes().get(object.get(), name, value);
  if (error == ENODATA) return std::nullopt;
  if (error != 0) throw std::system_error(error, std::generic_category(), name + " of " + path);
  return value;
}

// The errno of setting it.
inline int setAttribute(const std::string& path, const std::string& name,
                        const std::string& value) {
  FileDescriptor object;
  const int error = openObject(path, object);
  return error != 0 ? error : linuxExtendedAttributes().set(object.get(), name, value);
}

// The kernel's ACL of that name; absent when there is none, or none that decodes.
inline std::optional<posix_acl::Acl> posixAclOf(const std::string& path, const char* name) {
  const auto value = attributeOf(path, name);
  return value ? posix_acl::decode(*value) : std::nullopt;
}

// Why files in the folder cannot have lists in the attribute; empty when they can.
inline std::string whyNoLists(const std::string& folder,
                              const std::string& attribute = FileAclOptions{}.attribute) {
  const int error = setAttribute(folder, attribute, "probe");
  if (error != 0) return attribute + " cannot be written here: " + std::strerror(error);
  FileDescriptor object;
  openObject(folder, object);
  linuxExtendedAttributes().remove(object.get(), attribute);
  return "";
}

// Why the kernel takes no ACLs in the folder.
inline std::string whyNoPosixAcls(const std::string& folder) {
  const int error = [&] {
    try {
      attributeOf(folder, posix_acl::kAccessAttribute);
      return 0;
    } catch (const std::system_error& failure) {
      return failure.code().value();
    }
  }();
  return error == 0 ? "" : std::string("no POSIX ACLs here: ") + std::strerror(error);
}

}  // namespace paddock
