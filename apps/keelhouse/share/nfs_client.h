// An NFS client on the command line.
#pragma once

#include <string>

#include "base/value.h"

namespace paddock::keelhouse {

// CLIENT or CLIENT(OPTION,OPTION...) as {"host", "options"}. Throws Failure (usage) for a text of
// another form, and for one that a line of the exports file cannot hold.
Dictionary parseNfsClient(const std::string& text);

// The text of such a dictionary.
std::string formatNfsClient(const Dictionary& client);

}  // namespace paddock::keelhouse
