#include "base/mutex.h"
#include "paddock/run_program.h"

#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "base/file_access.h"
#include "hostlib/waited_program.h"
#include "paddock/sys_logger.h"
#include "support/signal_masks.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::Contains;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kShell = "/bin/sh";

class RunProgram : public testing::Test {
 protected:
  RunProgram() {
    installLogSink([this](int, const std::string& line) {
      const MutexLock lock(mutex_);
      log_.push_back(line);
    });
  }
  ~RunProgram() override { installLogSink(nullptr); }

  static ProgramResult shell(const std::string& script) {
    return runProgram(kShell, {"-c", script});
  }

  Mutex mutex_;
  std::vector<std::string> log_;
};

TEST_F(RunProgram, GivesBothStreamsAndTheExitStatus) {
  const auto result = shell("echo out; echo err >&2; exit 3");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.exitStatus, 3);
  EXPECT_EQ(result.output, "out\n");
  EXPECT_EQ(result.errorOutput, "err\n");
}

TEST_F(RunProgram, RunsInTheRootFolder) {
  const std::filesystem::path before = std::filesystem::current_path();
  const TestFolder started;
  std::filesystem::current_path(started.path());
  EXPECT_EQ(shell("pwd").output, "/\n");
  std::filesystem::current_path(before);
}

TEST_F(RunProgram, LogsStandardErrorLinesAndExitStatus) {
  shell(R"(printf 'one\n\ntwo' >&2; exit 3)");
  EXPECT_EQ(log_, (std::vector<std::string>{"program /bin/sh: one", "program /bin/sh: two",
                                            "program /bin/sh exited with status 3"}));
}

TEST_F(RunProgram, LogsNothingForSilentProgram) {
  shell("echo out");
  EXPECT_THAT(log_, IsEmpty());
}

TEST_F(RunProgram, LogsABoundedPartOfStandardError) {
  shell("head -c 100000 /dev/zero | tr '\\0' x >&2");
  ASSERT_EQ(log_.size(), 2U);
  EXPECT_EQ(log_[0], "program /bin/sh: " + std::string(4096, 'x'));
  EXPECT_THAT(log_[1], HasSubstr("left out"));
}

TEST_F(RunProgram, ArgumentsArriveAsTheyAre) {
  const auto result =
      runProgram(kShell, {"-c", R"(for a in "$0" "$@"; do echo "[$a]"; done)", "a b", "", "$(x)"});
  EXPECT_EQ(result.output, "[a b]\n[]\n[$(x)]\n");
}

TEST_F(RunProgram, TheFirstArgumentIsThePath) {
  EXPECT_EQ(runProgram("/bin/sh", {"-c", "tr '\\0' '\\n' < /proc/$$/cmdline | head -1"}).output,
            "/bin/sh\n");
}

TEST_F(RunProgram, AMissingProgramGivesItsErrno) {
  EXPECT_EQ(runProgram("/no/such/program", {}).status, ENOENT);
  EXPECT_THAT(log_, Contains(HasSubstr("/no/such/program cannot be run: No such file")));
}

TEST_F(RunProgram, NonExecutableFileReturnsErrno) {
  EXPECT_EQ(runProgram("/etc/passwd", {}).status, EACCES);
  EXPECT_EQ(runProgram("/etc", {}).status, EACCES);
}

TEST_F(RunProgram, AnArgumentWithNulIsRefused) {
  EXPECT_EQ(runProgram("/bin/echo", {std::string("a\0b", 3)}).status, EINVAL);
}

TEST_F(RunProgram, ASignalGives128AndItsNumber) {
  const auto result = shell("kill -9 $$");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.exitStatus, 128 + SIGKILL);
  EXPECT_THAT(log_, Contains(EndsWith("was ended by signal 9")));
}

TEST_F(RunProgram, StandardInputIsEmpty) { EXPECT_EQ(shell("cat; echo end").output, "end\n"); }

TEST_F(RunProgram, OtherDescriptorsAreClosed) {
  // One that is not close-on-exec, as a careless library would leave it.
  const FileDescriptor leaked(::open("/dev/null", O_RDONLY));  // NOLINT(android-cloexec-open)
  ASSERT_TRUE(leaked);
  EXPECT_EQ(runProgram("/bin/ls", {"/proc/self/fd"}).output, "0\n1\n2\n3\n");
}

TEST_F(RunProgram, SignalsAreNeitherBlockedNorIgnored) {
  expectNoSignalsInherited([] {
    return runProgram("/bin/grep", {"-E", "^Sig(Blk|Ign)", "/proc/self/status"}).output;
  });
}

TEST_F(RunProgram, LargeOutputsOnBothStreamsAreReadTogether) {
  const auto result = shell(
      "i=0; while [ $i -lt 40 ]; do head -c 65536 /dev/zero; head -c 65536 /dev/zero >&2;"
      " i=$((i+1)); done");
  EXPECT_EQ(result.output.size(), 40U * 65536U);
  EXPECT_EQ(result.errorOutput.size(), 40U * 65536U);
}

TEST_F(RunProgram, ExcessOutputIsDroppedAndProgramEndsNormally) {
  const auto result = shell("head -c 20000000 /dev/zero; echo done >&2");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.output.size(), kProgramOutputLimit);
  EXPECT_EQ(result.errorOutput, "done\n");
}

// The highest resident memory of this process since `forgetHighestMemory`, in KiB.
long highestMemory() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6));
  }
  return 0;
}
void forgetHighestMemory() { std::ofstream("/proc/self/clear_refs") << "5"; }

