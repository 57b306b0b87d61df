#include <sys/wait.h>

#include <future>
#include <system_error>
#include <thread>
#include <utility>

#include "base/system_call.h"
#include "hostlib/program_end.h"
#include "hostlib/spawn.h"
#include "paddock/host.h"
#include "paddock/run_program.h"
#include "paddock/sys_logger.h"

namespace paddock {
namespace {

// Starts the program, says whether that worked, and stays until it has ended.
void startAndReap(const SpawnRequest& request, const std::string& requestId,
                  std::promise<int> started) {
  const RequestIdScope scope(requestId);
  pid_t process = 0;
  const int failed = spawnProgram(request, process);
  if (failed != 0) logFailedStart(request.path, failed);
  started.set_value(failed);
  if (failed != 0) return;
  int status = 0;
  if (retryOnInterrupt([&] { return ::waitpid(process, &status, 0); }) == process) {
    logExit(request.path, exitStatusOf(status));
  }
}

}  // namespace

int startProgram(const std::string& path, const std::vector<std::string>& argumentVector) {
  SpawnRequest request;
  request.path = hostPath(path);
  request.argumentVector = argumentVector;
  request.ownSession = true;
  if (const int error = argumentError(request.path, argumentVector); error != 0) {
    logFailedStart(request.path, error);
    return error;
  }
  std::promise<int> started;
  std::future<int> outcome = started.get_future();
  try {
    // The thread is there before the program, so that none is ever left unreaped.
    std::thread(startAndReap, request, currentRequestId(), std::move(started)).detach();
  } catch (const std::system_error& error) {
    logFailedStart(request.path, error.code().value());
    return error.code().value();
  }
  return outcome.get();
}

}  // namespace paddock
