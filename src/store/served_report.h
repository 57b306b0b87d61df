// What became of share points that were written, as the services that publish them say.
#pragma once

#include <vector>

#include "store/share_point_record.h"

namespace paddock {

// Asks the plug-in paddock_services of each and logs a line for each: information when it is
// served, a warning when it is not or cannot be known. Call it with the settings lock free: the
// servers take their time. What goes wrong is logged; never throws.
void log_what_is_served(const std::vector<SharePointRecord>& sharePoints);

}  // namespace paddock
