#include "synchronize-shares/smb_server.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <string_view>
#include <utility>

#include "base/file_descriptor.h"
#include "base/system_call.h"

extern char** environ;  // NOLINT(readability-redundant-declaration): musl and glibc differ

namespace paddock::synchronizer {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kKeptOutput = 4096;
// What smbcontrol says when there is no smbd.
constexpr std::string_view kNotRunning = "Can't find pid for destination";

// A run of smbcontrol; ended with this object. It stays in the process group of this program, so
// that who ends that ends both.
class SmbControl {
 public:
  SmbControl() = default;
  SmbControl(const SmbControl&) = delete;
  SmbControl& operator=(const SmbControl&) = delete;
  ~SmbControl() {
    if (process_ == 0) return;
    ::kill(process_, SIGKILL);
    reap();
  }

  // 0, or the errno that kept it from starting.
  int start(const std::string& program);
  // What it writes until its end, as much as is kept; false when the end does not come in time.
  bool readUntilEnd(Clock::time_point deadline, std::string& output) const;
  // Waits for it; its exit status, -1 when a signal ended it.
  int reap();

 private:
  int spawn(const std::string& program, int output);
  // Whether there was something to read.
  bool readSome(std::string& output) const;

  pid_t process_ = 0;
  FileDescriptor output_;
  FileDescriptor ended_;
};

int SmbControl::start(const std::string& program) {
  std::array<int, 2> ends{};
  if (const int error = errnoOf([&ends] { return ::pipe2(ends.data(), O_CLOEXEC); })) return error;
  output_ = FileDescriptor(ends[0]);
  const FileDescriptor writing(ends[1]);
  if (const int error = spawn(program, writing.get())) return error;
  int descriptor = -1;
  const int error = errnoOf([this] { return ::syscall(SYS_pidfd_open, process_, 0); }, &descriptor);
  ended_ = FileDescriptor(descriptor);
  return error;
}

int SmbControl::spawn(const std::string& program, int output) {
  std::array<std::string, 3> words{program, "smbd", "reload-config"};
  std::array<char*, 4> arguments{words[0].data(), words[1].data(), words[2].data(), nullptr};
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  ::posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
  const int error =
      ::posix_spawn(&process_, program.c_str(), &actions, nullptr, arguments.data(), environ);
  if (error != 0) process_ = 0;
  ::posix_spawn_file_actions_destroy(&actions);
  return error;
}

bool SmbControl::readUntilEnd(Clock::time_point deadline, std::string& output) const {
  std::array<pollfd, 2> events{{{output_.get(), POLLIN, 0}, {ended_.get(), POLLIN, 0}}};
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) return false;
    const int error = errnoOf(
        [&] { return ::poll(events.data(), events.size(), static_cast<int>(left.count())); });
    if (error != 0) return false;
    if ((events[0].revents & POLLIN) != 0 && readSome(output)) continue;
    if (events[1].revents != 0) return true;
    // At its end the pipe is ready for ever.
    if (events[0].revents != 0) events[0].fd = -1;
  }
}

bool SmbControl::readSome(std::string& output) const {
  std::array<char, kKeptOutput> bytes{};
  std::size_t count = 0;
  const int error =
      errnoOf([&] { return ::read(output_.get(), bytes.data(), bytes.size()); }, &count);
  if (error != 0 || count == 0) return false;
  output.append(bytes.data(), std::min(count, kKeptOutput - output.size()));
  return true;
}

int SmbControl::reap() {
  int status = 0;
  const pid_t process = std::exchange(process_, 0);
  if (retryOnInterrupt([&] { return ::waitpid(process, &status, 0); }) != process) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

std::string tellSmbServer(const std::string& program, std::chrono::milliseconds patience) {
  SmbControl control;
  const int error = control.start(program);
  if (error == ENOENT) return {};
  if (error != 0) return systemError(error, "smbd is not told, cannot start", program).what();
  std::string output;
  if (!control.readUntilEnd(Clock::now() + patience, output))
    return "smbd is not told, " + program + " takes too long";
  const int status = control.reap();
  if (status == 0 || output.find(kNotRunning) != std::string::npos) return {};
  return "smbd is not told, " + program + " ended with status " + std::to_string(status) + ": " +
         output;
}

}  // namespace paddock::synchronizer
