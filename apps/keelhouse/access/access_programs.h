// What the programs of the tree say of access: by way of the daemon, which runs them, or run here
// where root asks and no daemon can.
#pragma once

#include <string>
#include <vector>

#include "base/value.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// Whether the failure of a question to the daemon leaves root the program itself: nobody answers,
// or the daemon has no plug-in for it.
bool leavesItToRoot(const Failure& failure);

// Asks the daemon's paddock_access for the operation ("who") and prints what its program wrote, as
// it is; its exit status is the result. Where the daemon cannot be asked, root runs effectiveprivs
// with `arguments`.
ExitStatus judgeAccess(const Session& session, const std::string& operation, Dictionary request,
                       std::vector<std::string> arguments);

}  // namespace paddock::keelhouse
