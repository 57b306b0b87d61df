// `keelhouse nodes` and `keelhouse auth`: the directory nodes, and who may write to one.
#pragma once

#include <string>

#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// Prints every node with its state and latency. `failed` when one of them cannot be used.
ExitStatus showNodes(const Session& session);

// Lets the daemon try whether the user may change records on the node. The password is read as
// readPassword says. `failed` when not, with the reason.
ExitStatus tryAuthentication(const Session& session, const std::string& node,
                             const std::string& user, int passwordDescriptor);

}  // namespace paddock::keelhouse
