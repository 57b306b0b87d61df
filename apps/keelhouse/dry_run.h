// What a run would change, found out by the daemon's program without changing anything.
#pragma once

#include <cstdint>
#include <string>

#include "base/value.h"
#include "keelhouse/session.h"

namespace paddock::keelhouse {

// Runs the program of the session's tree on the folder, shows the progress, and gives its last
// status. Needs root. Throws Failure when the program cannot be run or says nothing, and at the
// interrupt key, after the program's end.
Dictionary runDry(const Session& session, const std::string& path, std::uint32_t mask);

}  // namespace paddock::keelhouse
