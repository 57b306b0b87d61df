#include "platform/linux/process/bounded_program.h"

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
#include <utility>

#include "base/file_access.h"
#include "base/system_call.h"

extern char** environ;  // NOLINT(readability-redundant-declaration): musl and glibc differ

namespace paddock {

namespace {

using Time = std::chrono::steady_clock;

// One output stream of the program.
struct Stream {
  FileDescriptor reading;
  std::string kept;
};

// What the program is started with.
class SpawnSettings {
 public:
  SpawnSettings(int output, int errorOutput) {
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawn_file_actions_addchdir_np(&actions_, "/");
    ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions_, errorOutput, STDERR_FILENO);
    ::posix_spawnattr_init(&attributes_);
    sigset_t signals;
    ::sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes_, &signals);
    ::sigfillset(&signals);
    ::posix_spawnattr_setsigdefault(&attributes_, &signals);
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;
  ~SpawnSettings() {
    ::posix_spawnattr_destroy(&attributes_);
    ::posix_spawn_file_actions_destroy(&actions_);
  }
  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
};

// A run; ended with this object.
class BoundedRun {
 public:
  explicit BoundedRun(std::size_t limit) : limit_(limit) {}
  BoundedRun(const BoundedRun&) = delete;
  BoundedRun& operator=(const BoundedRun&) = delete;
  ~BoundedRun() {
    if (process_ == 0) return;
    ::kill(process_, SIGKILL);
    reap();
  }

  // 0, or the errno that kept it from starting.
  int start(const std::string& path, const std::vector<std::string>& arguments);
  // False when its end does not come in time.
  bool readUntilEnd(Time::time_point deadline);
  // Waits for it; its exit status.
  int reap();

  std::string output() { return std::move(streams_[0].kept); }
  std::string errorOutput() { return std::move(streams_[1].kept); }

 private:
  int spawn(const std::string& path, const std::vector<std::string>& arguments, int output,
            int errorOutput);
  // Whether there was something to read.
  bool readSome(Stream& stream) const;

  const std::size_t limit_;
  pid_t process_ = 0;
  std::array<Stream, 2> streams_;
  FileDescriptor ended_;
};

int BoundedRun::start(const std::string& path, const std::vector<std::string>& arguments) {
  std::array<FileDescriptor, 2> writing;
  for (std::size_t at = 0; at < streams_.size(); ++at) {
    std::array<int, 2> ends{};
    if (const int error = errnoOf([&ends] { return ::pipe2(ends.data(), O_CLOEXEC); }))
      return error;
    streams_[at].reading = FileDescriptor(ends[0]);
    writing[at] = FileDescriptor(ends[1]);
  }
  if (const int error = spawn(path, arguments, writing[0].get(), writing[1].get())) return error;
  int descriptor = -1;
  const int error = errnoOf([this] { return ::syscall(SYS_pidfd_open, process_, 0); }, &descriptor);
  ended_ = FileDescriptor(descriptor);
  return error;
}

int BoundedRun::spawn(const std::string& path, const std::vector<std::string>& arguments,
                      int output, int errorOutput) {
  std::vector<std::string> words{path};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  const SpawnSettings settings(output, errorOutput);
  const int error = ::posix_spawn(&process_, path.c_str(), settings.actions(),
                                  settings.attributes(), pointers.data(), environ);
  if (error != 0) process_ = 0;
  return error;
}

bool BoundedRun::readUntilEnd(Time::time_point deadline) {
  std::array<pollfd, 3> events{{{streams_[0].reading.get(), POLLIN, 0},
                                {streams_[1].reading.get(), POLLIN, 0},
                                {ended_.get(), POLLIN, 0}}};
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Time::now());
    if (left.count() <= 0) return false;
    const int error = errnoOf(
        [&] { return ::poll(events.data(), events.size(), static_cast<int>(left.count())); });
    if (error != 0) return false;
    bool wasRead = false;
    for (std::size_t at = 0; at < streams_.size(); ++at) {
      if (events[at].revents == 0) continue;
      if ((events[at].revents & POLLIN) != 0 && readSome(streams_[at]))
        wasRead = true;
      else
        events[at].fd = -1;  // at its end the pipe is ready for ever
    }
    if (!wasRead && events[2].revents != 0) return true;
  }
}

bool BoundedRun::readSome(Stream& stream) const {
  std::array<char, 65536> bytes;
  std::size_t count = 0;
  const int error =
      errnoOf([&] { return ::read(stream.reading.get(), bytes.data(), bytes.size()); }, &count);
  if (error != 0 || count == 0) return false;
  stream.kept.append(bytes.data(), std::min(count, limit_ - stream.kept.size()));
  return true;
}

int BoundedRun::reap() {
  int status = 0;
  const pid_t process = std::exchange(process_, 0);
  if (retryOnInterrupt([&] { return ::waitpid(process, &status, 0); }) != process) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

BoundedOutcome runBoundedProgram(const std::string& path, const std::vector<std::string>& arguments,
                                 std::chrono::milliseconds patience, std::size_t limit) {
  BoundedOutcome outcome;
  BoundedRun run(limit);
  outcome.status = run.start(path, arguments);
  if (outcome.status != 0) return outcome;
  if (!run.readUntilEnd(Time::now() + patience)) {
    outcome.status = ETIMEDOUT;
    return outcome;
  }
  outcome.output = run.output();
  outcome.errorOutput = run.errorOutput();
  outcome.exitStatus = run.reap();
  return outcome;
}

}  // namespace paddock
