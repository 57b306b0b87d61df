#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <thread>

#include "base/file_descriptor.h"
#include "paddock/run_program.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

constexpr const char* kShell = "/bin/sh";

std::string currentFolder() { return std::filesystem::current_path().string(); }

class DetachedProgramTest : public testing::Test {
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

TEST_F(DetachedProgramTest, IsStartedAndTheChildThatLetGoHasEnded) {
  EXPECT_EQ(answerOf("echo there"), "there\n");
  EXPECT_EQ(started_.error, 0);
  EXPECT_EQ(started_.detachError, 0);
  EXPECT_GT(started_.process, 0);
  EXPECT_EQ(::waitpid(started_.process, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(DetachedProgramTest, IsNoChildAndLeadsASessionOfItsOwn) {
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

TEST_F(DetachedProgramTest, HasAnEmptyEnvironment) {
  ASSERT_EQ(::setenv("PADDOCK_TEST_VARIABLE", "x", 1), 0);
  const std::string file = folder_.path("environment");
  const DetachedProgram started =
      startDetachedProgram("/usr/bin/dd", {"dd", "if=/proc/self/environ", "of=" + file + ".new"});
  ::unsetenv("PADDOCK_TEST_VARIABLE");
  ASSERT_EQ(started.error, 0);
  EXPECT_EQ(answerOf("while ! test -e '" + file + ".new'; do :; done; wc -c <'" + file + ".new'"),
            "0\n");
}

TEST_F(DetachedProgramTest, HasItsStandardStreamsOnTheNullDeviceAndNoOtherDescriptor) {
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

TEST_F(DetachedProgramTest, KeepsTheWorkingFolderAndTheWholeArgumentVector) {
  EXPECT_EQ(answerOf("pwd"), currentFolder() + "\n");
  const std::string file = folder_.path("arguments");
  ASSERT_EQ(startDetachedProgram(kShell, {"Other Name", "-c", "echo \"$0|$1\" >'" + file + "'",
                                          "zero", "a b'\"$x\n"})
                .error,
            0);
  EXPECT_EQ(answerOf("while ! test -s '" + file + "'; do :; done; /bin/cat '" + file + "'"),
            "zero|a b'\"$x\n\n");
}

TEST_F(DetachedProgramTest, HasDefaultSignalsAndNoneBlocked) {
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

TEST_F(DetachedProgramTest, OneThatIsMissingLooksStarted) {
  const DetachedProgram started = startDetachedProgram("/no/such/program", {"x"});
  EXPECT_EQ(started.error, 0);
  EXPECT_EQ(started.detachError, 0);
  EXPECT_GT(started.process, 0);
}

TEST_F(DetachedProgramTest, WithANulInAnArgumentNoProcessIsMade) {
  const DetachedProgram started = startDetachedProgram(kShell, {"x", std::string("a\0b", 3)});
  EXPECT_EQ(started.prepareError, EINVAL);
  EXPECT_EQ(started.error, 0);
  EXPECT_EQ(started.process, 0);
}

TEST_F(DetachedProgramTest, ManyThreadsStartProgramsAtOnce) {
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
}  // namespace paddock
