// `keelhouse status`.
#pragma once

#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// Prints the state of the daemon, which of its configuration is invalid or takes a restart, its
// plug-ins (with the state of those that report one), the directory nodes and the runs that push
// privileges down. `failed` when one of these did not respond or the configuration is invalid.
ExitStatus showStatus(const Session& session, bool check);

}  // namespace paddock::keelhouse
