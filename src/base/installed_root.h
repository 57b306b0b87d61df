// The installation root of the running program.
#pragma once

#include <string>
#include <string_view>

namespace paddock {

// The path of the running executable; empty when it cannot be determined.
std::string runningExecutable();

// DIR for the executable DIR`place` ("/usr/sbin/paddockd"), so that an installed tree is
// relocatable; empty for `place` itself, which belongs to the system, and for every other
// executable.
std::string rootOfInstalled(const std::string& executable, std::string_view place);

}  // namespace paddock
