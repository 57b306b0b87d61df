// Privileges for people.
#pragma once

#include <optional>
#include <string>

#include "base/value.h"
#include "keelhouse/access/folder_mode.h"
#include "keelhouse/access/principals.h"

namespace paddock::keelhouse {

// A line "property: value" for path, type, owner, group and mode, and the ACL: a table when it has
// entries, and why it could not be read when it could not. `all`: what the privileges have no place
// for, where it is known.
std::string formatPrivileges(const Dictionary& privileges, const std::optional<ModeAndIds>& all,
                             Principals& principals);

// Who can get in by the mode, without a full stop: "its owner root can read and change, the group
// staff can read and others cannot get in".
std::string accessByMode(const Dictionary& privileges);
// The same of a path that has no ACL, in one sentence.
std::string formatAccessByMode(const Dictionary& privileges);

}  // namespace paddock::keelhouse
