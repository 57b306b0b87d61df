// The daemon from its start to its end.
#pragma once

#include "daemon/options.h"

namespace paddock {

// Runs until SIGTERM or SIGINT; SIGHUP opens the audit log and reads the configuration
// again. Returns the exit status: 0, or 1
// when the daemon could not start or (with --check-config) the configuration is wrong.
int runDaemon(const Options& options);

}  // namespace paddock
