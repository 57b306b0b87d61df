// `keelhouse audit`.
#pragma once

#include <cstdint>

#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// Prints the newest lines of the daemon's audit log, at most `limit`, the oldest of them first:
// when who asked for which change of what, and what became of it.
ExitStatus showAudit(const Session& session, std::int64_t limit);

}  // namespace paddock::keelhouse
