// Commands to sibling plug-ins.
#pragma once

#include <optional>
#include <string>

#include "base/value.h"

namespace paddock {

class BundleManager {
 public:
  // The manager for a sibling plug-in, by module name. Always gives one; whether the plug-in is
  // there is known when a command is sent.
  static BundleManager managerForBundle(const std::string& module);

  // Delivers `command` to the plug-in `module` on behalf of `user` (absent: the server
  // itself), on the calling thread, and returns its reply. The key "command" names the operation.
  // A plug-in that is not loaded, an operation that it does not have and an exception that
  // leaves it give {"error": text} and a line in the log; nothing is thrown.
  Dictionary doCommand(const Dictionary& command, const std::string& module,
                       const std::optional<std::string>& user) const;

 private:
  explicit BundleManager(std::string module) : module_(std::move(module)) {}
  std::string module_;
};

}  // namespace paddock
