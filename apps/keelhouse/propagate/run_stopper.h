// Ends runs that push privileges down a folder.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "keelhouse/propagate/running_runs.h"

namespace paddock::keelhouse {

// Ends the run's process with SIGTERM, and waits until it has ended; nothing happens when it has
// ended already. Never another process: it is held before it is looked at. Throws Failure when it
// cannot be ended, or does not end within `patience`.
void stopRun(const std::string& root, const RunningRun& run,
             std::chrono::milliseconds patience = std::chrono::minutes(1));

}  // namespace paddock::keelhouse
