// What a run would change, found out by the daemon's program without changing anything.
#pragma once

#include <cstdint>
#include <string>

#include "base/value.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// What the program found, as its last status says it. The daemon runs it, for administrators; where
// no daemon can be asked or its time is too short, root runs it, and sees the progress. Throws
// Failure when the program cannot be run or says nothing, and at the interrupt key, after its end.
Dictionary runDry(const Session& session, const std::string& path, std::uint32_t mask);

}  // namespace paddock::keelhouse
