// Where the tree stands that the running program was installed in.
#pragma once

#include <string>
#include <string_view>

namespace paddock {

// The path of the running executable; empty when the system does not tell.
std::string runningExecutable();

// DIR for the executable DIR`place` ("/usr/sbin/paddockd"), so that an installed tree runs where it
// stands; empty for `place` itself, which belongs to the system, and for every other executable.
std::string rootOfInstalled(const std::string& executable, std::string_view place);

}  // namespace paddock
