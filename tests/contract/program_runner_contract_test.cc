// The guarantees of program_runner.h for programs that are detached, located and probed. (The
// double of the others only records: tests beside src/hostlib test them.)
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <thread>

#include "paddock/host.h"
#include "platform/host/host_services.h"
#include "platform/testing/recording_host_services.h"
#include "support/temporary_folder.h"

namespace paddock::contract {
namespace {

// A runner, and a world with one program at a path of the system.
class RunnerSubject {
 public:
  virtual ~RunnerSubject() = default;
  virtual ProgramRunner& runner() = 0;
  // Makes the program at an absolute path of the system, or takes it away.
  virtual void put(const std::string& path) = 0;
  virtual void remove(const std::string& path) = 0;
  // Makes the probe find an existing process, one of another user, or none.
  virtual std::int64_t runningProcess() = 0;
  virtual std::int64_t endedProcess() = 0;
  // The argument vectors of what was detached, as soon as there are so many.
  virtual std::vector<std::vector<std::string>> detached(std::size_t count) = 0;
};

class DoubleSubject final : public RunnerSubject {
 public:
  ProgramRunner& runner() override { return runner_; }
  void put(const std::string& /*path*/) override {}
  void remove(const std::string& path) override { runner_.setMissing(path); }
  std::int64_t runningProcess() override {
    runner_.setProbeError(0);
    return 4711;
  }
  std::int64_t endedProcess() override {
    runner_.setProbeError(ESRCH);
    return 4711;
  }
  std::vector<std::vector<std::string>> detached(std::size_t /*count*/) override {
    std::vector<std::vector<std::string>> vectors;
    for (const auto& run : runner_.detached()) vectors.push_back(run.arguments);
    return vectors;
  }

 private:
  RecordingProgramRunner runner_;
};

// Below a root of its own, where the program is a shell script that keeps its arguments.
class HostSubject final : public RunnerSubject, public Host {
 public:
  HostSubject() { installHost(this); }
  HostSubject(const HostSubject&) = delete;
  HostSubject& operator=(const HostSubject&) = delete;
  ~HostSubject() override { installHost(nullptr); }

  const std::string& root() const override { return folder_.path(); }
  const Dictionary& configuration() const override { return configuration_; }
  Dictionary deliverCommand(const std::string& /*module*/, const Dictionary& /*command*/) override {
    return {};
  }

  ProgramRunner& runner() override { return runner_; }
  void put(const std::string& path) override {
    const std::filesystem::path program = folder_.path() + path;
    std::filesystem::create_directories(program.parent_path());
    // A script does not receive argv[0].
    writeWholeFile(program, "#!/bin/sh\nfor word; do echo \"$word\"; done >'" +
                                folder_.path("new") + "'.$$\nmv '" + folder_.path("new") +
                                "'.$$ '" + folder_.path("vector") + "'.$$\n");
    ASSERT_EQ(::chmod(program.c_str(), 0755), 0);
  }
  void remove(const std::string& path) override { std::filesystem::remove(folder_.path() + path); }
  std::int64_t runningProcess() override { return ::getpid(); }
  std::int64_t endedProcess() override {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(0);
    ::waitpid(child, nullptr, 0);
    return child;
  }
  std::vector<std::vector<std::string>> detached(std::size_t count) override {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (vectors().size() < count && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return vectors();
  }

 private:
  std::vector<std::vector<std::string>> vectors() const {
    std::vector<std::vector<std::string>> found;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
      if (!entry.path().filename().string().starts_with("vector.")) continue;
      std::ifstream lines(entry.path());
      std::vector<std::string> words{"Name"};
      for (std::string line; std::getline(lines, line);) words.push_back(line);
      found.push_back(words);
    }
    return found;
  }

