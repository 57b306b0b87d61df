#include "keelhouse/propagate/running_runs.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <memory>
#include <sstream>
#include <string_view>
#include <system_error>

#include "base/system_call.h"
#include "base/text.h"
#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kProcesses = "/proc";
constexpr const char* kProgram =
    "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/copyprivs";
constexpr const char* kStatusFile = "/tmp/CopyPrivsTemp.";
constexpr std::size_t kUniquePart = 6;
constexpr std::string_view kReplaced = " (deleted)";
// Two paths of the longest kind, and some room.
constexpr std::size_t kLongestArguments = std::size_t{4} * 4096;

std::string folderOf(pid_t process) {
  return std::string(kProcesses) + "/" + std::to_string(process);
}

// At most so much of what /proc says in the file; empty when there is no such process (any more).
std::string textOf(pid_t process, const char* name, std::size_t most) {
  const FileDescriptor file(
      ::open((folderOf(process) + name).c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
  std::string text(most, '\0');
  std::size_t size = 0;
  while (file && size < text.size()) {
    const auto count = retryOnInterrupt(
        [&] { return ::read(file.get(), text.data() + size, text.size() - size); });
    if (count <= 0) break;
    size += static_cast<std::size_t>(count);
  }
  return text.substr(0, size);
}

std::string argumentsOf(pid_t process) { return textOf(process, "/cmdline", kLongestArguments); }

std::vector<std::string_view> splitArguments(std::string_view text) {
  std::vector<std::string_view> arguments;
  while (!text.empty()) {
    const std::size_t end = text.find('\0');
    if (end == std::string_view::npos) return {};
    arguments.push_back(text.substr(0, end));
    text.remove_prefix(end + 1);
  }
  return arguments;
}

std::string canonical(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr),
                                                             &std::free);
  return resolved != nullptr ? resolved.get() : path;
}

// Without a slash at the end; empty for the system.
std::string canonicalRoot(const std::string& root) {
  std::string resolved = canonical(root + "/");
  while (resolved.ends_with('/')) resolved.pop_back();
  return resolved;
}

// Absent when only root may know.
std::optional<std::string> executableOf(pid_t process) {
  std::error_code error;
  std::string path = std::filesystem::read_symlink(folderOf(process) + "/exe", error).string();
  if (error) return std::nullopt;
  // A package that is installed again replaces the file of a running program.
  if (path.ends_with(kReplaced)) path.resize(path.size() - kReplaced.size());
  return path;
}

// The process's user, when it is that user in every respect. Whoever runs a set-user-ID program of
// root's chooses its arguments, and it is root's by its effective uid; the real one stays his. And
// the files of a process that cannot be dumped are root's, whoever's it is: see proc(5).
std::optional<std::uint64_t> userOf(pid_t process) {
  constexpr std::size_t kLongestStatus = 65536;
  constexpr std::string_view kUids = "Uid:";  // real, effective, saved, of the file system
  std::istringstream status(textOf(process, "/status", kLongestStatus));
  for (std::string line; std::getline(status, line);) {
    if (!line.starts_with(kUids)) continue;
    std::istringstream numbers(line.substr(kUids.size()));
    std::array<std::uint64_t, 4> uids{};
    for (std::uint64_t& uid : uids) numbers >> uid;
    const bool isOne = std::all_of(uids.begin(), uids.end(),
                                   [&uids](std::uint64_t uid) { return uid == uids.front(); });
    return numbers && isOne ? std::optional(uids.front()) : std::nullopt;
  }
  return std::nullopt;
}

bool isOfRootOrCaller(pid_t process) {
  const auto user = userOf(process);
  return user == 0U || user == ::geteuid();
}

bool isStatusFileBelow(const std::string& root, const std::string& file) {
  const std::string place = root + kStatusFile;
  return file.size() == place.size() + kUniquePart && file.starts_with(place) &&
         file.find('/', place.size()) == std::string::npos;
}

bool belongsTo(const std::string& root, const RunningRun& run) {
  if (!isOfRootOrCaller(run.process)) return false;
  if (const auto executable = executableOf(run.process)) {
    return *executable == propagationProgram(canonicalRoot(root)) ||
           *executable == canonical(propagationProgram(root));
  }
  return ::geteuid() != 0 && (isStatusFileBelow(root, run.statusFile) ||
                              isStatusFileBelow(canonicalRoot(root), run.statusFile));
}

std::optional<RunningRun> findRun(const std::string& root, pid_t process) {
  auto run = parseRunArguments(process, argumentsOf(process));
  return run && belongsTo(root, *run) ? run : std::nullopt;
}

std::optional<pid_t> numberOf(const std::string& name) {
  const auto number = parseInteger(name);
  if (!number || *number <= 0 || *number > std::numeric_limits<pid_t>::max()) return std::nullopt;
  return static_cast<pid_t>(*number);
}

std::vector<pid_t> processes() {
  std::vector<pid_t> found;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(kProcesses, error), end; !error && entry != end;
       entry.increment(error)) {
    if (const auto number = numberOf(entry->path().filename().string())) found.push_back(*number);
  }
  std::sort(found.begin(), found.end());
  return found;
}

}  // namespace

std::string propagationProgram(const std::string& root) { return root + kProgram; }

std::optional<RunningRun> parseRunArguments(pid_t process, const std::string& arguments) {
  const auto words = splitArguments(arguments);
  constexpr std::size_t kWords = 7;
  if (words.size() != kWords || words[0] != "CopyPrivs" || words[1] != "-p" || words[3] != "-f" ||
      words[5] != "-s") {
    return std::nullopt;
  }
  const auto mask = parseInteger(words[4]);
  if (!mask || *mask < 0 || *mask > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
  return RunningRun{process, std::string(words[2]), static_cast<std::uint32_t>(*mask),
                    std::string(words[6])};
}

std::vector<RunningRun> runningRuns(const std::string& root) {
  std::vector<RunningRun> runs;
  for (const pid_t process : processes()) {
    if (auto run = findRun(root, process)) runs.push_back(std::move(*run));
  }
  return runs;
}

FileDescriptor holdRun(const std::string& root, const RunningRun& run) {
  FileDescriptor held(static_cast<int>(::syscall(SYS_pidfd_open, run.process, 0)));
  if (!held && errno != ESRCH) throw systemError(errno, "pidfd_open", folderOf(run.process));
  // Whatever the number stood for before, from here on it stands for what is held.
  if (!held || findRun(root, run.process) != run) return {};
  return held;
}

namespace {

std::string named(const RunningRun& run) {
  return "process " + std::to_string(run.process) + ", which works on " + printable(run.path) + ",";
}

void signal(const FileDescriptor& held, const RunningRun& run) {
  const int error =
      errnoOf([&] { return ::syscall(SYS_pidfd_send_signal, held.get(), SIGTERM, nullptr, 0); });
  if (error != 0 && error != ESRCH) {
    throw failure(named(run) + " cannot be ended: " + std::generic_category().message(error));
  }
}

}  // namespace

void stopRun(const std::string& root, const RunningRun& run, std::chrono::milliseconds patience) {
  const FileDescriptor held = holdRun(root, run);
  if (!held) return;
  signal(held, run);
  pollfd end{held.get(), POLLIN, 0};
  const int ready =
      retryOnInterrupt([&] { return ::poll(&end, 1, static_cast<int>(patience.count())); });
  if (ready != 1) {
    throw failure(named(run) + " was told to end, and has not yet\nIt may be waiting for a disk.");
  }
}

}  // namespace paddock::keelhouse
