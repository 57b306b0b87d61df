// The loaded plug-ins and their contexts.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "daemon/plugins/context_store.h"
#include "daemon/plugins/loaded_plugin.h"

namespace paddock {

class PluginRegistry {
 public:
  // Gives every plug-in its saved context.
  PluginRegistry(std::vector<LoadedPlugin> plugins, ContextStore& contexts);
  PluginRegistry(const PluginRegistry&) = delete;
  PluginRegistry& operator=(const PluginRegistry&) = delete;
  // Saves the contexts and destroys the handlers, the last one first.
  ~PluginRegistry();

  const std::vector<LoadedPlugin>& plugins() const { return plugins_; }
  // Null when it is not loaded.
  const LoadedPlugin* find(std::string_view name) const;

  // Runs an operation of the plug-in and saves its context afterwards, also when it throws.
  Dictionary perform(const LoadedPlugin& plugin, std::string_view operation,
                     const Dictionary& request);

  // One idle tick of every plug-in, one after the other. What one throws is logged.
  void tick(std::uint64_t count);

 private:
  void tickOne(const LoadedPlugin& plugin, std::uint64_t count);

  std::vector<LoadedPlugin> plugins_;
  ContextStore& contexts_;
};

}  // namespace paddock
