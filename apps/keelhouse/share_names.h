// The names under which a folder is published.
#pragma once

#include <cstddef>
#include <string>

#include "keelhouse/share_changes.h"

namespace paddock::keelhouse {

inline constexpr std::size_t kMaximumVspNameLength = 31;  // characters

// Throws Failure (usage) for a name that cannot be used: empty, not UTF-8, with a control
// character, or longer than its protocol carries.
void checkShareNames(const ShareChanges& changes);

// Whether `name` is `wanted`, its end cut perhaps, with a number behind it, as the daemon makes a
// name unique: "photos-1".
bool isNumberedName(const std::string& wanted, const std::string& name);

}  // namespace paddock::keelhouse
