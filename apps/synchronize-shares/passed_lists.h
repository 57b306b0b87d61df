// Whether a shared folder has inheritable lists, in an order that Samba can map to the kernel's
// ACLs.
#pragma once

#include <string>

namespace paddock::synchronizer {

// True when the folder at `path`, or one of the first 1,000 folders directly in it, has a list with
// entries that files or folders inherit, and when in none of these lists an inherited denial stands
// behind something allowed: Samba keeps such a list and leaves the kernel's as it is. A folder that
// cannot be read, and a list that does not decode, pass nothing on. `attribute` holds the lists.
bool passesListsOn(const std::string& path, const std::string& attribute);

}  // namespace paddock::synchronizer
