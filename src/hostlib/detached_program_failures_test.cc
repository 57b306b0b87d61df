// What keeps a program from being detached, made to happen by a filter of system calls in a child
// of the test's own.
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <vector>

#include "paddock/run_program.h"
#include "support/temporary_folder.h"

namespace paddock {
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

TEST_F(DetachedProgramFailures, ASessionThatCannotBeMadeKeepsItFromDetaching) {
  const Outcome outcome = startWhere({SYS_setsid}, EPERM);
  if (!outcome.filtered) GTEST_SKIP() << "system calls cannot be filtered here";
  EXPECT_EQ(outcome.started.error, 0);
  EXPECT_GT(outcome.started.process, 0);
  EXPECT_EQ(outcome.started.detachError, EPERM);
  EXPECT_NE(::access(ran_.c_str(), F_OK), 0);
}

TEST_F(DetachedProgramFailures, ANullDeviceThatCannotBeOpenedKeepsItFromDetaching) {
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