  TestFolder folder_;
  Dictionary configuration_;
  HostProgramRunner runner_;
};

struct RunnerCase {
  const char* name;
  std::function<std::unique_ptr<RunnerSubject>()> make;
  friend void PrintTo(const RunnerCase& subject, std::ostream* out) { *out << subject.name; }
};

class ProgramRunnerContract : public ::testing::TestWithParam<RunnerCase> {
 protected:
  std::unique_ptr<RunnerSubject> subject_ = GetParam().make();
  ProgramRunner& runner_ = subject_->runner();
};

INSTANTIATE_TEST_SUITE_P(
    ProgramRunner, ProgramRunnerContract,
    ::testing::Values(RunnerCase{"Double", [] { return std::make_unique<DoubleSubject>(); }},
                      RunnerCase{"Host", [] { return std::make_unique<HostSubject>(); }}),
    [](const auto& tested) { return tested.param.name; });

constexpr const char* kProgram = "/usr/lib/some/program";

TEST_P(ProgramRunnerContract, AProgramIsThereOrNot) {
  subject_->put(kProgram);
  EXPECT_TRUE(runner_.exists(kProgram));
  subject_->remove(kProgram);
  EXPECT_FALSE(runner_.exists(kProgram));
}

TEST_P(ProgramRunnerContract, AProcessIsThereOrNot) {
  EXPECT_EQ(runner_.probe(subject_->runningProcess()), 0);
  EXPECT_EQ(runner_.probe(subject_->endedProcess()), ESRCH);
}

TEST_P(ProgramRunnerContract, DetachedProgramReceivesArgumentsAndReturnsEndedPid) {
  subject_->put(kProgram);
  const DetachedStart start = runner_.startDetached(kProgram, {"Name", "-p", "/srv/a b'\"$x"});
  EXPECT_EQ(start.error, 0);
  EXPECT_EQ(start.detachError, 0);
  EXPECT_GT(start.pid, 0);
  EXPECT_EQ(subject_->detached(1),
            (std::vector<std::vector<std::string>>{{"Name", "-p", "/srv/a b'\"$x"}}));
}

TEST_P(ProgramRunnerContract, EachStartIsAProgramOfItsOwn) {
  subject_->put(kProgram);
  EXPECT_EQ(runner_.startDetached(kProgram, {"Name"}).error, 0);
  EXPECT_EQ(runner_.startDetached(kProgram, {"Name"}).error, 0);
  EXPECT_EQ(subject_->detached(2).size(), 2U);
}

class HostRunner : public ::testing::Test {
 protected:
  HostSubject subject_;
  ProgramRunner& runner_ = subject_.runner();
};

TEST_F(HostRunner, LooksBelowItsRootAlone) {
  EXPECT_FALSE(runner_.exists("/bin/sh"));
  subject_.put("/bin/sh");
  EXPECT_TRUE(runner_.exists("/bin/sh"));
}

TEST_F(HostRunner, FolderExistsAndDanglingSymlinkDoesNot) {
  std::filesystem::create_directories(subject_.root() + "/usr/folder");
  EXPECT_TRUE(runner_.exists("/usr/folder"));
  std::filesystem::create_symlink("nowhere", subject_.root() + "/usr/link");
  EXPECT_FALSE(runner_.exists("/usr/link"));
}

TEST_F(HostRunner, ImpossiblePidIsNoProcess) {
  for (const std::int64_t number :
       {std::int64_t{std::numeric_limits<pid_t>::max()}, std::numeric_limits<std::int64_t>::max(),
        std::numeric_limits<std::int64_t>::min(), std::int64_t{1} << 32U}) {
    EXPECT_EQ(runner_.probe(number), ESRCH) << number;
  }
}

TEST_F(HostRunner, AnotherUsersProcessIsForbidden) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  const pid_t child = ::fork();
  if (child == 0) {
    const bool left = ::setresuid(65534, 65534, 65534) == 0;
    ::_exit(left ? runner_.probe(1) : 0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), EPERM);
}

}  // namespace
}  // namespace paddock::contract
