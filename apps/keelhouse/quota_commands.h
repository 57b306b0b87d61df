// `keelhouse quota`: the user quotas of a volume.
#pragma once

#include <string>

#include "keelhouse/failure.h"
#include "keelhouse/session.h"

namespace paddock::keelhouse {

// Volumes are the folders on which they are mounted, as they were typed. Each throws Failure for
// what it cannot do, also for a folder that is no volume's root.
ExitStatus showQuotas(const Session& session, const std::string& volume);
ExitStatus switchQuotasOn(const Session& session, const std::string& volume);
ExitStatus switchQuotasOff(const Session& session, const std::string& volume);

}  // namespace paddock::keelhouse
