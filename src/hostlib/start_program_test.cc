#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <sstream>
#include <thread>

#include "base/file_descriptor.h"
#include "paddock/run_program.h"
#include "paddock/sys_logger.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kShell = "/bin/sh";

bool eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

class StartProgram : public testing::Test {
 protected:
  StartProgram() {
    installLogSink([this](int, const std::string& line) {
      const std::scoped_lock lock(mutex_);
      log_.push_back(line);
    });
  }
  ~StartProgram() override { installLogSink(nullptr); }

  std::vector<std::string> log() const {
    const std::scoped_lock lock(mutex_);
    return log_;
  }
  std::string file() const { return folder_.path("answer"); }

  // Starts a shell whose script writes what is wanted; gives what it wrote, whole.
  std::string answerOf(const std::string& script) {
    const std::string whole =
        "{ " + script + "; } >'" + file() + ".new'; mv '" + file() + ".new' '" + file() + "'";
    EXPECT_EQ(startProgram(kShell, {"sh", "-c", whole}), 0);
    EXPECT_TRUE(eventually([this] { return ::access(file().c_str(), F_OK) == 0; }));
    return readWholeFile(file());
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> log_;
  TestFolder folder_;
};

bool isThere(pid_t process) {
  struct stat status {};
  return ::stat(("/proc/" + std::to_string(process)).c_str(), &status) == 0;
}

TEST_F(StartProgram, IsNotWaitedFor) {
  const pid_t process = std::stoi(answerOf("echo $$; exec sleep 1000 & echo $!; :"));
  EXPECT_TRUE(eventually([&] { return !isThere(process); }));  // the shell itself
  std::istringstream numbers(readWholeFile(file()));
  pid_t sleeping = 0;
  numbers >> sleeping >> sleeping;
  EXPECT_EQ(::kill(sleeping, SIGKILL), 0);
}

TEST_F(StartProgram, TheArgumentVectorIsTakenAsItIs) {
  const std::string script = "tr '\\0' '\\n' </proc/$$/cmdline >'" + file() + ".new'; mv '" +
                             file() + ".new' '" + file() + "' # a b";
  EXPECT_EQ(startProgram(kShell, {"-u", "-c", script}), 0);
  ASSERT_TRUE(eventually([this] { return ::access(file().c_str(), F_OK) == 0; }));
  EXPECT_EQ(readWholeFile(file()), "-u\n-c\n" + script + "\n");
}

TEST_F(StartProgram, RunsInTheRootFolderWithoutWhatTheDaemonHasForItself) {
  const std::filesystem::path before = std::filesystem::current_path();
  const TestFolder started;
  std::filesystem::current_path(started.path());
  ASSERT_EQ(::setenv("LDAPNOINIT", "1", 1), 0);
  EXPECT_EQ(answerOf("pwd; echo \"<$LDAPNOINIT>\""), "/\n<>\n");
  ::unsetenv("LDAPNOINIT");
  std::filesystem::current_path(before);
}

TEST_F(StartProgram, IsReapedWhenItHasEnded) {
  const pid_t process = std::stoi(answerOf("echo $$"));
  EXPECT_TRUE(eventually([&] { return !isThere(process); }));
  EXPECT_TRUE(log().empty());
}

TEST_F(StartProgram, AnExitStatusIsLogged) {
  EXPECT_EQ(startProgram(kShell, {"sh", "-c", "exit 7"}), 0);
  EXPECT_TRUE(eventually([this] { return !log().empty(); }));
  EXPECT_THAT(log(), ElementsAre("program /bin/sh exited with status 7"));
}

TEST_F(StartProgram, ASignalIsLogged) {
  EXPECT_EQ(startProgram(kShell, {"sh", "-c", "kill -9 $$"}), 0);
  EXPECT_TRUE(eventually([this] { return !log().empty(); }));
  EXPECT_THAT(log(), ElementsAre("program /bin/sh was ended by signal 9"));
}

TEST_F(StartProgram, AMissingProgramGivesItsErrno) {
  EXPECT_EQ(startProgram("/no/such/program", {"-u", "/"}), ENOENT);
  EXPECT_THAT(log(), ElementsAre(HasSubstr("/no/such/program cannot be run: No such file")));
}

TEST_F(StartProgram, AFileThatMayNotBeExecutedGivesItsErrno) {
  EXPECT_EQ(startProgram("/etc/passwd", {"-u"}), EACCES);
}

TEST_F(StartProgram, AnArgumentWithNulIsRefused) {
  EXPECT_EQ(startProgram("/bin/echo", {"-u", std::string("/a\0b", 4)}), EINVAL);
  EXPECT_EQ(log().size(), 1U);
}

TEST_F(StartProgram, HasASessionOfItsOwn) {
  const std::string answer = answerOf("cut -d' ' -f1,6 /proc/$$/stat");
  const std::size_t blank = answer.find(' ');
  EXPECT_EQ(answer.substr(0, blank) + "\n", answer.substr(blank + 1)) << answer;
}

TEST_F(StartProgram, StandardInputIsEmptyAndStandardOutputGoesNowhere) {
  EXPECT_EQ(answerOf("cat; echo end; readlink /proc/$$/fd/0"), "end\n/dev/null\n");
  const std::string script = "test /proc/$$/fd/1 -ef /dev/null && echo nowhere >'" + file() + ".2'";
  EXPECT_EQ(startProgram(kShell, {"sh", "-c", script}), 0);
  EXPECT_TRUE(eventually([this] { return readWholeFile(file() + ".2") == "nowhere\n"; }));
}

TEST_F(StartProgram, OtherDescriptorsAreClosed) {
  // One that is not close-on-exec, as a careless library would leave it.
  const FileDescriptor leaked(::open("/dev/null", O_RDONLY));  // NOLINT(android-cloexec-open)
  ASSERT_TRUE(leaked);
  EXPECT_EQ(answerOf("test -e /proc/$$/fd/" + std::to_string(leaked.get()) + " || echo closed"),
            "closed\n");
}

TEST_F(StartProgram, SignalsAreNeitherBlockedNorIgnored) {
  const auto previous = std::signal(SIGPIPE, SIG_IGN);
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &blocked, &before);
  const std::string answer = answerOf("grep -E '^Sig(Blk|Ign)' /proc/self/status");
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  std::signal(SIGPIPE, previous);
  unsigned long long blockedMask = 1;
  unsigned long long ignoredMask = 1;
  ASSERT_EQ(std::sscanf(answer.c_str(), "SigBlk: %llx SigIgn: %llx", &blockedMask, &ignoredMask),
            2);
  // 32 and 33 are the C library's own, which its posix_spawn leaves ignored.
  constexpr unsigned long long kOwnOfTheLibrary = 3ULL << 31U;
  EXPECT_EQ(blockedMask, 0U);
  EXPECT_EQ(ignoredMask & ~kOwnOfTheLibrary, 0U);
}

