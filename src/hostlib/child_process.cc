#include "hostlib/child_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <array>
#include <csignal>

#include "base/system_call.h"
#include "paddock/sys_logger.h"

extern char** environ;  // NOLINT(readability-redundant-declaration): musl and glibc differ

namespace paddock {
namespace {

constexpr const char* kRequestVariable = "PADDOCK_REQUEST_ID=";

// posix_spawn's two argument objects.
class SpawnSettings {
 public:
  SpawnSettings() {
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawnattr_init(&attributes_);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;
  ~SpawnSettings() {
    ::posix_spawnattr_destroy(&attributes_);
    ::posix_spawn_file_actions_destroy(&actions_);
  }

  int prepare(int output, int errorOutput) {
    sigset_t none;
    sigset_t all;
    ::sigemptyset(&none);
    ::sigfillset(&all);
    constexpr auto kFlags =
        static_cast<short>(POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    for (const int failed :
         {::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0),
          ::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO),
          ::posix_spawn_file_actions_adddup2(&actions_, errorOutput, STDERR_FILENO),
          ::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1),
          ::posix_spawnattr_setpgroup(&attributes_, 0),
          ::posix_spawnattr_setsigmask(&attributes_, &none),
          ::posix_spawnattr_setsigdefault(&attributes_, &all),
          ::posix_spawnattr_setflags(&attributes_, kFlags)}) {
      if (failed != 0) return failed;
    }
    return 0;
  }

  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
};

std::vector<std::string> programEnvironment() {
  std::vector<std::string> result;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    std::string variable(*entry);
    if (variable.rfind(kRequestVariable, 0) != 0) result.push_back(std::move(variable));
  }
  if (!currentRequestId().empty()) result.push_back(kRequestVariable + currentRequestId());
  return result;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (std::string& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

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
  SpawnSettings settings;
  if (const int failed = settings.prepare(output, errorOutput)) return failed;
  std::vector<std::string> texts{path};
  texts.insert(texts.end(), arguments.begin(), arguments.end());
  std::vector<std::string> environment = programEnvironment();
  const std::vector<char*> argumentVector = pointers(texts);
  const std::vector<char*> environmentVector = pointers(environment);
  pid_t process = 0;
  const int failed =
      ::posix_spawn(&process, path.c_str(), settings.actions(), settings.attributes(),
                    argumentVector.data(), environmentVector.data());
  if (failed == 0) process_ = process;
  return failed;
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
