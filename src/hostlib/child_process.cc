#include "hostlib/child_process.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <array>
#include <csignal>

#include "base/system_call.h"
#include "hostlib/spawn.h"

namespace paddock {
namespace {

// A daemon may have been started without its three standard descriptors; a pipe that took one
// of their numbers would be closed when they are set up in the child.
int moveAboveStandard(FileDescriptor& descriptor) {
  if (descriptor.get() > STDERR_FILENO) return 0;
  FileDescriptor moved(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  if (!moved) return errno;
  descriptor = std::move(moved);
  return 0;
}

int makePipe(FileDescriptor& reading, FileDescriptor& writing) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return errno;
  reading = FileDescriptor(ends[0]);
  writing = FileDescriptor(ends[1]);
  if (const int failed = moveAboveStandard(reading)) return failed;
  if (const int failed = moveAboveStandard(writing)) return failed;
  // Only the reading end: the program gets an ordinary pipe.
  return ::fcntl(reading.get(), F_SETFL, O_NONBLOCK) == 0 ? 0 : errno;
}

}  // namespace

ChildProcess::~ChildProcess() {
  if (process_ <= 0) return;
  killGroup();
  reap();
}

int ChildProcess::start(const std::string& path, const std::vector<std::string>& arguments) {
  FileDescriptor output;
  FileDescriptor errorOutput;
  if (const int failed = makePipe(output_, output)) return failed;
  if (const int failed = makePipe(errorOutput_, errorOutput)) return failed;
  if (const int failed = spawn(path, arguments, output.get(), errorOutput.get())) return failed;
  ended_ = FileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, process_, 0)));
  if (ended_) return 0;
  const int failed = errno;
  killGroup();
  reap();
  return failed;
}

int ChildProcess::spawn(const std::string& path, const std::vector<std::string>& arguments,
                        int output, int errorOutput) {
  SpawnRequest request;
  request.path = path;
  request.argumentVector = {path};
  request.argumentVector.insert(request.argumentVector.end(), arguments.begin(), arguments.end());
  request.output = output;
  request.errorOutput = errorOutput;
  return spawnProgram(request, process_);
}

void ChildProcess::killGroup() const {
  if (process_ > 0) ::kill(-process_, SIGKILL);
}

int ChildProcess::reap() {
  int status = 0;
  const pid_t process = std::exchange(process_, 0);
  retryOnInterrupt([process, &status] { return ::waitpid(process, &status, 0); });
  return status;
}

}  // namespace paddock
