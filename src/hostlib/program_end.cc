#include "hostlib/program_end.h"

#include <sys/wait.h>

#include <algorithm>
#include <cerrno>

#include "base/status.h"
#include "paddock/sys_logger.h"

namespace paddock {
namespace {

constexpr int kSignalBase = 128;

}  // namespace

int argumentError(const std::string& path, const std::vector<std::string>& arguments) {
  const auto hasNul = [](const std::string& text) { return text.find('\0') != std::string::npos; };
  return hasNul(path) || std::any_of(arguments.begin(), arguments.end(), hasNul) ? EINVAL : 0;
}

int exitStatusOf(int waitStatus) {
  return WIFSIGNALED(waitStatus) ? kSignalBase + WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
}

void logFailedStart(const std::string& path, int error) {
  logMessage(3, "program " + path + " cannot be run: " + sharing_error_string(error));
}

void logExit(const std::string& path, int exitStatus) {
  if (exitStatus > kSignalBase) {
    logMessage(
        4, "program " + path + " was ended by signal " + std::to_string(exitStatus - kSignalBase));
  } else if (exitStatus != 0) {
    logMessage(4, "program " + path + " exited with status " + std::to_string(exitStatus));
  }
}

}  // namespace paddock
