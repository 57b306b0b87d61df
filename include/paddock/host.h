// Services that the host provides to plug-ins. The daemon installs one Host before it loads the
// first plug-in; it lives until the process ends. Every function here is thread-safe.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/value.h"

namespace paddock {

class Host {
 public:
  virtual ~Host() = default;

  // The directory that every path of the system is resolved below ("--root"), without a trailing
  // slash; empty for the system itself.
  virtual const std::string& root() const = 0;

  // The daemon's configuration as a tree: tables are dictionaries. Keys that the file does not
  // set are absent.
  virtual const Dictionary& configuration() const = 0;

  // Delivers a command to a loaded plug-in on the calling thread and returns its reply. The
  // command's "command" names the operation; the other keys are its request. Throws
  // std::runtime_error when there is no such plug-in or operation, and propagates what the
  // operation throws.
  virtual Dictionary deliverCommand(const std::string& module, const Dictionary& command) = 0;
};

// Installs the host (null: none; tests do that). The caller keeps ownership.
void installHost(Host* host);

// The installed host. Throws std::logic_error when there is none.
Host& host();

// `path`, an absolute path of the system, below the host's root; `path` itself when there is no
// host.
std::string hostPath(std::string_view path);

// Commands to sibling plug-ins.
class BundleManager {
 public:
  // The manager for a sibling plug-in, by module name. Never fails; whether the plug-in is loaded
  // is determined when a command is sent.
  static BundleManager managerForBundle(const std::string& module);

  // Delivers `command` to the plug-in `module` on behalf of `user` (absent: the server
  // itself), on the calling thread, and returns its reply. The key "command" names the operation.
  // A plug-in that is not loaded, an operation that it does not have and an exception that leaves
  // it yield {"error": text} and a log line; nothing is thrown.
  Dictionary doCommand(const Dictionary& command, const std::string& module,
                       const std::optional<std::string>& user) const;

 private:
  explicit BundleManager(std::string module) : module_(std::move(module)) {}
  std::string module_;
};

}  // namespace paddock
