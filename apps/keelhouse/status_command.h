// `keelhouse status`.
#pragma once

#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// Prints how the daemon is, which of its configuration waits for a restart or is broken, its
// plug-ins (with the state of those that tell one), the directory nodes and the runs that push
// privileges down. `failed` when something of this did not answer or the configuration is broken.
ExitStatus showStatus(const Session& session, bool check);

}  // namespace paddock::keelhouse
