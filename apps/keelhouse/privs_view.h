// Privileges for people.
#pragma once

#include <string>

#include "base/value.h"
#include "keelhouse/principals.h"

namespace paddock::keelhouse {

// A line "property: value" for path, type, owner, group and mode, and the ACL: a table when it has
// entries, and why it could not be read when it could not.
std::string formatPrivileges(const Dictionary& privileges, Principals& principals);

}  // namespace paddock::keelhouse
