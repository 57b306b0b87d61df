// ACL entries as the daemon carries them: dictionaries.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/guid.h"
#include "base/principal.h"
#include "base/value.h"
#include "keelhouse/core/account_names.h"

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

// ACL entries as the command line takes them.
struct TypedEntry {
  bool allow = true;
  PrincipalName who;
  std::uint32_t rights = 0;
  std::uint32_t inheritance = 0;
};

// Entries "allow WHO RIGHTS", "deny WHO RIGHTS:INHERITANCE", each as one word with blanks in it or
// as three words. Throws Failure (usage) for anything else.
std::vector<TypedEntry> parseEntries(const std::vector<std::string>& words);

}  // namespace paddock::keelhouse
