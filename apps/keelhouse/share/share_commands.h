// `keelhouse share`: shared folders, by way of the plug-in paddock_sharing.
#pragma once

#include <optional>
#include <string>

#include "keelhouse/core/failure.h"
#include "keelhouse/core/input.h"
#include "keelhouse/core/session.h"
#include "keelhouse/share/share_changes.h"

namespace paddock::keelhouse {

// Paths are taken as they were typed. Each throws Failure for what it cannot do, also when a change
// was written and clients do not get to see it.
ExitStatus listShares(const Session& session);
ExitStatus showShare(const Session& session, const std::string& path);

// `account` writes and removes what clients automount by, in its directory node.
// `force` shares a path that is no folder, or not there yet.
// `from`: the document that says everything instead of the changes. `team`: the group whose folder
// it is made before it is shared.
struct ShareSources {
  std::optional<std::string> from;
  std::optional<std::string> team;
};
ExitStatus addShare(const Session& session, const std::string& path, const ShareChanges& changes,
                    const NodeAccount& account, bool force, const ShareSources& sources);
// Concurrent changes by others are preserved, except for what the changes name.
ExitStatus setShare(const Session& session, const std::string& path, const ShareChanges& changes,
                    const NodeAccount& account, const std::optional<std::string>& from);
ExitStatus removeShare(const Session& session, const std::string& path, const NodeAccount& account);
// The line of a folder that is not shared goes from the managed block of the exports file.
void takeOutLeftExport(const Session& session, const std::string& path);
// The record of a share point that was never finished, by its name.
ExitStatus removeUnfinished(const Session& session, const std::string& name);

}  // namespace paddock::keelhouse
