// What users may do with a path.
#pragma once

#include <string>
#include <vector>

#include "base/value.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// What the programs of the tree say of access: by way of the daemon, which runs them, or run here
// where root asks and no daemon can.

// Whether root may run the program directly after a failed request to the daemon: the daemon does
// not respond, or has no plug-in for it.
bool leavesItToRoot(const Failure& failure);

// Asks the daemon's paddock_access for the operation ("who") and prints what its program wrote, as
// it is; its exit status is the result. Where the daemon cannot be asked, root runs effectiveprivs
// with `arguments`.
ExitStatus judgeAccess(const Session& session, const std::string& operation, Dictionary request,
                       std::vector<std::string> arguments);

// `user`: a name, or the number of a uid.
ExitStatus showEffective(const Session& session, const std::string& path, const std::string& user);

// The same with what decided. Like the next, by way of the daemon, or for root where none can be
// asked; then it is asked only who the user is, where the host does not say so.
ExitStatus explainEffective(const Session& session, const std::string& path,
                            const std::string& user);

// Everybody who may do something there.
ExitStatus showWho(const Session& session, const std::string& path);

}  // namespace paddock::keelhouse
