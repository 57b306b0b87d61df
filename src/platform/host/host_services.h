// Platform services implemented by the host library: programs, plug-in commands, the log, and the
// status of unusable directory nodes.
#pragma once

#include "platform/logger.h"
#include "platform/plugin_commands.h"
#include "platform/program_runner.h"
#include "platform/search_node.h"

namespace paddock {

class HostProgramRunner : public ProgramRunner {
 public:
  ProgramOutcome run(const std::string& path, const std::vector<std::string>& arguments) override;
  int start(const std::string& path, const std::vector<std::string>& argumentVector) override;
  DetachedStart startDetached(const std::string& path,
                              const std::vector<std::string>& argumentVector) override;
  bool exists(const std::string& path) override;
  int probe(std::int64_t process) override;
};

class HostPluginCommands : public PluginCommands {
 public:
  Dictionary doCommand(const std::string& bundle, const Dictionary& command,
                       const std::string& module, const std::optional<std::string>& user) override;
};

class HostLogger : public Logger {
 public:
  void log(int priority, std::string_view text) override;
};

// Reports nodes that a search skipped, for the daemon's health, and has passwords checked as
// specified in paddock/password_checks.h.
class HostNodeObserver : public NodeObserver {
 public:
  void leftOut(const std::string& path, const DirectoryError& error) override;
  void answered(const std::string& path) override;
  Status checkPassword(const std::string& path, const std::string& name,
                       const std::function<Status()>& check) override;
};

}  // namespace paddock
