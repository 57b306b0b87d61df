// A program of the tree that keelhouse operates on, run where no daemon can be asked to run it.
// Such programs read private data of all users, so they require root.
#pragma once

#include <string>
#include <vector>

#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// Runs the program below the session's root and prints its output as it is; its standard error goes
// to keelhouse's own. Throws Failure when the caller is not root, and for a program that is missing
// or cannot be started. `done` when it ends well, `unsure` when it ends with that status, else
// `failed`.
ExitStatus runTreeProgram(const Session& session, const std::string& place,
                          const std::vector<std::string>& arguments);

// Whether the program is there and this user may run it.
bool canRunTreeProgram(const Session& session, const std::string& place);

}  // namespace paddock::keelhouse
