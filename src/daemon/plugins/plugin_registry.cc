#include "daemon/plugins/plugin_registry.h"

#include <algorithm>
#include <exception>

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

}  // namespace paddock