TEST_F(StartProgram, OnlyItsOwnChildIsReaped) {
  const pid_t other = ::fork();
  if (other == 0) ::_exit(9);
  ASSERT_GT(other, 0);
  const pid_t process = std::stoi(answerOf("echo $$"));
  EXPECT_TRUE(eventually([&] { return !isThere(process); }));
  int status = 0;
  ASSERT_EQ(::waitpid(other, &status, 0), other);
  EXPECT_EQ(WEXITSTATUS(status), 9);
}

TEST_F(StartProgram, TheIdOfTheRequestReachesTheProgramAndTheLog) {
  const RequestIdScope scope("r-18");
  EXPECT_EQ(answerOf("echo $PADDOCK_REQUEST_ID"), "r-18\n");
  EXPECT_EQ(startProgram(kShell, {"sh", "-c", "exit 1"}), 0);
  EXPECT_TRUE(eventually([this] { return !log().empty(); }));
  EXPECT_THAT(log(), ElementsAre("program /bin/sh exited with status 1 [request r-18]"));
}

TEST_F(StartProgram, IsNotAmongTheProgramsThatAreWaitedFor) {
  const pid_t process = std::stoi(answerOf("echo $$; sleep 1000 & echo $!"));
  EXPECT_FALSE(isRunningProgram(process));
  std::istringstream numbers(readWholeFile(file()));
  pid_t sleeping = 0;
  numbers >> sleeping >> sleeping;
  ::kill(sleeping, SIGKILL);
}

}  // namespace
}  // namespace paddock
