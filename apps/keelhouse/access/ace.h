// ACL entries as the daemon carries them: dictionaries.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/guid.h"
#include "base/principal.h"
#include "base/value.h"

namespace paddock::keelhouse {

struct Ace {
  std::optional<bool> allow;  // absent: an entry of another kind, which cannot be sent back
  std::string guidText;       // as it was carried; empty when there was none
  std::optional<Guid> guid;   // absent: no GUID, or a text that is none
  std::string displayName;
  std::optional<PrincipalType> type;  // absent: unknown
  std::uint32_t rights = 0;
  std::uint32_t inheritance = 0;
};

// What an entry's dictionary says; what is not there, or is no dictionary, reads as absent.
Ace readAce(const Value& entry);

// The dictionary that sends an entry back as it was read: what writing takes, nothing else.
Dictionary sentBack(const Ace& ace);

// The keys under which a new entry names a user or group by its id.
Dictionary principalKeys(const Principal& principal);

}  // namespace paddock::keelhouse
