// Loads plug-ins from their bundles.
#pragma once

#include <string>
#include <vector>

#include "daemon/plugins/loaded_plugin.h"

namespace paddock {

// Loads NAME.bundle/Contents/NAME.so for every bundle of the folder, by name. One that cannot be
// used is refused with a line in the log that names it, and the others are loaded: a shared
// object that is missing or lacks a library, that others than root could have changed, that has no
// entry point or another interface version; a constructor, `init` or `operations` that throws.
// Shared objects are never unloaded.
std::vector<LoadedPlugin> loadPlugins(const std::string& folder);

// The one of that name. Throws, naming it, when it cannot be used.
LoadedPlugin loadPlugin(const std::string& folder, const std::string& name);

}  // namespace paddock
