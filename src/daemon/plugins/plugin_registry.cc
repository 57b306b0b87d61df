#include "daemon/plugins/plugin_registry.h"

#include <algorithm>
#include <exception>
#include <stdexcept>

#include "paddock/request_conditions.h"
#include "paddock/sys_logger.h"

namespace paddock {

namespace {

class SaveAfterwards {
 public:
  SaveAfterwards(ContextStore& store, const LoadedPlugin& plugin)
      : store_(store), plugin_(plugin) {}
  SaveAfterwards(const SaveAfterwards&) = delete;
  SaveAfterwards& operator=(const SaveAfterwards&) = delete;
  ~SaveAfterwards() { store_.saveIfDirty(plugin_.name, plugin_.handler->context()); }

 private:
  ContextStore& store_;
  const LoadedPlugin& plugin_;
};

}  // namespace

PluginRegistry::PluginRegistry(std::vector<LoadedPlugin> plugins, ContextStore& contexts)
    : plugins_(std::move(plugins)), contexts_(contexts) {
  for (const LoadedPlugin& plugin : plugins_) {
    plugin.handler->context().replace(contexts_.load(plugin.name));
  }
}

PluginRegistry::~PluginRegistry() {
  for (const LoadedPlugin& plugin : plugins_) {
    contexts_.saveIfDirty(plugin.name, plugin.handler->context());
  }
  while (!plugins_.empty()) plugins_.pop_back();
}

const LoadedPlugin* PluginRegistry::find(std::string_view name) const {
  const auto found =
      std::find_if(plugins_.begin(), plugins_.end(),
                   [name](const LoadedPlugin& plugin) { return plugin.name == name; });
  return found != plugins_.end() ? &*found : nullptr;
}

Dictionary PluginRegistry::perform(const LoadedPlugin& plugin, std::string_view operation,
                                   const Dictionary& request) {
  const SaveAfterwards save(contexts_, plugin);
  return plugin.handler->performOperation(operation, request);
}

void PluginRegistry::tick(std::uint64_t count) {
  for (const LoadedPlugin& plugin : plugins_) tickOne(plugin, count);
}

void PluginRegistry::tickOne(const LoadedPlugin& plugin, std::uint64_t count) {
  const SaveAfterwards save(contexts_, plugin);
  const auto log = [&plugin, count](const char* what) {
    logMessage(3, "idle tick " + std::to_string(count) + " of plug-in " + plugin.name +
                      " failed: " + what);
  };
  try {
    plugin.handler->doIdleAtCount(count);
  } catch (const std::exception& error) {
    log(error.what());
  } catch (...) {
    log("an exception that is not a std::exception");
  }
}

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
