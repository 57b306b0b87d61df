// The command line of the daemon.
#pragma once

#include <optional>
#include <string>

namespace paddock {

struct Options {
  std::optional<std::string> root;           // --root DIR
  std::optional<std::string> configuration;  // --config FILE
  bool checkConfiguration = false;           // --check-config
  bool tryLdap = false;                      // --try-ldap
  bool debug = false;                        // --debug
};

// Parses the command line. nullopt when the program is to exit with `exitStatus`: 0 after --help
// and --version, 2 for wrong usage; the message has been written by then.
std::optional<Options> readOptions(int count, const char* const* arguments, int& exitStatus);

// Paths of the daemon's files below its root.
class Paths {
 public:
  // `root` without a trailing slash; empty for the system itself.
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
  // Changes in progress, without a line there yet.
  std::string begunChanges() const { return stateFolder() + "/begun"; }
  std::string bundles() const { return root_ + "/usr/share/paddockd/bundles"; }

 private:
  std::string root_;
};

// The root that `argument` ("--root") names: absolute, without a trailing slash, empty for "/".
std::string rootFromArgument(const std::string& argument);

}  // namespace paddock
