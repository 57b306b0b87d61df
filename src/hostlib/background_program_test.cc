#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <sstream>
#include <thread>
#include <vector>

#include "base/file_access.h"
#include "base/mutex.h"
#include "paddock/run_program.h"
#include "paddock/sys_logger.h"
#include "support/signal_masks.h"
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
      const MutexLock lock(mutex_);
      log_.push_back(line);
    });
  }
  ~StartProgram() override { installLogSink(nullptr); }

  std::vector<std::string> log() const {
    const MutexLock lock(mutex_);
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
  mutable Mutex mutex_;
  std::vector<std::string> log_ PADDOCK_GUARDED_BY(mutex_);
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

TEST_F(StartProgram, RunsInRootFolderWithoutDaemonEnvironment) {
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

TEST_F(StartProgram, NonExecutableFileReturnsErrno) {
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

TEST_F(StartProgram, StandardInputIsEmptyAndOutputIsDiscarded) {
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
  expectNoSignalsInherited(
      [this] { return answerOf("grep -E '^Sig(Blk|Ign)' /proc/self/status"); });
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

TEST_F(StartProgram, RequestIdReachesProgramAndLog) {
  const RequestIdScope scope("r-18");
  EXPECT_EQ(answerOf("echo $PADDOCK_REQUEST_ID"), "r-18\n");
  EXPECT_EQ(startProgram(kShell, {"sh", "-c", "exit 1"}), 0);
  EXPECT_TRUE(eventually([this] { return !log().empty(); }));
  EXPECT_THAT(log(), ElementsAre("program /bin/sh exited with status 1 [request r-18]"));
}

TEST_F(StartProgram, IsNotAmongAwaitedPrograms) {
  const pid_t process = std::stoi(answerOf("echo $$; sleep 1000 & echo $!"));
  EXPECT_FALSE(isRunningProgram(process));
  std::istringstream numbers(readWholeFile(file()));
  pid_t sleeping = 0;
  numbers >> sleeping >> sleeping;
  ::kill(sleeping, SIGKILL);
}

std::string currentFolder() { return std::filesystem::current_path().string(); }

class DetachedProgramStart : public testing::Test {
 protected:
  // What a detached shell writes for the script, whole.
  std::string answerOf(const std::string& script) {
    const std::string file = folder_.path("answer");
    ::unlink(file.c_str());
    const std::string whole =
        "{ " + script + "\n} >'" + file + ".new'; /bin/mv '" + file + ".new' '" + file + "'";
    started_ = startDetachedProgram(kShell, {"sh", "-c", whole});
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (::access(file.c_str(), F_OK) != 0) {
      if (std::chrono::steady_clock::now() > deadline) return "nothing within 30 seconds";
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return readWholeFile(file);
  }

  TestFolder folder_;
  DetachedProgram started_;
};

TEST_F(DetachedProgramStart, StartsAndIntermediateChildIsReaped) {
  EXPECT_EQ(answerOf("echo there"), "there\n");
  EXPECT_EQ(started_.error, 0);
  EXPECT_EQ(started_.detachError, 0);
  EXPECT_GT(started_.process, 0);
  EXPECT_EQ(::waitpid(started_.process, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(DetachedProgramStart, IsNoChildAndLeadsOwnSession) {
  const std::string answer = answerOf("echo $PPID; cut -d' ' -f5,6,7 /proc/$$/stat; echo $$");
  long parent = 0;
  long group = 0;
  long session = 0;
  long terminal = 0;
  long process = 0;
  ASSERT_EQ(std::sscanf(answer.c_str(), "%ld %ld %ld %ld %ld", &parent, &group, &session, &terminal,
                        &process),
            5)
      << answer;
  EXPECT_NE(parent, ::getpid());
  EXPECT_NE(process, started_.process);
  EXPECT_EQ(group, process);
  EXPECT_EQ(session, process);
  EXPECT_EQ(terminal, 0);
}

TEST_F(DetachedProgramStart, HasAnEmptyEnvironment) {
  ASSERT_EQ(::setenv("PADDOCK_TEST_VARIABLE", "x", 1), 0);
  const std::string file = folder_.path("environment");
  const DetachedProgram started =
      startDetachedProgram("/usr/bin/dd", {"dd", "if=/proc/self/environ", "of=" + file + ".new"});
  ::unsetenv("PADDOCK_TEST_VARIABLE");
  ASSERT_EQ(started.error, 0);
  EXPECT_EQ(answerOf("while ! test -e '" + file + ".new'; do :; done; wc -c <'" + file + ".new'"),
            "0\n");
}

TEST_F(DetachedProgramStart, StandardStreamsUseNullDeviceWithoutOtherDescriptors) {
  const FileDescriptor kept(::dup2(STDERR_FILENO, 77));  // one that is not close-on-exec
  const std::string file = folder_.path("descriptors");
  ASSERT_EQ(startDetachedProgram("/usr/bin/find", {"find", "/proc/self/fd", "-mindepth", "1",
                                                   "-fprintf", file, "%f %l\n"})
                .error,
            0);
  // What find has open itself are the file and folders of /proc.
  EXPECT_EQ(answerOf("while ! test -s '" + file +
                     "'; do :; done; /bin/grep -v -e descriptors -e "
                     "/proc -e ' /$' -e ' " +
                     currentFolder() + "$' '" + file + "'"),
            "0 /dev/null\n1 /dev/null\n2 /dev/null\n");
}

TEST_F(DetachedProgramStart, KeepsWorkingFolderAndWholeArgumentVector) {
  EXPECT_EQ(answerOf("pwd"), currentFolder() + "\n");
  const std::string file = folder_.path("arguments");
  ASSERT_EQ(startDetachedProgram(kShell, {"Other Name", "-c", "echo \"$0|$1\" >'" + file + "'",
                                          "zero", "a b'\"$x\n"})
                .error,
            0);
  EXPECT_EQ(answerOf("while ! test -s '" + file + "'; do :; done; /bin/cat '" + file + "'"),
            "zero|a b'\"$x\n\n");
}

TEST_F(DetachedProgramStart, HasDefaultSignalsAndNoneBlocked) {
  sigset_t some;
  sigset_t before;
  ::sigemptyset(&some);
  ::sigaddset(&some, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &some, &before);
  ::signal(SIGPIPE, SIG_IGN);
  const std::string answer = answerOf("/bin/grep -E '^Sig(Blk|Ign)' /proc/self/status");
  ::signal(SIGPIPE, SIG_DFL);
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  EXPECT_EQ(answer, "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
}

TEST_F(DetachedProgramStart, OneThatIsMissingLooksStarted) {
  const DetachedProgram started = startDetachedProgram("/no/such/program", {"x"});
  EXPECT_EQ(started.error, 0);
  EXPECT_EQ(started.detachError, 0);
  EXPECT_GT(started.process, 0);
}

TEST_F(DetachedProgramStart, ArgumentWithNulStartsNoProcess) {
  const DetachedProgram started = startDetachedProgram(kShell, {"x", std::string("a\0b", 3)});
  EXPECT_EQ(started.prepareError, EINVAL);
  EXPECT_EQ(started.error, 0);
  EXPECT_EQ(started.process, 0);
}

TEST_F(DetachedProgramStart, ManyThreadsStartProgramsAtOnce) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([] {
      for (int count = 0; count < 20; ++count) {
        EXPECT_EQ(startDetachedProgram("/bin/true", {"true"}).error, 0);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
}

}  // namespace

// What keeps a program from being detached, made to happen by a filter of system calls in a child
// of the test's own.
namespace {

// From now on this process and its children get the error from these calls. Whether it took.
bool failCalls(const std::vector<long>& calls, int error) {
  std::vector<sock_filter> program = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  for (const long call : calls) {
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 1));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(error)));
  }
  program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

std::vector<long> forkCalls() {
  std::vector<long> calls = {SYS_clone, SYS_clone3};
#ifdef SYS_fork
  calls.push_back(SYS_fork);
  calls.push_back(SYS_vfork);
#endif
  return calls;
}

class DetachedProgramFailures : public ::testing::Test {
 protected:
  struct Outcome {
    DetachedProgram started;
    bool filtered = false;
  };

  // What the start is in a child for which these calls fail.
  Outcome startWhere(const std::vector<long>& calls, int error) {
    const pid_t child = ::fork();
    if (child == 0) {
      Outcome outcome;
      outcome.filtered = failCalls(calls, error);
      outcome.started = startDetachedProgram("/bin/sh", {"sh", "-c", ": >'" + ran_ + "'"});
      // Files cannot be opened any more where that is what fails.
      ::_exit(::write(pipe_[1], &outcome, sizeof outcome) == sizeof outcome ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    Outcome outcome;
    EXPECT_EQ(::read(pipe_[0], &outcome, sizeof outcome), static_cast<ssize_t>(sizeof outcome));
    return outcome;
  }

  void SetUp() override { ASSERT_EQ(::pipe(pipe_), 0); }
  void TearDown() override {
    ::close(pipe_[0]);
    ::close(pipe_[1]);
  }

  TestFolder folder_;
  std::string ran_ = folder_.path("ran");
  int pipe_[2] = {-1, -1};
};

TEST_F(DetachedProgramFailures, AForkThatFailsIsItsErrno) {
  const Outcome outcome = startWhere(forkCalls(), EAGAIN);
  if (!outcome.filtered) GTEST_SKIP() << "system calls cannot be filtered here";
  EXPECT_EQ(outcome.started.error, EAGAIN);
  EXPECT_EQ(outcome.started.prepareError, 0);
  EXPECT_EQ(outcome.started.process, 0);
  EXPECT_NE(::access(ran_.c_str(), F_OK), 0);
}

TEST_F(DetachedProgramFailures, SessionFailurePreventsDetaching) {
  const Outcome outcome = startWhere({SYS_setsid}, EPERM);
  if (!outcome.filtered) GTEST_SKIP() << "system calls cannot be filtered here";
  EXPECT_EQ(outcome.started.error, 0);
  EXPECT_GT(outcome.started.process, 0);
  EXPECT_EQ(outcome.started.detachError, EPERM);
  EXPECT_NE(::access(ran_.c_str(), F_OK), 0);
}

TEST_F(DetachedProgramFailures, UnopenableNullDevicePreventsDetaching) {
  const Outcome outcome = startWhere({SYS_openat}, EMFILE);
  if (!outcome.filtered) GTEST_SKIP() << "system calls cannot be filtered here";
  EXPECT_EQ(outcome.started.error, 0);
  EXPECT_EQ(outcome.started.detachError, EMFILE);
  EXPECT_NE(::access(ran_.c_str(), F_OK), 0);
}

TEST_F(DetachedProgramFailures, AProgramThatCannotBeExecutedLooksDetached) {
  const Outcome outcome = startWhere({SYS_execve}, EACCES);
  if (!outcome.filtered) GTEST_SKIP() << "system calls cannot be filtered here";
  EXPECT_EQ(outcome.started.error, 0);
  EXPECT_EQ(outcome.started.detachError, 0);
  EXPECT_GT(outcome.started.process, 0);
  EXPECT_NE(::access(ran_.c_str(), F_OK), 0);
}

TEST_F(DetachedProgramFailures, WithoutRoomForDescriptorsNothingIsStarted) {
  const Outcome outcome = startWhere({SYS_pipe2}, ENFILE);
  if (!outcome.filtered) GTEST_SKIP() << "system calls cannot be filtered here";
  EXPECT_EQ(outcome.started.prepareError, ENFILE);
  EXPECT_EQ(outcome.started.error, 0);
  EXPECT_EQ(outcome.started.process, 0);
}

}  // namespace

}  // namespace paddock
