#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <future>
#include <system_error>
#include <thread>
#include <utility>

#include "base/file_access.h"
#include "base/system_call.h"
#include "hostlib/spawned_program.h"
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

namespace {

enum class Stage : std::int32_t { detach, execute };

// What a child says of its failure, in one write to a pipe.
struct Failure {
  Stage stage = Stage::detach;
  std::int32_t error = 0;
};

// Everything that the child needs, made before the fork.
struct Preparation {
  const char* path = nullptr;
  char* const* argumentVector = nullptr;
  char* const* environment = nullptr;
  int failures = -1;
};

// From here to the end of becomeProgram a child runs that was forked off a process with threads:
// it calls what is async-signal-safe, and nothing else.

[[noreturn]] void fail(const Preparation& prepared, Stage stage, int exitStatus) {
  const Failure failure{stage, errno};
  const ssize_t written = ::write(prepared.failures, &failure, sizeof failure);
  ::_exit(written == sizeof failure ? exitStatus : 1);
}

bool redirectStandardStreams() {
  const int nowhere = ::open("/dev/null", O_RDWR);
  if (nowhere < 0) return false;
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (nowhere != stream && ::dup2(nowhere, stream) < 0) return false;
  }
  return nowhere <= STDERR_FILENO || ::close(nowhere) == 0;
}

void resetSignals() {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  for (int number = 1; number < NSIG; ++number) ::sigaction(number, &action, nullptr);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

[[noreturn]] void becomeProgram(const Preparation& prepared) {
  const pid_t daemon = ::_Fork();
  if (daemon > 0) ::_exit(0);
  if (daemon < 0 || ::setsid() < 0 || !redirectStandardStreams()) fail(prepared, Stage::detach, 0);
  resetSignals();
  ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  ::execve(prepared.path, prepared.argumentVector, prepared.environment);
  fail(prepared, Stage::execute, 1);
}

// No signal handler of this process runs in a child.
class BlockedSignals {
 public:
  BlockedSignals() {
    sigset_t all;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;
  ~BlockedSignals() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

// Ends when the program runs or the child ended.
Failure readFailure(int pipe) {
  Failure failure;
  const auto count =
      retryOnInterrupt([pipe, &failure] { return ::read(pipe, &failure, sizeof failure); });
  return count == sizeof failure ? failure : Failure{};
}

DetachedProgram startAndRelease(const Preparation& prepared, FileDescriptor& writing, int reading) {
  DetachedProgram result;
  {
    const BlockedSignals blocked;
    result.process = ::_Fork();
    if (result.process == 0) becomeProgram(prepared);
  }
  if (result.process < 0) {
    DetachedProgram failed;
    failed.error = errno;
    return failed;
  }
  writing = FileDescriptor();
  int status = 0;
  retryOnInterrupt([&] { return ::waitpid(result.process, &status, 0); });
  const Failure failure = readFailure(reading);
  if (failure.error == 0) return result;
  if (failure.stage == Stage::detach) result.detachError = failure.error;
  if (failure.stage == Stage::execute) logFailedStart(prepared.path, failure.error);
  return result;
}

}  // namespace

DetachedProgram startDetachedProgram(const std::string& path,
                                     const std::vector<std::string>& argumentVector) {
  const std::string program = hostPath(path);
  const auto failed = [&program](int error) {
    logFailedStart(program, error);
    DetachedProgram result;
    result.prepareError = error;
    return result;
  };
  if (const int error = argumentError(program, argumentVector); error != 0) return failed(error);
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return failed(errno);
  const FileDescriptor reading(ends[0]);
  // Above the standard three, which the child puts elsewhere.
  FileDescriptor made(ends[1]);
  FileDescriptor writing(::fcntl(made.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  made.reset();
  if (!writing) return failed(errno);
  std::vector<std::string> texts = argumentVector;
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  const std::array<char*, 1> empty{nullptr};
  const Preparation prepared{program.c_str(), pointers.data(), empty.data(), writing.get()};
  return startAndRelease(prepared, writing, reading.get());
}

}  // namespace paddock
