// The names under which a folder is published.
#pragma once

#include <cstddef>

#include "keelhouse/share_changes.h"

namespace paddock::keelhouse {

inline constexpr std::size_t kMaximumVspNameLength = 31;  // characters

// Throws Failure (usage) for a name that cannot be used: empty, not UTF-8, with a control
// character, or longer than its protocol carries.
void checkShareNames(const ShareChanges& changes);

}  // namespace paddock::keelhouse
