// `keelhouse index`: whether a shared folder is indexed for search.
#pragma once

#include <string>

#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// Paths are taken as they were typed. Each throws Failure for what it cannot do, also for a folder
// that is not shared.
ExitStatus showIndexing(const Session& session, const std::string& path);
ExitStatus switchIndexingOn(const Session& session, const std::string& path);
ExitStatus switchIndexingOff(const Session& session, const std::string& path);

}  // namespace paddock::keelhouse
