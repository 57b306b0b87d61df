// ACLs for people.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/value.h"
#include "keelhouse/access/ace.h"
#include "keelhouse/access/folder_privileges.h"
#include "keelhouse/access/principals.h"

namespace paddock::keelhouse {

// Who an entry is about, as it can be typed.
std::string whoText(const Ace& ace, Principals& principals);

// The entry as it can be typed: "allow user:anna read,write:inherit".
std::string entryText(const Ace& ace, bool folder, Principals& principals);

// A numbered table of the entries, in their order: what each does, to whom, the rights, the
// inheritance, and the full name where it says more. Rights have their names for folders when
// `folder`.
std::string formatAclTable(const Array& acl, bool folder, Principals& principals);

// Privileges for people.

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
