// What a user may do with a folder, as the program that knows says.
#pragma once

#include <cstdint>
#include <string>

#include "base/status.h"

namespace paddock {

// Runs the program for the path and the user. 0 with the number that it printed, the permission
// bits of an access-control entry; otherwise `result` is left alone: -1 when the program is missing
// (which is logged) or wrote to standard error, or the status of running it.
Status get_effective_permissions(const std::string& path, std::uint32_t uid, std::int32_t& result);

}  // namespace paddock
