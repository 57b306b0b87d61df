// The program itself, in trees of its own.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <thread>

#include "base/file_access.h"
#include "support/killed_program.h"
#include "support/own_mounts.h"
#include "support/run_to_end.h"
#include "support/shares_fixture.h"

namespace paddock::synchronizer {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class Program : public SharesFixture {
 protected:
  void SetUp() override {
    SharesFixture::SetUp();
    std::filesystem::create_directories(folder_.path("usr/libexec/samba"));
    std::filesystem::copy_file(SYNCHRONIZE_SHARES_PROGRAM, program());
  }

  std::string program() const { return folder_.path("usr/libexec/samba/synchronize-shares"); }
  EndedProgram run() const { return runProgram({program()}); }
  void expectDone() const {
    const EndedProgram ended = run();
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.error, "");
  }
  std::vector<std::string> namesBesideIncludeFile() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path("etc/samba")))
      names.push_back(entry.path().filename());
    return names;
  }
};

TEST_F(Program, UsesTreeOfItsInstallation) {
  addSharePoint("plans", "/srv/plans", "Plans");
  expectDone();
  EXPECT_THAT(sectionsIn(text()), ElementsAre("Plans", "global"));
}

TEST_F(Program, MakesNothingThatOthersMayWriteTo) {
  const mode_t before = ::umask(0);
  expectDone();
  ::umask(before);
  for (const char* name : {"etc/samba", "etc/samba/paddock-shares.conf", "run/paddock"}) {
    const auto mode = std::filesystem::status(folder_.path(name)).permissions();
    EXPECT_EQ(mode & std::filesystem::perms(0022), std::filesystem::perms::none) << name;
  }
}

TEST_F(Program, IsNotForEverybody) {
  if (::geteuid() != 0) GTEST_SKIP() << "becoming somebody else needs root";
  std::filesystem::permissions(root(), std::filesystem::perms(0755));
  addSharePoint("plans", "/srv/plans", "Plans");
  const EndedProgram ended = runProgram(
      {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", program()});
  EXPECT_EQ(ended.status, 1);
  EXPECT_THAT(ended.error, HasSubstr("Permission denied"));
  EXPECT_FALSE(std::filesystem::exists(includeFile()));
}

TEST_F(Program, FullDiskKeepsOnlyOldFile) {
  if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([this] {
    std::filesystem::create_directories(folder_.path("etc/samba"));
    mountTmpfs(folder_.path("etc/samba"), "16k");
    addSharePoints(3);
    expectDone();
    const std::string old = text();
    for (int number = 3; number < 100; ++number)
      addSharePoint("more" + std::to_string(number), "/srv/more", "more" + std::to_string(number));
    const EndedProgram ended = run();
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.error,
              "synchronize-shares: cannot write " + includeFile() + ": No space left on device\n");
    EXPECT_EQ(text(), old);
    EXPECT_THAT(namesBesideIncludeFile(), ElementsAre("paddock-shares.conf"));
  });
}

TEST_F(Program, KillLeavesOldOrNewFile) {
  addSharePoints(200);
  const auto whole = durationOf([this] { expectDone(); });
  const std::string made = text();
  const std::string old = "[old]\n";
  killAtRandomMoments(
      program(), {program()}, whole, [&] { writeWholeFile(includeFile(), old); },
      [&] { EXPECT_TRUE(text() == old || text() == made); });
  expectDone();
  EXPECT_EQ(text(), made);
}

TEST_F(Program, ConcurrentRunsLeaveFinalDirectoryState) {
  constexpr int kRuns = 6;
  constexpr int kRounds = 10;
  for (int round = 0; round < kRounds; ++round) {
    std::vector<std::thread> runs;
    for (int number = 0; number < kRuns; ++number) {
      addSharePoint("r" + std::to_string(round) + "n" + std::to_string(number), "/srv",
                    "s" + std::to_string(round * kRuns + number));
      runs.emplace_back([this] { expectDone(); });
    }
    for (std::thread& one : runs) one.join();
    EXPECT_EQ(sectionsIn(text()).size(), static_cast<std::size_t>((round + 1) * kRuns + 1));
  }
  EXPECT_THAT(namesBesideIncludeFile(), ElementsAre("paddock-shares.conf"));
}

// The system's log, in a mount namespace of its own.
class LogSocket {
 public:
  explicit LogSocket(const std::string& folder) : socket_(::socket(AF_UNIX, SOCK_DGRAM, 0)) {
    std::filesystem::create_directories(folder);
    writeWholeFile(folder + "/null", "");
    bindMount("/dev/null", folder + "/null");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = folder + "/log";
    std::copy(path.begin(), path.end(), address.sun_path);
    EXPECT_EQ(::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
              0);
    EXPECT_EQ(::mount(folder.c_str(), "/dev", "", MS_BIND | MS_REC, ""), 0);
  }

  std::vector<std::string> messages() const {
    std::vector<std::string> all;
    std::array<char, 4096> bytes{};
    for (;;) {
      const ssize_t length = ::recv(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
      if (length < 0) return all;
      all.emplace_back(bytes.data(), static_cast<std::size_t>(length));
    }
  }

 private:
  FileDescriptor socket_;
};

TEST_F(Program, OmittedSharesAreLoggedToSystemLog) {
  if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([this] {
    addSharePoint("plans\x1B", "/srv/plans", "a\nb");
    addSharePoint("films", "/srv/films", "Films");
    const LogSocket log(folder_.path("dev"));
    ::setenv("PADDOCK_REQUEST_ID", "r-17", 1);
    expectDone();
    EXPECT_THAT(
        log.messages(),
        ElementsAre(AllOf(HasSubstr("synchronize-shares["),
                          EndsWith("]: share point \"plans\\x1B\" is left out of SMB: its name "
                                   "over SMB, \"a\\x0Ab\", has a control character "
                                   "[request r-17]"))));
    EXPECT_THAT(sectionsIn(text()), ElementsAre("Films", "global"));
  });
}

TEST_F(Program, ProgramBelowTreeNotifiesSmbd) {
  installSmbControl("echo \"$@\" >" + folder_.path("told"));
  expectDone();
  EXPECT_EQ(readWholeFile(folder_.path("told")), "smbd reload-config\n");
}

TEST_F(Program, ErrorIsOneLineOnStandardError) {
  std::filesystem::create_directories(includeFile());
  const EndedProgram ended = run();
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.error, "synchronize-shares: cannot read " + includeFile() + ": Is a directory\n");
  EXPECT_THAT(ended.output, IsEmpty());
}

}  // namespace
}  // namespace paddock::synchronizer
