#include "daemon/plugins/daemon_host.h"

#include <stdexcept>

#include "paddock/request_conditions.h"

namespace paddock {
namespace {

constexpr const char* kCommandKey = "command";

}  // namespace

DaemonHost::DaemonHost(std::string root, Dictionary configuration) : root_(std::move(root)) {
  setConfiguration(std::move(configuration));
  installHost(this);
}

void DaemonHost::setConfiguration(Dictionary configuration) {
  configuration_ = &configurations_.emplace_back(std::move(configuration));
}

DaemonHost::~DaemonHost() { installHost(nullptr); }

Dictionary DaemonHost::deliverCommand(const std::string& module, const Dictionary& command) {
  PluginRegistry* plugins = plugins_.load();
  const LoadedPlugin* plugin = plugins != nullptr ? plugins->find(module) : nullptr;
  if (plugin == nullptr) throw std::runtime_error("there is no plug-in \"" + module + "\"");
  const std::string* operation = command.string(kCommandKey);
  if (operation == nullptr) throw std::runtime_error("the command names no operation");
  if (plugin->find(*operation) == nullptr) {
    throw std::runtime_error("plug-in \"" + module + "\" has no operation \"" + *operation + "\"");
  }
  const std::string name = *operation;
  Dictionary request = command;
  request.erase(kCommandKey);
  // What the client says of the state is about its own request.
  const RequestConditionsScope none(nullptr);
  return plugins->perform(*plugin, name, request);
}

}  // namespace paddock
