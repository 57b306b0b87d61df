// `keelhouse request` and `keelhouse command`: any operation of any plug-in.
#pragma once

#include <string>
#include <vector>

#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// Prints the reply as JSON (on one line with --json). `json` "-" reads the request from standard
// input. A failure that the reply reports shows in the exit status alone.
ExitStatus runRequest(const Session& session, const std::string& plugin,
                      const std::string& operation, const std::string& json);

// Prints the reply's leaves, or the reply as JSON with --json.
ExitStatus runCommand(const Session& session, const std::vector<std::string>& words);

}  // namespace paddock::keelhouse
