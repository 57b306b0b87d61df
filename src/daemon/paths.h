// Where the daemon's files stand below its root.
#pragma once

#include <optional>
#include <string>

namespace paddock {

class Paths {
 public:
  // `root` without a slash at its end; empty for the system itself.
  explicit Paths(std::string root) : root_(std::move(root)) {}

  const std::string& root() const { return root_; }
  std::string configuration() const { return root_ + "/etc/paddock/paddockd.toml"; }
  std::string runFolder() const { return root_ + "/run/paddock"; }
  std::string socket() const { return runFolder() + "/paddockd.sock"; }
  std::string lock() const { return runFolder() + "/paddockd.lock"; }
  std::string stateFolder() const { return root_ + "/var/lib/paddock"; }
  std::string contextFolder() const { return stateFolder() + "/context"; }
  std::string logFolder() const { return root_ + "/var/log/paddock"; }
  std::string auditLog() const { return logFolder() + "/audit.jsonl"; }
  // What is begun and has no line there yet.
  std::string begunChanges() const { return stateFolder() + "/begun"; }
  std::string bundles() const { return root_ + "/usr/share/paddockd/bundles"; }

 private:
  std::string root_;
};

// The root that `argument` ("--root") names: absolute, without a slash at its end, empty for "/".
std::string rootFromArgument(const std::string& argument);

}  // namespace paddock
