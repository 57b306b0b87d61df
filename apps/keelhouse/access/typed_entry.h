// ACL entries as the command line takes them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "keelhouse/core/principal_name.h"

namespace paddock::keelhouse {

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
