#include "platform/host/host_services.h"

#include "paddock/bundle_manager.h"
#include "paddock/run_program.h"
#include "paddock/sys_logger.h"

namespace paddock {

ProgramOutcome HostProgramRunner::run(const std::string& path,
                                      const std::vector<std::string>& arguments) {
  ProgramResult result = runProgram(path, arguments);
  return {result.status, std::move(result.output), std::move(result.errorOutput),
          result.exitStatus};
}

int HostProgramRunner::start(const std::string& path,
                             const std::vector<std::string>& argumentVector) {
  return startProgram(path, argumentVector);
}

Dictionary HostPluginCommands::doCommand(const std::string& bundle, const Dictionary& command,
                                         const std::string& module,
                                         const std::optional<std::string>& user) {
  return BundleManager::managerForBundle(bundle).doCommand(command, module, user);
}

void HostLogger::log(int priority, std::string_view text) { logMessage(priority, text); }

}  // namespace paddock
