// ACLs for people.
#pragma once

#include <string>
#include <vector>

#include "base/value.h"
#include "keelhouse/access/ace.h"
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

}  // namespace paddock::keelhouse
