// The space that a group takes where getgrnam_r(3) puts it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace paddock {

// The smallest buffer, in bytes, that the C library finds a group of /etc/group in: its line with
// the end of it, and behind that, aligned, the vector of its members' names.
std::size_t groupEntrySize(const std::string& name, std::uint32_t gid,
                           const std::vector<std::string>& members);

}  // namespace paddock
