// What users may do with a path.
#pragma once

#include <string>

#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// `user`: a name, or the number of a uid.
ExitStatus showEffective(const Session& session, const std::string& path, const std::string& user);

// The same with what decided. Like the next, by way of the daemon, or for root where none can be
// asked; then it is asked only who the user is, where the host does not say so.
ExitStatus explainEffective(const Session& session, const std::string& path,
                            const std::string& user);

// Everybody who may do something there.
ExitStatus showWho(const Session& session, const std::string& path);

}  // namespace paddock::keelhouse
