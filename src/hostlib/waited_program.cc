#include "hostlib/waited_program.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

#include "hostlib/child_process.h"
#include "hostlib/spawned_program.h"
#include "paddock/host.h"
#include "paddock/run_program.h"
#include "paddock/sys_logger.h"

namespace paddock {

void ProgramRegistry::startAndRegister(const std::string& request,
                                       const std::function<pid_t()>& start) {
  const MutexLock lock(mutex_);
  const pid_t group = start();
  if (group > 0) requests_.insert_or_assign(group, request);
}

void ProgramRegistry::forget(pid_t group) {
  const MutexLock lock(mutex_);
  requests_.erase(group);
}

std::optional<std::string> ProgramRegistry::requestOf(pid_t process) const {
  if (process <= 0) return std::nullopt;
  const MutexLock lock(mutex_);
  if (requests_.empty()) return std::nullopt;
  const auto found = requests_.find(::getpgid(process));
  return found != requests_.end() ? std::optional(found->second) : std::nullopt;
}

namespace {

constexpr std::size_t kLoggedErrorOutput = 4096;

std::atomic<std::chrono::seconds::rep> gTimeLimit{kProgramTimeLimit.count()};

// Never destroyed: a request may still run a program while the process ends.
ProgramRegistry& registry() {
  static ProgramRegistry& instance = *new ProgramRegistry;
  return instance;
}

void logErrorOutput(const std::string& path, std::string_view text) {
  const bool cut = text.size() > kLoggedErrorOutput;
  text = text.substr(0, kLoggedErrorOutput);
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    if (end > 0)
      logMessage(4, std::string("program ").append(path).append(": ").append(text.substr(0, end)));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  if (cut) logMessage(4, "program " + path + ": more on standard error, left out here");
}

void logResult(const std::string& path, const ProgramResult& result) {
  logErrorOutput(path, result.errorOutput);
  if (result.status == ETIMEDOUT) {
    logMessage(3, "program " + path + " took too long and was ended");
  } else if (result.status != 0) {
    logFailedStart(path, result.status);
  } else {
    logExit(path, result.exitStatus);
  }
}

ProgramResult runAndWait(const std::string& path, const std::vector<std::string>& arguments,
                         std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  ProgramResult result;
  result.status = argumentError(path, arguments);
  if (result.status != 0) return result;
  ChildProcess child;
  registry().startAndRegister(currentRequestId(), [&] {
    result.status = child.start(path, arguments);
    return child.process();
  });
  if (result.status != 0) return result;
  if (!readUntilEnd(child, deadline, kProgramOutputLimit, result.output, result.errorOutput)) {
    result.status = ETIMEDOUT;
    child.killGroup();
  }
  registry().forget(child.process());
  result.exitStatus = exitStatusOf(child.reap());
  return result;
}

}  // namespace

ProgramResult runProgramWithin(const std::string& path, const std::vector<std::string>& arguments,
                               std::chrono::milliseconds limit) {
  const std::string program = hostPath(path);
  ProgramResult result = runAndWait(program, arguments, limit);
  logResult(program, result);
  return result;
}

ProgramResult askProgram(const std::string& path, const std::vector<std::string>& arguments,
                         std::chrono::milliseconds limit) {
  return runAndWait(hostPath(path), arguments, limit);
}

ProgramResult runProgram(const std::string& path, const std::vector<std::string>& arguments) {
  return runProgramWithin(path, arguments, std::chrono::seconds(gTimeLimit.load()));
}

void setProgramTimeLimit(std::chrono::seconds limit) { gTimeLimit = limit.count(); }

bool isRunningProgram(pid_t process) { return registry().requestOf(process).has_value(); }

std::string requestOfProgram(pid_t process) {
  return registry().requestOf(process).value_or(std::string());
}

}  // namespace paddock
