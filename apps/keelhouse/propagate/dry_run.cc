#include "keelhouse/propagate/dry_run.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "base/file_access.h"
#include "base/system_call.h"
#include "keelhouse/access/effective_commands.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/interruption.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/tree_program.h"
#include "keelhouse/propagate/progress_display.h"
#include "keelhouse/propagate/run_status.h"
#include "keelhouse/propagate/running_runs.h"
#include "wire/property_list.h"

namespace paddock::keelhouse {

namespace {

constexpr std::chrono::milliseconds kFirstPause{20};
constexpr std::chrono::milliseconds kLongestPause{250};
constexpr std::size_t kLongestComplaint = 4096;

class PrivateFolder {
 public:
  PrivateFolder() {
    std::error_code error;
    const auto place = std::filesystem::temp_directory_path(error);
    path_ = (error ? "/tmp" : place.string()) + "/keelhouse.XXXXXX";
    if (::mkdtemp(path_.data()) == nullptr) {
      throw failure(path_ + " cannot be made: " + std::generic_category().message(errno));
    }
  }
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;
  ~PrivateFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  std::string path(const char* name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Where the program's streams go.
class Streams {
 public:
  explicit Streams(const std::string& complaints) {
    constexpr mode_t kMode = 0600;
    constexpr int kNew = O_WRONLY | O_CREAT | O_EXCL;
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions_, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions_, STDERR_FILENO, complaints.c_str(), kNew, kMode);
  }
  Streams(const Streams&) = delete;
  Streams& operator=(const Streams&) = delete;
  ~Streams() { ::posix_spawn_file_actions_destroy(&actions_); }

  posix_spawn_file_actions_t& actions() { return actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
};

// A child, ended with the object.
class Child {
 public:
  Child(const TreeProgram& program, std::vector<std::string> words, Streams& streams) {
    const std::array<char*, 1> empty{nullptr};
    process_ = program.spawn(std::move(words), streams.actions(), empty.data());
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() {
    if (process_ <= 0) return;
    ::kill(process_, SIGTERM);
    retryOnInterrupt([this] { return ::waitpid(process_, nullptr, 0); });
  }

  bool hasEnded() {
    if (process_ > 0 && ::waitpid(process_, nullptr, WNOHANG) == process_) process_ = -1;
    return process_ <= 0;
  }

 private:
  pid_t process_ = -1;
};

std::string complaintsIn(const std::string& file) {
  try {
    std::string text = readSmallFile(file, kLongestComplaint).value_or("");
    while (text.ends_with('\n')) text.pop_back();
    return text;
  } catch (const std::system_error&) {
    return {};
  }
}

void show(ProgressDisplay& display, const std::string& statusFile) {
  if (const auto status = readStatusFile(statusFile)) display.show(readRunStatus(*status));
}

void waitForEnd(const Session& session, Child& program, const std::string& statusFile) {
  const Interruption interruption;
  ProgressDisplay display(session);
  for (auto pause = kFirstPause; !program.hasEnded(); pause = std::min(2 * pause, kLongestPause)) {
    show(display, statusFile);
    interruption.wait(pause);
    if (!interruption.happened()) continue;
    display.clear();
    throw failure("interrupted; nothing was changed");
  }
}

Dictionary statusIn(const std::string& report) {
  std::string error;
  auto value = wire::parsePropertyList(report, error);
  if (!value || value->dictionary() == nullptr)
    throw failure("what the daemon's program found cannot be read: " + error);
  return std::move(*value->dictionary());
}

// What the daemon's program found. Absent where root is to run it: no daemon can be asked, or it
// gave the program too little time.
std::optional<Dictionary> askDaemon(const Session& session, const std::string& path,
                                    std::uint32_t mask) {
  Dictionary reply;
  try {
    reply = session.daemon.call("paddock_access", "previewPropagation",
                                {{"path", path}, {"mask", mask}});
  } catch (const Failure& failed) {
    if (!leavesItToRoot(failed)) throw;
    return std::nullopt;
  }
  if (const std::string* report = reply.string("report"); report && !reply.contains("error"))
    return statusIn(*report);
  if (::geteuid() == 0) return std::nullopt;
  const std::string action = "what a run on " + path + " would change cannot be found out";
  if (const std::string* error = reply.string("error")) throw errorFailure(action, *error);
  const std::string* errors = reply.string("errors");
  throw daemonFailure(action + (errors != nullptr ? ": " + *errors : ""));
}

Dictionary runHere(const Session& session, const std::string& path, std::uint32_t mask) {
  const TreeProgram program(propagationProgram(session.root));
  const PrivateFolder folder;
  const std::string statusFile = folder.path("status");
  Streams streams(folder.path("complaints"));
  Child child(program,
              {"copyprivs", "-n", "-p", path, "-f", std::to_string(mask), "-s", statusFile},
              streams);
  waitForEnd(session, child, statusFile);
  if (auto status = readStatusFile(statusFile)) return std::move(*status);
  const std::string complaints = complaintsIn(folder.path("complaints"));
  throw failure(program.path() + " ended without saying what it found" +
                (complaints.empty() ? "" : ": " + complaints));
}

}  // namespace

Dictionary runDry(const Session& session, const std::string& path, std::uint32_t mask) {
  auto found = askDaemon(session, path, mask);
  return found ? std::move(*found) : runHere(session, path, mask);
}

}  // namespace paddock::keelhouse
