#include <atomic>
#include <exception>
#include <stdexcept>

#include "paddock/host.h"
#include "paddock/sys_logger.h"

namespace paddock {

namespace {

std::atomic<Host*> gHost{nullptr};

}  // namespace

void installHost(Host* host) { gHost.store(host, std::memory_order_release); }

Host& host() {
  Host* installed = gHost.load(std::memory_order_acquire);
  if (installed == nullptr) throw std::logic_error("no host is installed");
  return *installed;
}

std::string hostPath(std::string_view path) {
  const Host* installed = gHost.load(std::memory_order_acquire);
  if (installed == nullptr) return std::string(path);
  return std::string(installed->root()).append(path);
}

namespace {

Dictionary failure(const std::string& module, const std::string& text) {
  logMessage(3, "command to plug-in " + module + " failed: " + text);
  return {{"error", text}};
}

}  // namespace

BundleManager BundleManager::managerForBundle(const std::string& module) {
  return BundleManager(module);
}

Dictionary BundleManager::doCommand(const Dictionary& command, const std::string& module,
                                    const std::optional<std::string>& user) const {
  const std::string& target = module.empty() ? module_ : module;
  const std::string* operation = command.string("command");
  logMessage(7, "command " + (operation != nullptr ? *operation : std::string("(none)")) +
                    " for plug-in " + target + " on behalf of " +
                    user.value_or("the server itself"));
  try {
    return host().deliverCommand(target, command);
  } catch (const std::exception& error) {
    return failure(target, error.what());
  } catch (...) {
    return failure(target, "an exception that is not a std::exception");
  }
}

}  // namespace paddock
