// The loaded plug-ins and their contexts.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "daemon/plugins/context_store.h"
#include "daemon/plugins/loaded_plugin.h"
#include "paddock/host.h"

namespace paddock {

class PluginRegistry {
 public:
  // Restores the saved context of every plug-in.
  PluginRegistry(std::vector<LoadedPlugin> plugins, ContextStore& contexts);
  PluginRegistry(const PluginRegistry&) = delete;
  PluginRegistry& operator=(const PluginRegistry&) = delete;
  // Saves the contexts and destroys the handlers in reverse order.
  ~PluginRegistry();

  const std::vector<LoadedPlugin>& plugins() const { return plugins_; }
  // Null when it is not loaded.
  const LoadedPlugin* find(std::string_view name) const;

  // Runs an operation of the plug-in and saves its context afterwards, also when it throws.
  Dictionary perform(const LoadedPlugin& plugin, std::string_view operation,
                     const Dictionary& request);

  // One idle tick of every plug-in, one after the other. Exceptions are logged.
  void tick(std::uint64_t count);

 private:
  void tickOne(const LoadedPlugin& plugin, std::uint64_t count);

  std::vector<LoadedPlugin> plugins_;
  ContextStore& contexts_;
};

// The host that plug-ins see.

// Installed as the process's host for its lifetime.
class DaemonHost : public Host {
 public:
  DaemonHost(std::string root, Dictionary configuration);
  DaemonHost(const DaemonHost&) = delete;
  DaemonHost& operator=(const DaemonHost&) = delete;
  ~DaemonHost() override;

  // The plug-ins that commands are delivered to; null before they are loaded and after they are
  // gone. The caller keeps ownership.
  void setPlugins(PluginRegistry* plugins) { plugins_.store(plugins); }

  const std::string& root() const override { return root_; }
  const Dictionary& configuration() const override { return *configuration_.load(); }
  // Replaces the configuration; earlier ones stay valid for the lifetime of this object. Not
  // concurrently with itself.
  void setConfiguration(Dictionary configuration);
  Dictionary deliverCommand(const std::string& module, const Dictionary& command) override;

 private:
  std::string root_;
  std::deque<Dictionary> configurations_;
  std::atomic<const Dictionary*> configuration_;
  std::atomic<PluginRegistry*> plugins_{nullptr};
};

}  // namespace paddock
