#include "hostlib/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <vector>

#include "base/system_call.h"
#include "hostlib/spawned_program.h"

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

namespace {

constexpr std::size_t kBlock = 64U << 10U;
// A pipe holds 1 MiB at most, so this reads all that was written before the program ended, and
// ends also when a process that the program left behind writes without pause.
constexpr int kBlocksAfterEnd = 32;

// Reads one block of a stream. False when it would block, and at its end, where it is closed.
bool readBlock(FileDescriptor& stream, std::vector<char>& buffer, std::size_t limit,
               std::string& text) {
  if (!stream) return false;
  const auto count = retryOnInterrupt(
      [&stream, &buffer] { return ::read(stream.get(), buffer.data(), buffer.size()); });
  if (count <= 0) {
    if (count == 0 || errno != EAGAIN) stream.reset();
    return false;
  }
  const std::size_t room = limit - std::min(limit, text.size());
  text.append(buffer.data(), std::min(room, static_cast<std::size_t>(count)));
  return true;
}

int millisecondsUntil(std::chrono::steady_clock::time_point deadline) {
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 3'600'000));
}

}  // namespace

bool readUntilEnd(ChildProcess& child, std::chrono::steady_clock::time_point deadline,
                  std::size_t limit, std::string& output, std::string& errorOutput) {
  std::vector<char> buffer(kBlock);
  for (;;) {
    // poll(2) skips the negative descriptor of a closed stream.
    std::array<pollfd, 3> watched{{{child.ended(), POLLIN, 0},
                                   {child.output().get(), POLLIN, 0},
                                   {child.errorOutput().get(), POLLIN, 0}}};
    const int wait = millisecondsUntil(deadline);
    retryOnInterrupt([&watched, wait] { return ::poll(watched.data(), watched.size(), wait); });
    const bool ended = watched[0].revents != 0;
    if (!ended && millisecondsUntil(deadline) == 0) return false;
    for (int blocks = ended ? kBlocksAfterEnd : 1; blocks > 0; --blocks) {
      const bool more = readBlock(child.output(), buffer, limit, output);
      if (!readBlock(child.errorOutput(), buffer, limit, errorOutput) && !more) break;
    }
    if (ended) return true;
  }
}

}  // namespace paddock
