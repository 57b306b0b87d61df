// Users and groups as the command line names them.
#pragma once

#include <string>
#include <string_view>

namespace paddock::keelhouse {

struct PrincipalName {
  enum class Kind { user, group, either, guid };
  Kind kind = Kind::either;
  std::string name;  // of a guid: its canonical text
};

// "user:NAME", "group:NAME", a GUID, or a name alone, which stands for a user or a group. Throws
// Failure (usage) for an empty name and one that is not UTF-8.
PrincipalName parsePrincipal(std::string_view text);

// The text that reads as that name.
std::string formatPrincipal(const PrincipalName& name);

}  // namespace paddock::keelhouse
