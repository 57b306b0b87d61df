// Paths for a status file.
#pragma once

#include <cstddef>
#include <string>

namespace paddock::copyprivs {

// How much of a property list a path may take.
inline constexpr std::size_t kLongestPath = 4096;

// The path, with "..." in place of its middle when it would take more than that.
std::string shortPath(const std::string& path);

}  // namespace paddock::copyprivs
