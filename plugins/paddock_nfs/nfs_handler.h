// The plug-in paddock_nfs: the NFS server.
//
// Operations. No key of a request is read.
//
//   getState   -> "state": "RUNNING" when the kernel's server has threads (nfsd(7), its file
//                 "threads"), "STOPPED" when it has none or there is no such server
//   updateNFS  runs [nfs] update_command, "exportfs -ra" when the key is absent and nothing when it
//              is empty, and waits for it -> see runConfiguredCommand
//
// Programs and files are those below the host's root: a tree of its own has no server in the
// kernel.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "paddock/plugin_request_handler.h"
#include "platform/program_runner.h"

namespace paddock {

class NfsRequestHandler final : public PluginRequestHandler {
 public:
  // With the host's program runner, root and configuration.
  NfsRequestHandler();
  // With another runner, never null.
  explicit NfsRequestHandler(std::unique_ptr<ProgramRunner> runner);

  std::vector<Operation> operations() const override;
  Dictionary performOperation(std::string_view name, const Dictionary& request) override;

 private:
  static Dictionary getState();
  Dictionary updateNfs();

  std::unique_ptr<ProgramRunner> runner_;
};

}  // namespace paddock
