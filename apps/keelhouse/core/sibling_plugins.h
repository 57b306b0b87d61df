// Operations of plug-ins that a daemon need not have.
#pragma once

#include <optional>
#include <string>

#include "base/value.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// The reply of an operation; absent where the daemon has no such plug-in. Throws Failure otherwise.
std::optional<Dictionary> askIfLoaded(const Session& session, const char* plugin,
                                      const char* operation, const Dictionary& request);

// What a reply with a "status" other than 0 says of it.
std::string messageOf(const Dictionary& reply);

// Throws Failure with that, unless the reply's status is 0. `action` says what was tried.
void requireDone(const Dictionary& reply, const std::string& action);

}  // namespace paddock::keelhouse
