// Users and groups through the name service switch. Thread-safe. Failures of the switch are thrown
// as DirectoryError with the errno; an unknown name or id is nullopt.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/path_use.h"

namespace paddock {

struct NssUser {
  std::string name;
  std::string comment;
  std::string home;
  std::string shell;
  uid_t uid = 0;
  gid_t gid = 0;
};

struct NssGroup {
  std::string name;
  std::vector<std::string> members;
  gid_t gid = 0;
};

std::optional<NssUser> nssUser(const std::string& name);
std::optional<NssUser> nssUser(uid_t uid);
std::optional<NssGroup> nssGroup(const std::string& name);
std::optional<NssGroup> nssGroup(gid_t gid);
// textOf of the link with its owner's name, or with the uid where that is unknown. Never throws
// errors of the switch.
std::string textWithOwner(RefusedLink link);
// The group's id, looked up with a buffer of exactly that many bytes: throws ERANGE when it is too
// small.
std::optional<gid_t> nssGroupId(const std::string& name, std::size_t bufferSize);

// Every one that the switch enumerates, in its order.
std::vector<NssUser> nssUsers();
std::vector<NssGroup> nssGroups();

}  // namespace paddock