TEST_F(RunProgram, GigabyteOnEitherStreamIsDroppedUnbuffered) {
  for (const char* script :
       {"head -c 1000000000 /dev/zero", "head -c 1000000000 /dev/zero >&2; echo said"}) {
    forgetHighestMemory();
    const long before = highestMemory();
    ASSERT_GT(before, 0);
    const auto result = shell(script);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(std::max(result.output.size(), result.errorOutput.size()), kProgramOutputLimit);
    constexpr long kSomeCopiesOfTheLimit = 128 << 10;
    EXPECT_LT(highestMemory() - before, kSomeCopiesOfTheLimit);
  }
}

TEST_F(RunProgram, TheTimeLimitIsSetByTheHost) {
  setProgramTimeLimit(std::chrono::seconds(1));
  const auto started = steady_clock::now();
  const auto result = shell("sleep 1000");
  setProgramTimeLimit(kProgramTimeLimit);
  EXPECT_EQ(result.status, ETIMEDOUT);
  EXPECT_LT(steady_clock::now() - started, std::chrono::seconds(30));
  EXPECT_EQ(shell("sleep 1.1").status, 0);
}

TEST_F(RunProgram, OverdueProgramIsKilledWithItsChildren) {
  const auto started = steady_clock::now();
  const auto result =
      runProgramWithin(kShell, {"-c", "sleep 1000 & echo $!; echo begun; wait"}, milliseconds(300));
  EXPECT_LT(steady_clock::now() - started, std::chrono::seconds(30));
  EXPECT_EQ(result.status, ETIMEDOUT);
  EXPECT_EQ(result.exitStatus, 128 + SIGKILL);
  EXPECT_THAT(result.output, EndsWith("begun\n"));
  EXPECT_THAT(log_, Contains(HasSubstr("took too long")));
  const pid_t grandchild = std::stoi(result.output);
  // It is init's to reap now; gone or a zombie, but not sleeping.
  const auto deadline = steady_clock::now() + std::chrono::seconds(20);
  bool alive = true;
  while (alive && steady_clock::now() < deadline) {
    alive = runProgram("/bin/grep",
                       {"-q", "^State:.*[SR] (", "/proc/" + std::to_string(grandchild) + "/status"})
                .exitStatus == 0;
  }
  EXPECT_FALSE(alive);
}

TEST_F(RunProgram, GrandchildHoldingPipesDoesNotBlockCaller) {
  const auto started = steady_clock::now();
  const auto result = shell("sleep 20 & echo $!");
  EXPECT_LT(steady_clock::now() - started, std::chrono::seconds(15));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.exitStatus, 0);
  const pid_t grandchild = std::stoi(result.output);
  // A program may leave a child behind: it is not ended.
  EXPECT_EQ(::kill(grandchild, 0), 0);
  ::kill(grandchild, SIGKILL);
}

TEST_F(RunProgram, ProgramWithClosedStreamsIsStillAwaited) {
  EXPECT_EQ(shell("exec >&- 2>&-; sleep 0.2; exit 5").exitStatus, 5);
}

TEST_F(RunProgram, OnlyItsOwnChildIsReaped) {
  const pid_t other = ::fork();
  if (other == 0) ::_exit(9);
  ASSERT_GT(other, 0);
  EXPECT_EQ(shell("exit 1").exitStatus, 1);
  int status = 0;
  ASSERT_EQ(::waitpid(other, &status, 0), other);
  EXPECT_EQ(WEXITSTATUS(status), 9);
}

TEST_F(RunProgram, RequestIdReachesProgramAndLog) {
  const RequestIdScope scope("r-17");
  EXPECT_EQ(shell("echo $PADDOCK_REQUEST_ID; exit 1").output, "r-17\n");
  EXPECT_THAT(log_, Contains(EndsWith("[request r-17]")));
}

TEST_F(RunProgram, RunsOnSeveralThreadsAtOnce) {
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([thread] {
      for (int round = 0; round < 5; ++round) {
        EXPECT_EQ(shell("exit " + std::to_string(thread)).exitStatus, thread);
      }
    });
  }
  for (auto& thread : threads) thread.join();
}

TEST_F(RunProgram, IsRunningCoversAwaitedProgramAndItsChildren) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  const FileDescriptor reading(ends[0]);
  FileDescriptor writing(ends[1]);
  const std::string target =
      "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(writing.get());
  std::thread runner([&target] {
    const RequestIdScope scope("r1");
    runProgram(kShell, {"-c", "sleep 1000 & echo $$ $! > " + target + "; wait"});
  });
  std::array<char, 64> text{};
  ASSERT_GT(::read(reading.get(), text.data(), text.size() - 1), 0);
  pid_t program = 0;
  pid_t child = 0;
  ASSERT_EQ(std::sscanf(text.data(), "%d %d", &program, &child), 2);
  EXPECT_TRUE(isRunningProgram(program));
  EXPECT_TRUE(isRunningProgram(child));
  EXPECT_FALSE(isRunningProgram(::getpid()));
  EXPECT_EQ(requestOfProgram(child), "r1");
  EXPECT_EQ(requestOfProgram(::getpid()), "");
  ::kill(child, SIGKILL);
  runner.join();
  EXPECT_FALSE(isRunningProgram(program));
}

TEST_F(RunProgram, IsRunningIsFalseForNoProcess) {
  EXPECT_FALSE(isRunningProgram(0));
  EXPECT_FALSE(isRunningProgram(-1));
}

}  // namespace
}  // namespace paddock
