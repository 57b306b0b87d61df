// `keelhouse share`: shared folders, by way of the plug-in paddock_sharing.
#pragma once

#include <string>

#include "keelhouse/credentials.h"
#include "keelhouse/failure.h"
#include "keelhouse/session.h"
#include "keelhouse/share_changes.h"

namespace paddock::keelhouse {

// Paths are taken as they were typed. Each throws Failure for what it cannot do, also when a change
// was written and clients do not get to see it.
ExitStatus listShares(const Session& session);
ExitStatus showShare(const Session& session, const std::string& path);

// `account` writes and removes what clients automount by, in its directory node.
// `force` shares a path that is no folder, or not there yet.
ExitStatus addShare(const Session& session, const std::string& path, const ShareChanges& changes,
                    const NodeAccount& account, bool force);
ExitStatus setShare(const Session& session, const std::string& path, const ShareChanges& changes,
                    const NodeAccount& account);
ExitStatus removeShare(const Session& session, const std::string& path, const NodeAccount& account);

}  // namespace paddock::keelhouse
