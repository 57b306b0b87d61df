// Users and groups of this host, by way of the name service switch.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/principal.h"

namespace paddock::keelhouse {

// The id of the user or group of that name, or the name of that id; absent when there is none.
// Throws Failure when the name service cannot answer.
std::optional<std::uint32_t> hostId(PrincipalType type, const std::string& name);
std::optional<std::string> hostName(const Principal& principal);

// The names of all users, or of all groups, as far as the name service lists them; none when there
// are more than `most`, or listing them takes more than a second.
std::vector<std::string> hostNames(PrincipalType type, std::size_t most);

}  // namespace paddock::keelhouse
