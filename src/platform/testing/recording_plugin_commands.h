// Sibling plug-ins that keep what they were sent and answer what they were told. Commands may come
// from several threads.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/plugin_commands.h"

namespace paddock {

class RecordingPluginCommands : public PluginCommands {
 public:
  struct Sent {
    std::string bundle;
    Dictionary command;
    std::string module;
    std::optional<std::string> user;
    friend bool operator==(const Sent&, const Sent&) = default;
  };
  using Plugin = std::function<Dictionary(const Dictionary& command)>;

  Dictionary doCommand(const std::string& bundle, const Dictionary& command,
                       const std::string& module, const std::optional<std::string>& user) override {
    note({bundle, command, module, user});
    const auto plugin = plugins_.find(module);
    return plugin == plugins_.end() ? Dictionary() : plugin->second(command);
  }

  // How the plug-in `module` answers from now on; one without this is not there.
  void setPlugin(const std::string& module, Plugin plugin) { plugins_[module] = std::move(plugin); }

  // To be looked at when no thread sends any more.
  const std::vector<Sent>& sent() const { return sent_; }
  void clear() { sent_.clear(); }

 private:
  void note(Sent sent) {
    const std::lock_guard lock(mutex_);
    sent_.push_back(std::move(sent));
  }

  std::mutex mutex_;
  std::vector<Sent> sent_;
  std::map<std::string, Plugin> plugins_;
};

}  // namespace paddock
