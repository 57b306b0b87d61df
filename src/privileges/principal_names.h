// Names of the users and groups that an ACL's entries are for.
//
// The search node is queried each time; nothing is cached. DirectoryErrors of the searches
// propagate.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/guid.h"

namespace paddock {

struct PrincipalName {
  std::string displayName;
  std::int64_t kind = 0;  // as "isUser" of ace_dictionary.h has it
};

// The full name, else the short name, of the user or group, found by its GUID or else by the id
// that the membership service has for it. A principal that neither knows has the GUID's text for a
// name and is of unknown kind.
PrincipalName principal_name(const Guid& guid);

// The full name, else the short name, of the record of the type with that decimal uid or gid.
std::optional<std::string> get_name_for_id(const std::string& id, const std::string& recordType);

}  // namespace paddock
