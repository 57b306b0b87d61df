// The names under which a folder is published.
#pragma once

#include <cstddef>
#include <string>

#include "keelhouse/core/session.h"
#include "keelhouse/share/share_changes.h"

namespace paddock::keelhouse {

inline constexpr std::size_t kMaximumVspNameLength = 31;  // characters

// Throws Failure (usage) for a name that cannot be used: empty, not UTF-8, with a control
// character, or longer than its protocol carries.
void checkShareNames(const ShareChanges& changes);

// Throws Failure that names the share, when another one than that of `path` has a name that is
// asked for. Nothing is asked where none is.
void requireFreeNames(const Session& session, const std::string& path, const ShareChanges& changes);

// Whether `name` is `wanted`, its end cut perhaps, with a number behind it, as the daemon makes a
// name unique: "photos-1".
bool isNumberedName(const std::string& wanted, const std::string& name);

}  // namespace paddock::keelhouse
