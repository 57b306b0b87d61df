// The host that plug-ins see.
#pragma once

#include <atomic>
#include <deque>
#include <string>

#include "daemon/plugins/plugin_registry.h"
#include "paddock/host.h"

namespace paddock {

// Installed as the process's host as long as it lives.
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
  // Another one from now on; the earlier ones stay readable as long as this object lives. From one
  // thread at a time.
  void setConfiguration(Dictionary configuration);
  Dictionary deliverCommand(const std::string& module, const Dictionary& command) override;

 private:
  std::string root_;
  std::deque<Dictionary> configurations_;
  std::atomic<const Dictionary*> configuration_;
  std::atomic<PluginRegistry*> plugins_{nullptr};
};

}  // namespace paddock
