// The plug-in paddock_vsp: whichever server speaks the native file protocol.
//
// Operations. No key of a request is read.
//
//   getState         -> "state": "RUNNING" or "STOPPED", as [vsp] state says how to know
//   syncSharePoints  runs [vsp] sync_command, and waits for it -> see runConfiguredCommand
//
// The command runs below the host's root, and more than once at a time when several ask: the
// sharing plug-in asks with its lock held, so nothing here may wait for another request.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "paddock/plugin_request_handler.h"
#include "platform/program_runner.h"

namespace paddock {

// Files in which a server notes its process.

// Whether the process runs whose number stands in the first line of the file, links followed. A
// file that is missing, cannot be read, is no regular file, is longer than 4 KiB or does not begin
// with a process' number (decimal, blanks around it) names none; a zombie does not run. Never
// blocks, and sends no signal.
bool processOfPidFileRuns(const std::string& path);

// Whether the server that speaks VSP runs, as the configuration says how to know.

// `state` is the key "state" of [vsp]:
//   "running", "stopped"  fixed to that state
//   "unit:NAME"           whether systemd reports the unit as active; no where there is no systemd
//   "pidfile:PATH"        whether the process runs that the file names; PATH is taken below `root`
// Anything else is a server that does not run.
bool vspServerRuns(const std::string& state, const std::string& root, ProgramRunner& runner);

class VspRequestHandler final : public PluginRequestHandler {
 public:
  // With the host's program runner, root and configuration.
  VspRequestHandler();
  // With another runner, never null.
  explicit VspRequestHandler(std::unique_ptr<ProgramRunner> runner);

  std::vector<Operation> operations() const override;
  Dictionary performOperation(std::string_view name, const Dictionary& request) override;

 private:
  Dictionary getState();
  Dictionary syncSharePoints();

  std::unique_ptr<ProgramRunner> runner_;
};

}  // namespace paddock
