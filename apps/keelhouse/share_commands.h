// `keelhouse share`: shared folders, by way of the plug-in paddock_sharing.
#pragma once

#include <string>

#include "keelhouse/failure.h"
#include "keelhouse/session.h"
#include "keelhouse/share_changes.h"

namespace paddock::keelhouse {

// Paths are taken as they were typed. Each throws Failure for what it cannot do.
ExitStatus listShares(const Session& session);
ExitStatus showShare(const Session& session, const std::string& path);
// `force` shares a path that is no folder, or not there yet.
ExitStatus addShare(const Session& session, const std::string& path, const ShareChanges& changes,
                    bool force);
ExitStatus setShare(const Session& session, const std::string& path, const ShareChanges& changes);
ExitStatus removeShare(const Session& session, const std::string& path);

}  // namespace paddock::keelhouse
