// The fixed GUIDs of users and groups whose records have none: a constant prefix of 12 bytes,
// one for users and one for groups, and the id in the last 4 bytes, most significant first. They
// have the form of random GUIDs (RFC 4122 version 4) and are written to disk and to other
// machines, so the prefixes never change.
#pragma once

#include <optional>

#include "base/guid.h"
#include "base/principal.h"

namespace paddock {

Guid computedGuid(const Principal& principal);

// The user or group that a GUID of that form was made from; absent for every other GUID.
std::optional<Principal> computedPrincipal(const Guid& guid);

}  // namespace paddock
