// Users, groups and permissions as people write them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "effectiveprivs/identity.h"
#include "platform/accounts.h"
#include "platform/acl.h"
#include "platform/group_membership.h"

namespace paddock::effectiveprivs {

// The words of keelhouse(8): "list" on a folder, "read-data" on a file, and so on.
const char* permissionName(acl::Permission permission, bool isFolder);

// The name, or the number where no account has it or it cannot be found out.
std::string userName(Accounts& accounts, std::uint32_t uid);
std::string groupName(Accounts& accounts, std::uint32_t gid);
// What the record says, else as above; the GUID of a group without a gid.
std::string groupName(Accounts& accounts, const HoldingGroup& group);

// "user:anna", "group:staff", "everyone", a GUID, a SID.
std::string subjectName(Accounts& accounts, const Subject& subject);

// The names of the groups from the one that holds the user by itself to the one with that index.
std::vector<std::string> wayTo(Accounts& accounts, const UserMembership& membership,
                               std::size_t group);

}  // namespace paddock::effectiveprivs
