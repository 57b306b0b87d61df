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
  Dictionary description = {};  // what it says of its operations (paddock/plugin.h)

  // Null when the plug-in has no such operation.
  const PluginRequestHandler::Operation* find(std::string_view operation) const;
  // "auditedOnce" of what it says of the operation; null where it says nothing of that.
  const Dictionary* auditedOnce(const std::string& operation) const;
};

}  // namespace paddock
