#include "platform/host/host_services.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <limits>

#include "paddock/host.h"
#include "paddock/password_checks.h"
#include "paddock/run_program.h"
#include "paddock/sys_logger.h"
#include "paddock/unanswered_nodes.h"

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

DetachedStart HostProgramRunner::startDetached(const std::string& path,
                                               const std::vector<std::string>& argumentVector) {
  const DetachedProgram program = startDetachedProgram(path, argumentVector);
  return {program.error, program.process, program.detachError, program.prepareError};
}

bool HostProgramRunner::exists(const std::string& path) {
  return ::access(hostPath(path).c_str(), F_OK) == 0;
}

int HostProgramRunner::probe(std::int64_t process) {
  if (process < std::numeric_limits<pid_t>::min() || process > std::numeric_limits<pid_t>::max()) {
    return ESRCH;
  }
  return ::kill(static_cast<pid_t>(process), 0) == 0 ? 0 : errno;
}

Dictionary HostPluginCommands::doCommand(const std::string& bundle, const Dictionary& command,
                                         const std::string& module,
                                         const std::optional<std::string>& user) {
  return BundleManager::managerForBundle(bundle).doCommand(command, module, user);
}

void HostLogger::log(int priority, std::string_view text) { logMessage(priority, text); }

void HostNodeObserver::leftOut(const std::string& path, const DirectoryError& error) {
  noteUnanswered(path, nodeTroubleOf(error.status()), error.what());
}

void HostNodeObserver::answered(const std::string& path) { noteAnswered(path); }

Status HostNodeObserver::checkPassword(const std::string& path, const std::string& name,
                                       const std::function<Status()>& check) {
  return paddock::checkPassword(path, name, check);
}

}  // namespace paddock
