// The permissions that the kernel enforces, and the members of groups, queried from this host.
#pragma once

#include <string>
#include <vector>

#include "paddock_denials/group_denials.h"

namespace paddock {

// 0 or an errno; links followed.
int readKernelSide(const std::string& path, KernelSide& kernel);

// Who is in the group: those that it names, and those of the accounts that the name service
// enumerates whose own group it is; each with all groups. Throws DirectoryError when the name
// service cannot answer.
std::vector<Person> membersOfGroup(std::uint32_t gid);

}  // namespace paddock
