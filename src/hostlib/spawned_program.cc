#include "hostlib/spawned_program.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

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

extern char** environ;  // NOLINT(readability-redundant-declaration): musl and glibc differ

namespace paddock {

namespace {

constexpr const char* kRequestVariable = "PADDOCK_REQUEST_ID=";
// Who has it can speak to the service manager for the daemon.
constexpr const char* kNotificationVariable = "NOTIFY_SOCKET=";
constexpr const char* kNoLdapFilesVariable = "LDAPNOINIT=";
constexpr const char* kNowhere = "/dev/null";

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

  int prepare(const SpawnRequest& request) {
    if (const int failed = prepareStreams(request)) return failed;
    sigset_t none;
    sigset_t all;
    ::sigemptyset(&none);
    ::sigfillset(&all);
    const int group = request.ownSession ? POSIX_SPAWN_SETSID : POSIX_SPAWN_SETPGROUP;
    const auto flags = static_cast<short>(group | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    for (const int failed : {::posix_spawnattr_setpgroup(&attributes_, 0),
                             ::posix_spawnattr_setsigmask(&attributes_, &none),
                             ::posix_spawnattr_setsigdefault(&attributes_, &all),
                             ::posix_spawnattr_setflags(&attributes_, flags)}) {
      if (failed != 0) return failed;
    }
    return 0;
  }

  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  int prepareStreams(const SpawnRequest& request) {
    const auto open = [this](int stream, int flags) {
      return ::posix_spawn_file_actions_addopen(&actions_, stream, kNowhere, flags, 0);
    };
    const auto redirect = [this](int from, int stream) {
      return ::posix_spawn_file_actions_adddup2(&actions_, from, stream);
    };
    for (const int failed :
         {::posix_spawn_file_actions_addchdir_np(&actions_, "/"), open(STDIN_FILENO, O_RDONLY),
          request.output >= 0 ? redirect(request.output, STDOUT_FILENO)
                              : open(STDOUT_FILENO, O_WRONLY),
          request.errorOutput >= 0 ? redirect(request.errorOutput, STDERR_FILENO) : 0,
          ::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1)}) {
      if (failed != 0) return failed;
    }
    return 0;
  }

  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
};

// Without what was set for this process alone.
std::vector<std::string> programEnvironment() {
  std::vector<std::string> result;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    std::string variable(*entry);
    const bool isOwn = variable.starts_with(kRequestVariable) ||
                       variable.starts_with(kNotificationVariable) ||
                       variable.starts_with(kNoLdapFilesVariable);
    if (!isOwn) result.push_back(std::move(variable));
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

}  // namespace

int spawnProgram(const SpawnRequest& request, pid_t& process) {
  SpawnSettings settings;
  if (const int failed = settings.prepare(request)) return failed;
  std::vector<std::string> texts = request.argumentVector;
  std::vector<std::string> environment = programEnvironment();
  const std::vector<char*> argumentVector = pointers(texts);
  const std::vector<char*> environmentVector = pointers(environment);
  pid_t started = 0;
  const int failed =
      ::posix_spawn(&started, request.path.c_str(), settings.actions(), settings.attributes(),
                    argumentVector.data(), environmentVector.data());
  if (failed == 0) process = started;
  return failed;
}

}  // namespace paddock
