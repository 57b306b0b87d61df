// The options that say how a folder is shared.
#pragma once

#include <CLI/App.hpp>

#include "keelhouse/share/share_changes.h"

namespace paddock::keelhouse {

// Of `share add` and `share set`.
void addShareChanges(CLI::App& command, ShareChanges& changes);

// Of `share set` besides.
void addShareWithdrawals(CLI::App& command, ShareChanges& changes);

}  // namespace paddock::keelhouse
