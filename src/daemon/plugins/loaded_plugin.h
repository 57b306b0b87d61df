// A plug-in that is loaded.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "paddock/plugin_request_handler.h"

namespace paddock {

struct LoadedPlugin {
  std::string name;
  std::unique_ptr<PluginRequestHandler> handler;
  std::vector<PluginRequestHandler::Operation> operations;
  Dictionary description = {};  // of its operations (paddock/plugin.h)

  // Null when the plug-in has no such operation.
  const PluginRequestHandler::Operation* find(std::string_view operation) const;
  // "auditedOnce" of the operation's description; null when absent.
  const Dictionary* auditedOnce(const std::string& operation) const;
};

// Loads plug-ins from their bundles.

// Loads NAME.bundle/Contents/NAME.so for every bundle of the folder, by name. One that cannot be
// used is refused with a log line that names it, and the others are loaded: a shared object that is
// missing or lacks a library, that others could have changed (base/trusted_path.h), that has no
// entry point or another interface version; a constructor, `init` or `operations` that throws.
// Shared objects are never unloaded, and a descriptor of each stays open.
std::vector<LoadedPlugin> loadPlugins(const std::string& folder);

// Why plug-ins of the folder would be refused before they are loaded: "plug-in NAME refused: ..."
// of each that others could have changed.
std::vector<std::string> untrustedPlugins(const std::string& folder);

// Loads the plug-in of that name. Throws, naming it, when it cannot be used.
LoadedPlugin loadPlugin(const std::string& folder, const std::string& name);

}  // namespace paddock
