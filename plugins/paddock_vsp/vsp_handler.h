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
#include <string_view>
#include <vector>

#include "paddock/plugin_request_handler.h"
#include "platform/program_runner.h"

namespace paddock {

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
