#include "keelhouse/core/tree_program.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "base/file_access.h"
#include "base/system_call.h"
#include "base/trusted_path.h"

namespace paddock::keelhouse {

namespace {

Failure cannotRun(const std::string& program, int error) {
  return failure("cannot run " + program + ": " + std::generic_category().message(error));
}

// Throws Failure that says who else could have changed the program.
FileDescriptor holdTrusted(const std::string& program) {
  FileDescriptor held;
  try {
    held = openTrusted(program);
  } catch (const UntrustedPath& untrusted) {
    throw failure("cannot run " + program + ": " + untrusted.what());
  } catch (const std::system_error& error) {
    throw cannotRun(program, error.code().value());
  }
  struct stat status {};
  if (::fstat(held.get(), &status) != 0) throw cannotRun(program, errno);
  if (!S_ISREG(status.st_mode)) throw failure("cannot run " + program + ": it is no file");
  return held;
}

// What the program is started with: its output goes to the descriptor.
class SpawnActions {
 public:
  explicit SpawnActions(int output) {
    posix_spawn_file_actions_init(&actions_);
    posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
  }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  ~SpawnActions() { posix_spawn_file_actions_destroy(&actions_); }
  posix_spawn_file_actions_t& get() { return actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

// A program that is waited for, whatever happens to its output.
class Child {
 public:
  Child(const TreeProgram& program, std::vector<std::string> words, int output)
      : process_(program.spawn(std::move(words), SpawnActions(output).get(), environ)) {}
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() { wait(); }

  ExitStatus end() {
    if (!WIFEXITED(wait())) return ExitStatus::failed;
    const int status = WEXITSTATUS(status_);
    if (status == static_cast<int>(ExitStatus::unsure)) return ExitStatus::unsure;
    return status == 0 ? ExitStatus::done : ExitStatus::failed;
  }

 private:
  int wait() {
    if (process_ > 0) retryOnInterrupt([this] { return ::waitpid(process_, &status_, 0); });
    process_ = -1;
    return status_;
  }

  pid_t process_ = -1;
  int status_ = -1;
};

void copyAll(int from, std::ostream& out) {
  std::array<char, 65536> buffer;
  for (;;) {
    std::size_t size = 0;
    const int error = errnoOf([&] { return ::read(from, buffer.data(), buffer.size()); }, &size);
    if (error != 0) throw failure("the program's output cannot be read");
    if (size == 0) return;
    out.write(buffer.data(), static_cast<std::streamsize>(size));
  }
}

}  // namespace

TreeProgram::TreeProgram(const std::string& path) : path_(path), held_(holdTrusted(path)) {}

pid_t TreeProgram::spawn(std::vector<std::string> words, posix_spawn_file_actions_t& actions,
                         char* const* environment) const {
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  // The child's stays open, since the interpreter of a script opens it once more.
  posix_spawn_file_actions_adddup2(&actions, held_.get(), held_.get());
  const std::string held = "/proc/self/fd/" + std::to_string(held_.get());
  pid_t process = -1;
  const int error =
      ::posix_spawn(&process, held.c_str(), &actions, nullptr, pointers.data(), environment);
  if (error != 0) throw cannotRun(path_, error);
  return process;
}

ExitStatus runTreeProgram(const Session& session, const std::string& place,
                          const std::vector<std::string>& arguments) {
  if (::geteuid() != 0) throw failure("only root can run " + session.root + place);
  const TreeProgram program(session.root + place);
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw cannotRun(program.path(), errno);
  const FileDescriptor reading(ends[0]);
  FileDescriptor writing(ends[1]);
  std::vector<std::string> words{program.path()};
  words.insert(words.end(), arguments.begin(), arguments.end());
  Child child(program, std::move(words), writing.get());
  writing.reset();
  copyAll(reading.get(), session.out);
  return child.end();
}

bool canRunTreeProgram(const Session& session, const std::string& place) {
  return ::geteuid() == 0 && ::access((session.root + place).c_str(), X_OK) == 0;
}

}  // namespace paddock::keelhouse
