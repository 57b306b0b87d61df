#include "samba/smb_check.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <string_view>
#include <utility>

#include "base/file_access.h"
#include "base/system_call.h"

namespace paddock::samba {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kPatience{10};
constexpr std::size_t kKeptOutput = 65536;

// How testparm says, with exit status 0, that a line has no effect.
constexpr std::string_view kComplaints[] = {"Unknown parameter", "Global parameter", "Ignoring ",
                                            "WARNING:",          "ERROR:",           "Invalid "};
// What it says of every configuration.
constexpr std::string_view kUsual[] = {"Load smb config files", "Loaded services file",
                                       "Error loading services", "Weak crypto", "Server role"};

// A file in memory that holds the configuration.
FileDescriptor memoryFile(const std::string& text, int& error) {
  int descriptor = -1;
  error = errnoOf([] { return ::memfd_create("smb.conf", MFD_CLOEXEC); }, &descriptor);
  FileDescriptor file(descriptor);
  if (error == 0 && !writeAll(file.get(), text)) error = errno;
  return file;
}

// A run of testparm over the file; ended with this object.
class TestParm {
 public:
  TestParm() = default;
  TestParm(const TestParm&) = delete;
  TestParm& operator=(const TestParm&) = delete;
  ~TestParm() {
    if (process_ == 0) return;
    ::kill(process_, SIGKILL);
    reap();
  }

  // 0, or the errno that kept it from starting.
  int start(const std::string& program, int configuration);
  // What it writes to standard error; false when its end does not come in time.
  bool readUntilEnd(Clock::time_point deadline, std::string& output) const;
  // Its exit status, -1 when a signal ended it.
  int reap();

 private:
  pid_t process_ = 0;
  FileDescriptor output_;
};

int TestParm::start(const std::string& program, int configuration) {
  std::array<int, 2> ends{};
  if (const int error = errnoOf([&ends] { return ::pipe2(ends.data(), O_CLOEXEC); })) return error;
  output_ = FileDescriptor(ends[0]);
  const FileDescriptor writing(ends[1]);
  std::array<std::string, 3> words{program, "--suppress-prompt", "/dev/stdin"};
  std::array<char*, 4> arguments{words[0].data(), words[1].data(), words[2].data(), nullptr};
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, configuration, STDIN_FILENO);
  ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  ::posix_spawn_file_actions_adddup2(&actions, writing.get(), STDERR_FILENO);
  // Its messages are matched; nothing of the caller's surroundings changes them.
  std::array<std::string, 2> settings{"LC_ALL=C", "PATH=/usr/bin:/bin"};
  std::array<char*, 3> environment{settings[0].data(), settings[1].data(), nullptr};
  const int error = ::posix_spawn(&process_, program.c_str(), &actions, nullptr, arguments.data(),
                                  environment.data());
  if (error != 0) process_ = 0;
  ::posix_spawn_file_actions_destroy(&actions);
  return error;
}

bool TestParm::readUntilEnd(Clock::time_point deadline, std::string& output) const {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) return false;
    pollfd event{output_.get(), POLLIN, 0};
    if (errnoOf([&] { return ::poll(&event, 1, static_cast<int>(left.count())); }) != 0)
      return false;
    if (event.revents == 0) continue;
    std::array<char, 4096> bytes{};
    std::size_t count = 0;
    const int error =
        errnoOf([&] { return ::read(output_.get(), bytes.data(), bytes.size()); }, &count);
    if (error != 0 || count == 0) return error == 0;
    output.append(bytes.data(), std::min(count, kKeptOutput - output.size()));
  }
}

int TestParm::reap() {
  int status = 0;
  const pid_t process = std::exchange(process_, 0);
  if (retryOnInterrupt([&] { return ::waitpid(process, &status, 0); }) != process) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

template <typename Texts>
bool beginsWithOneOf(std::string_view line, const Texts& texts) {
  return std::any_of(std::begin(texts), std::end(texts),
                     [line](std::string_view text) { return line.starts_with(text); });
}

// The first line that complains; with `anyLine` the first that is not a usual one.
std::string complaintIn(std::string_view output, bool anyLine) {
  while (!output.empty()) {
    const std::size_t end = std::min(output.find('\n'), output.size());
    const std::string_view line = output.substr(0, end);
    if (beginsWithOneOf(line, kComplaints)) return std::string(line);
    if (anyLine && !line.empty() && !beginsWithOneOf(line, kUsual)) return std::string(line);
    output.remove_prefix(std::min(end + 1, output.size()));
  }
  return {};
}

}  // namespace

std::optional<std::string> faultSaidByTestparm(const std::string& program,
                                               const std::string& lines) {
  if (::access(program.c_str(), X_OK) != 0 && errno == ENOENT) return std::nullopt;
  int error = 0;
  const FileDescriptor file = memoryFile("[share]\n    path = /\n" + lines, error);
  TestParm run;
  if (error == 0) error = run.start(program, file.get());
  if (error != 0) return systemError(error, "cannot run", program).what();
  std::string output;
  if (!run.readUntilEnd(Clock::now() + kPatience, output)) return program + " takes too long";
  const int status = run.reap();
  std::string complaint = complaintIn(output, status != 0);
  if (complaint.empty() && status != 0)
    complaint = program + " ended with status " + std::to_string(status);
  return complaint;
}

}  // namespace paddock::samba
