// GUIDs: 16 bytes that name a user or group.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/principal.h"

namespace paddock {

struct Guid {
  std::array<std::uint8_t, 16> bytes{};
  friend auto operator<=>(const Guid&, const Guid&) = default;
};

// The canonical text: 36 characters, 8-4-4-4-12 upper-case hexadecimal digits.
std::string guidText(const Guid& guid);

// Parses that form, digits in either case. nullopt for any other text.
std::optional<Guid> parseGuid(std::string_view text);

// The fixed GUIDs of users and groups whose records have none: a constant prefix of 12 bytes,
// one for users and one for groups, and the id in the last 4 bytes, most significant first. They
// have the form of random GUIDs (RFC 4122 version 4) and are written to disk and to other
// machines, so the prefixes never change.
Guid computedGuid(const Principal& principal);

// The user or group of a computed GUID; nullopt for every other GUID.
std::optional<Principal> computedPrincipal(const Guid& guid);

}  // namespace paddock
