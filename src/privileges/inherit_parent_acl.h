// The ACL that a path would have under its parent folder's inheritable entries.
#pragma once

#include <string>

#include "base/status.h"
#include "base/value.h"

namespace paddock {

// Appends to `entries`, an empty array, the path's own entries that were not inherited, then those
// of its parent folder that files inherit, marked as inherited; entry dictionaries, see
// ace_dictionary.h. Nothing is written. The statuses of get_acl.
Status inherit_parent_ACL(const std::string& path, Array& entries);

}  // namespace paddock
