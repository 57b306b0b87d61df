// What the host offers to plug-ins besides calling them. The daemon installs one Host before it
// loads the first plug-in; it stays until the process ends. Every function here may be called
// from any thread.
#pragma once

#include <string>
#include <string_view>

#include "base/value.h"

namespace paddock {

class Host {
 public:
  virtual ~Host() = default;

  // The directory below which every path of the system is taken ("--root"), without a slash at
  // its end; empty for the system itself.
  virtual const std::string& root() const = 0;

  // The daemon's configuration as a tree: tables are dictionaries. Keys that the file does not
  // set are absent.
  virtual const Dictionary& configuration() const = 0;

  // Delivers a command to a loaded plug-in on the calling thread and returns its reply. The
  // command's "command" names the operation; the other keys are its request. Throws
  // std::runtime_error when there is no such plug-in or operation, and whatever the operation
  // throws.
  virtual Dictionary deliverCommand(const std::string& module, const Dictionary& command) = 0;
};

// Installs the host (null: none; tests do that). The caller keeps ownership.
void installHost(Host* host);

// The installed host. Throws std::logic_error when there is none.
Host& host();

// `path`, an absolute path of the system, below the host's root; `path` itself when there is no
// host.
std::string hostPath(std::string_view path);

}  // namespace paddock
