// Amounts of bytes for people.
#pragma once

#include <cstdint>
#include <string>

namespace paddock::keelhouse {

// "512 B", "1.5 KiB", "12 MiB": of the largest unit that gives at least 1, with one digit behind
// the point below 10, rounded to the nearest.
std::string formatSize(std::uint64_t bytes);

}  // namespace paddock::keelhouse
