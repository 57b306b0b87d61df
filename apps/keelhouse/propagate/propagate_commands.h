// `keelhouse propagate`: pushes a folder's privileges down into everything inside it.
#pragma once

#include <cstdint>
#include <string>

#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// Paths are taken as they were typed; `mask` holds bits of kPushedParts. Each throws Failure for
// what it cannot do.

// Starts a run, and with `follow` shows how far it is until it has completed. `failed` when
// something could not be set.
ExitStatus startPropagation(const Session& session, const std::string& path, std::uint32_t mask,
                            bool follow);

// Follows the run on the folder; for root also reports one that has ended.
ExitStatus followPropagation(const Session& session, const std::string& path);

// Ends the runs on the folder. Needs root.
ExitStatus stopPropagation(const Session& session, const std::string& path);

// Reports what a run would change, and changes nothing. Needs root.
ExitStatus tryPropagation(const Session& session, const std::string& path, std::uint32_t mask);

}  // namespace paddock::keelhouse
