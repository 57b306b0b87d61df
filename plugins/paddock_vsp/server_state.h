// Whether the server that speaks VSP runs, as the configuration says how to know.
#pragma once

#include <string>

#include "platform/program_runner.h"

namespace paddock {

// `state` is the key "state" of [vsp]:
//   "running", "stopped"  that is it
//   "unit:NAME"           whether systemd says that the unit is active; no where there is no
//   systemd "pidfile:PATH"        whether the process runs that the file names; PATH is taken below
//   `root`
// Anything else is a server that does not run.
bool vspServerRuns(const std::string& state, const std::string& root, ProgramRunner& runner);

}  // namespace paddock
