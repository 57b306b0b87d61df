// Where the daemon listens.
#pragma once

#include <string>

namespace paddock::keelhouse {

// The administration socket of the tree below `root` (empty or "/": of the system).
std::string socketBelow(std::string root);

// Whether the system takes a socket path of this length.
bool fitsSocketAddress(const std::string& path);

}  // namespace paddock::keelhouse
