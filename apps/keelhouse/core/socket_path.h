// The socket that the daemon listens on.
#pragma once

#include <optional>
#include <string>

namespace paddock::keelhouse {

// The administration socket of the tree below `root` (empty or "/": of the system).
std::string socketBelow(std::string root);

// The tree whose administration socket it is; absent for a socket in another place.
std::optional<std::string> rootOfSocket(const std::string& path);

// Whether the system takes a socket path of this length.
bool fitsSocketAddress(const std::string& path);

}  // namespace paddock::keelhouse
