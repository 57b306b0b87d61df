#include "paddock_vsp/pid_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <thread>

#include "support/temporary_folder.h"

namespace paddock {
namespace {

class PidFileTest : public ::testing::Test {
 protected:
  bool runs(const std::string& contents) const {
    writeWholeFile(path_, contents);
    return processOfPidFileRuns(path_);
  }
  static std::string own() { return std::to_string(::getpid()); }

  TestFolder folder_;
  const std::string path_ = folder_.path("server.pid");
};

TEST_F(PidFileTest, AProcessThatIsAliveRuns) {
  EXPECT_TRUE(runs(own()));
  EXPECT_TRUE(runs(own() + "\n"));
  EXPECT_TRUE(runs("  " + own() + " \t\r\n"));
  EXPECT_TRUE(runs("+" + own()));
  EXPECT_TRUE(runs("000" + own()));
}

TEST_F(PidFileTest, OnlyTheFirstLineCounts) {
  EXPECT_TRUE(runs(own() + "\n/var/lib/server\n5432\n"));
  EXPECT_FALSE(runs("\n" + own()));
}

TEST_F(PidFileTest, AProcessThatHasEndedDoesNotRun) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ASSERT_GT(child, 0);
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  EXPECT_FALSE(runs(std::to_string(child)));
}

TEST_F(PidFileTest, AZombieDoesNotRun) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ASSERT_GT(child, 0);
  siginfo_t ended{};
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT), 0);
  ASSERT_EQ(::kill(child, 0), 0);
  EXPECT_FALSE(runs(std::to_string(child)));
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
}

TEST_F(PidFileTest, AThreadIsNoProcess) {
  std::promise<long> number;
  std::promise<void> finish;
  std::thread thread([&] {
    number.set_value(::syscall(SYS_gettid));
    finish.get_future().wait();
  });
  EXPECT_FALSE(runs(std::to_string(number.get_future().get())));
  finish.set_value();
  thread.join();
}

TEST_F(PidFileTest, WhatIsNoProcessNumberNamesNone) {
  for (const std::string& contents :
       {std::string(), std::string("\n"), std::string("   "), std::string("x"), own() + "x",
        own() + " " + own(), "0x" + own(), std::string("0"), std::string("-1"), "-" + own(),
        std::string("1.5"), std::string("4194305"), std::string("99999999999999999999999"),
        std::string("4294967297"), own() + std::string(1, '\0'), std::string(100, '\xff')}) {
    EXPECT_FALSE(runs(contents)) << contents;
  }
}

TEST_F(PidFileTest, AFileThatIsTooLongNamesNone) {
  EXPECT_TRUE(runs(own() + "\n" + std::string(4000, 'x')));
  EXPECT_FALSE(runs(own() + "\n" + std::string(4096, 'x')));
  ASSERT_EQ(::truncate(path_.c_str(), off_t{1} << 40), 0);
  EXPECT_FALSE(processOfPidFileRuns(path_));
}

TEST_F(PidFileTest, AMissingFileNamesNone) {
  EXPECT_FALSE(processOfPidFileRuns(path_));
  EXPECT_FALSE(processOfPidFileRuns(path_ + "/below/nothing"));
  EXPECT_FALSE(processOfPidFileRuns(""));
  EXPECT_FALSE(processOfPidFileRuns("/" + std::string(5000, 'x')));
}

TEST_F(PidFileTest, WhatIsNoRegularFileNamesNoneAndDoesNotBlock) {
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  EXPECT_FALSE(processOfPidFileRuns(path_));
  EXPECT_FALSE(processOfPidFileRuns(folder_.path("")));
  EXPECT_FALSE(processOfPidFileRuns("/dev/zero"));
}

TEST_F(PidFileTest, ALinkIsFollowedAndALoopNamesNone) {
  ASSERT_TRUE(runs(own()));
  std::filesystem::create_symlink(path_, folder_.path("link"));
  EXPECT_TRUE(processOfPidFileRuns(folder_.path("link")));
  std::filesystem::create_symlink("loop", folder_.path("loop"));
  EXPECT_FALSE(processOfPidFileRuns(folder_.path("loop")));
}

TEST_F(PidFileTest, AnotherUsersProcessRuns) {
  if (::geteuid() != 0) GTEST_SKIP() << "becoming another user needs root";
  const pid_t child = ::fork();
  if (child == 0) {
    constexpr uid_t kNobody = 65534;
    // Init belongs to root: this process may not signal it, and still sees that it runs.
    writeWholeFile(path_, "1\n");
    ::chmod(path_.c_str(), 0644);
    ::chmod(folder_.path("").c_str(), 0755);
    if (::setuid(kNobody) != 0) ::_exit(2);
    ::_exit(processOfPidFileRuns(path_) ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
}  // namespace paddock
