#include "daemon/plugins/loaded_plugin.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "base/trusted_path.h"
#include "paddock/plugin.h"
#include "paddock/sys_logger.h"
#include "wire/json.h"

namespace paddock {
namespace {

constexpr std::string_view kBundleSuffix = ".bundle";

// Null when there is none.
template <typename Function>
Function findSymbol(void* object, const char* name) {
  void* address = ::dlsym(object, name);
  Function function = nullptr;
  static_assert(sizeof function == sizeof address);
  std::memcpy(&function, &address, sizeof function);
  return function;
}

template <typename Function>
Function symbol(void* object, const char* name) {
  const auto function = findSymbol<Function>(object, name);
  if (function == nullptr) throw std::runtime_error(std::string("has no entry point ") + name);
  return function;
}

// A plug-in runs with the daemon's rights: the file that was checked is the one that is loaded,
// whatever its path leads to by then.
void* openObject(const std::string& path) {
  FileDescriptor file = openTrusted(path);
  const std::string name = "/proc/self/fd/" + std::to_string(file.get());
  void* object = ::dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (object == nullptr) {
    std::string why = ::dlerror();
    if (why.starts_with(name)) why.replace(0, name.size(), path);
    throw std::runtime_error(why);
  }
  // Never closed: the linker would take the next file with this number for this object.
  (void)file.release();
  return object;
}

std::unique_ptr<PluginRequestHandler> createHandler(void* object) {
  const int version =
      symbol<PaddockPluginInterfaceVersion>(object, "paddock_plugin_interface_version")();
  if (version != PADDOCK_PLUGIN_INTERFACE_VERSION) {
    throw std::runtime_error("has interface version " + std::to_string(version) + ", not " +
                             std::to_string(PADDOCK_PLUGIN_INTERFACE_VERSION));
  }
  PaddockPluginResult result{nullptr, ""};
  symbol<PaddockPluginCreate>(object, "paddock_plugin_create")(&result);
  if (result.handler == nullptr) {
    result.error[sizeof result.error - 1] = '\0';
    throw std::runtime_error(std::string("cannot be created: ") + &result.error[0]);
  }
  return std::unique_ptr<PluginRequestHandler>(result.handler);
}

// Empty when there is none; an unreadable description does not prevent the use of a plug-in.
Dictionary descriptionOf(void* object, const std::string& name) {
  const auto describe = findSymbol<PaddockPluginDescription>(object, "paddock_plugin_description");
  const char* text = describe != nullptr ? describe() : nullptr;
  if (text == nullptr) return {};
  std::string problem = "it is no dictionary";
  auto value = wire::parseJson(text, problem);
  if (value && value->dictionary() != nullptr) return std::move(*value->dictionary());
  logMessage(4, "the description of plug-in " + name + " is left out: " + problem);
  return {};
}

std::string objectOf(const std::string& folder, const std::string& name) {
  return folder + "/" + name + std::string(kBundleSuffix) + "/Contents/" + name + ".so";
}

std::string refusalOf(const std::string& name, const std::string& why) {
  return "plug-in " + name + " refused: " + why;
}

LoadedPlugin load(const std::string& folder, const std::string& name) {
  void* const opened = openObject(objectOf(folder, name));
  LoadedPlugin plugin{name, createHandler(opened), {}};
  if (plugin.handler->init() == nullptr) throw std::runtime_error("init gives nothing");
  plugin.operations = plugin.handler->operations();
  plugin.description = descriptionOf(opened, name);
  return plugin;
}

std::vector<std::string> bundleNames(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code failed;
  for (auto entry = std::filesystem::directory_iterator(folder, failed);
       !failed && entry != std::filesystem::directory_iterator(); entry.increment(failed)) {
    const std::filesystem::path path = entry->path();
    if (path.extension() == kBundleSuffix) names.push_back(path.stem().string());
  }
  if (failed) logMessage(4, "plug-ins cannot be listed: " + folder + ": " + failed.message());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace

const PluginRequestHandler::Operation* LoadedPlugin::find(std::string_view operation) const {
  const auto found =
      std::find_if(operations.begin(), operations.end(),
                   [operation](const auto& candidate) { return candidate.name == operation; });
  return found != operations.end() ? &*found : nullptr;
}

const Dictionary* LoadedPlugin::auditedOnce(const std::string& operation) const {
  const Dictionary* all = description.dictionary("operations");
  const Dictionary* one = all != nullptr ? all->dictionary(operation) : nullptr;
  return one != nullptr ? one->dictionary("auditedOnce") : nullptr;
}

std::vector<std::string> untrustedPlugins(const std::string& folder) {
  std::vector<std::string> lines;
  for (const std::string& name : bundleNames(folder)) {
    const std::string why = whyUntrusted(objectOf(folder, name));
    if (!why.empty()) lines.push_back(refusalOf(name, why));
  }
  return lines;
}

LoadedPlugin loadPlugin(const std::string& folder, const std::string& name) {
  try {
    return load(folder, name);
  } catch (const std::exception& error) {
    throw std::runtime_error(refusalOf(name, error.what()));
  }
}

std::vector<LoadedPlugin> loadPlugins(const std::string& folder) {
  std::vector<LoadedPlugin> plugins;
  for (const std::string& name : bundleNames(folder)) {
    const auto refuse = [&name](const char* why) { logMessage(3, refusalOf(name, why)); };
    try {
      plugins.push_back(load(folder, name));
      logMessage(6, "plug-in " + name + " loaded");
    } catch (const std::exception& error) {
      refuse(error.what());
    } catch (...) {
      refuse("an exception that is not a std::exception");
    }
  }
  return plugins;
}

}  // namespace paddock
