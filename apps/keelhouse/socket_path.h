// Where the daemon listens.
#pragma once

#include <string>

namespace paddock::keelhouse {

// The folder that this program's paths are taken below, from where its executable stands: DIR for
// DIR/usr/sbin/keelhouse, empty for /usr/sbin/keelhouse and for every other place.
std::string rootOfExecutable(const std::string& executable);

// The path of the running executable; empty when the system does not tell.
std::string runningExecutable();

// The administration socket of the tree below `root` (empty or "/": of the system).
std::string socketBelow(std::string root);

// Whether the system takes a socket path of this length.
bool fitsSocketAddress(const std::string& path);

}  // namespace paddock::keelhouse
