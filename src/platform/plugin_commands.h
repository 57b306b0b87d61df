// Commands to sibling plug-ins of the host (`managerForBundle` and `doCommand`).
#pragma once

#include <optional>
#include <string>

#include "base/value.h"

namespace paddock {

class PluginCommands {
 public:
  virtual ~PluginCommands() = default;
  // Delivers `command` to the plug-in `module` through the manager for `bundle`, on behalf of
  // `user` (absent: no particular user), and returns the plug-in's reply; empty when it is not
  // loaded.
  virtual Dictionary doCommand(const std::string& bundle, const Dictionary& command,
                               const std::string& module,
                               const std::optional<std::string>& user) = 0;
};

}  // namespace paddock
