#include "platform/linux/acl/remembered_sids.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <thread>

#include "base/file_access.h"
#include "base/system_call.h"
#include "platform/linux/acl/sid_forms.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

using nt_acl::Sid;

Sid numbered(std::uint32_t number) { return {5, {21, 1, 2, 3, number}}; }
Guid guidOf(const Sid& sid) { return nt_acl::foreignGuid(sid); }

class RememberedSidStorage : public testing::Test {
 protected:
  std::string path() const { return folder_.path("lib/foreign-sids.sqlite"); }

  static int find(RememberedSids& remembered, const Sid& sid) {
    Sid found;
    const int error = remembered.find(guidOf(sid), found);
    EXPECT_TRUE(error != 0 || found == sid);
    return error;
  }

  TestFolder folder_;
  RememberedSids remembered_{path()};
};

TEST_F(RememberedSidStorage, FindsWhatWasRemembered) {
  EXPECT_EQ(find(remembered_, numbered(1)), ENOENT);
  EXPECT_EQ(remembered_.remember(numbered(1)), 0);
  EXPECT_EQ(find(remembered_, numbered(1)), 0);
  EXPECT_EQ(find(remembered_, numbered(2)), ENOENT);
}

TEST_F(RememberedSidStorage, FindingMakesNoFile) {
  EXPECT_EQ(find(remembered_, numbered(1)), ENOENT);
  EXPECT_FALSE(std::filesystem::exists(folder_.path("lib")));
  std::filesystem::create_directory(folder_.path("lib"));
  writeWholeFile(path(), "");
  EXPECT_EQ(find(remembered_, numbered(1)), ENOENT);
  EXPECT_EQ(readWholeFile(path()), "") << "another process is making it";
  EXPECT_EQ(remembered_.remember(numbered(1)), 0);
  EXPECT_EQ(find(remembered_, numbered(1)), 0);
}

TEST_F(RememberedSidStorage, KeepsSidsOfEveryShape) {
  for (const Sid& sid :
       {Sid{0, {}}, Sid{0xFFFFFFFFFFFF, std::vector<std::uint32_t>(15, 0xFFFFFFFF)},
        Sid{22, {3, 5}}}) {
    EXPECT_EQ(remembered_.remember(sid), 0);
    EXPECT_EQ(find(remembered_, sid), 0);
  }
}

TEST_F(RememberedSidStorage, AnotherProcessFindsItAtOnce) {
  EXPECT_EQ(remembered_.remember(numbered(1)), 0);
  RememberedSids other(path());
  EXPECT_EQ(find(other, numbered(1)), 0);
  EXPECT_EQ(other.remember(numbered(2)), 0);
  EXPECT_EQ(find(remembered_, numbered(2)), 0);
}

TEST_F(RememberedSidStorage, RememberingAgainWritesNothing) {
  EXPECT_EQ(remembered_.remember(numbered(1)), 0);
  const auto written = std::filesystem::last_write_time(path());
  const std::string contents = readWholeFile(path());
  std::filesystem::last_write_time(path(), written - std::chrono::hours(1));
  EXPECT_EQ(remembered_.remember(numbered(1)), 0);
  EXPECT_EQ(readWholeFile(path()), contents);
  EXPECT_EQ(std::filesystem::last_write_time(path()), written - std::chrono::hours(1));
}

TEST_F(RememberedSidStorage, OnlyItsOwnerReadsTheFile) {
  EXPECT_EQ(remembered_.remember(numbered(1)), 0);
  struct stat status {};
  ASSERT_EQ(::stat(path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(RememberedSidStorage, OldestAreForgottenBeyondCapacity) {
  RememberedSids remembered(path(), 10);
  for (std::uint32_t number = 1; number <= 25; ++number)
    EXPECT_EQ(remembered.remember(numbered(number)), 0);
  for (std::uint32_t number = 1; number <= 25; ++number)
    EXPECT_EQ(find(remembered, numbered(number)), number <= 15 ? ENOENT : 0) << number;
}

TEST_F(RememberedSidStorage, WhatWasForgottenIsRememberedAgain) {
  RememberedSids remembered(path(), 2);
  for (const std::uint32_t number : {1U, 2U, 3U, 1U})
    EXPECT_EQ(remembered.remember(numbered(number)), 0);
  EXPECT_EQ(find(remembered, numbered(1)), 0);
  EXPECT_EQ(find(remembered, numbered(2)), ENOENT);
  EXPECT_EQ(find(remembered, numbered(3)), 0);
}

TEST_F(RememberedSidStorage, AFileThatWasRemovedIsBegunAnew) {
  EXPECT_EQ(remembered_.remember(numbered(1)), 0);
  ASSERT_TRUE(std::filesystem::remove(path()));
  EXPECT_EQ(find(remembered_, numbered(1)), ENOENT);
  EXPECT_EQ(remembered_.remember(numbered(1)), 0);
  EXPECT_EQ(find(remembered_, numbered(1)), 0);
}

TEST_F(RememberedSidStorage, ADamagedFileIsSetAside) {
  EXPECT_EQ(remembered_.remember(numbered(1)), 0);
  const std::string garbage(8192, 'x');
  writeWholeFile(path(), garbage);
  RememberedSids later(path());
  EXPECT_EQ(find(later, numbered(1)), ENOENT);
  EXPECT_EQ(readWholeFile(path()), garbage) << "finding changes nothing";
  EXPECT_EQ(later.remember(numbered(1)), 0);
  EXPECT_EQ(find(later, numbered(1)), 0);
  EXPECT_EQ(readWholeFile(path() + ".damaged"), garbage);
}

TEST_F(RememberedSidStorage, ARowUnderAnotherSidsGuidIsDamage) {
  EXPECT_EQ(remembered_.remember(numbered(1)), 0);
  {
    SqliteConnection connection(path());
    connection.execute("UPDATE remembered SET sid = 'S-1-22-1-0'");
  }
  EXPECT_EQ(find(remembered_, numbered(1)), ENOENT);
  EXPECT_FALSE(std::filesystem::exists(path() + ".damaged"));
  EXPECT_EQ(remembered_.remember(numbered(1)), 0);
  EXPECT_EQ(find(remembered_, numbered(1)), 0);
  EXPECT_TRUE(std::filesystem::exists(path() + ".damaged"));
}

TEST_F(RememberedSidStorage, AnotherProgramsDatabaseIsLeftAlone) {
  EXPECT_EQ(remembered_.remember(numbered(1)), 0);
  for (const char* change : {"PRAGMA user_version = 2", "PRAGMA application_id = 1"}) {
    {
      SqliteConnection connection(path());
      connection.execute(change);
    }
    RememberedSids later(path());
    EXPECT_EQ(later.remember(numbered(2)), ENOTSUP) << change;
    EXPECT_EQ(find(later, numbered(1)), ENOTSUP) << change;
    EXPECT_FALSE(std::filesystem::exists(path() + ".damaged")) << change;
  }
}

TEST_F(RememberedSidStorage, UncreatableFileReturnsErrno) {
  writeWholeFile(folder_.path("file"), "");
  RememberedSids remembered(folder_.path("file/foreign-sids.sqlite"));
  EXPECT_EQ(remembered.remember(numbered(1)), ENOTDIR);
  EXPECT_EQ(find(remembered, numbered(1)), ENOTDIR);
}

TEST_F(RememberedSidStorage, SeveralMakeTheFileAtOnce) {
  std::vector<std::thread> threads;
  for (std::uint32_t number = 0; number < 4; ++number)
    threads.emplace_back([&, number] {
      RememberedSids remembered(path());
      EXPECT_EQ(remembered.remember(numbered(number)), 0);
    });
  for (std::thread& thread : threads) thread.join();
  for (std::uint32_t number = 0; number < 4; ++number)
    EXPECT_EQ(find(remembered_, numbered(number)), 0) << number;
}

// A child remembers SIDs, reports each through a pipe as soon as it is stored, and is killed.
void rememberUntilKilled(const std::string& path, int told, std::uint32_t first) {
  RememberedSids remembered(path);
  for (std::uint32_t number = first;; ++number) {
    if (remembered.remember(numbered(number)) != 0) ::_exit(1);
    if (::write(told, &number, sizeof number) != sizeof number) ::_exit(2);
  }
}

TEST_F(RememberedSidStorage, WhatAKilledProcessRememberedIsThere) {
  std::uint32_t next = 1;
  for (std::uint32_t round = 1; round <= 8; ++round) {
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC), 0);
    FileDescriptor reading(pipe[0]);
    FileDescriptor writing(pipe[1]);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) rememberUntilKilled(path(), writing.get(), next);
    writing.reset();
    std::uint32_t last = 0;
    for (std::uint32_t count = 0; count < round * 3; ++count)
      ASSERT_EQ(::read(reading.get(), &last, sizeof last), static_cast<ssize_t>(sizeof last));
    ASSERT_EQ(::kill(child, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(retryOnInterrupt([&] { return ::waitpid(child, &status, 0); }), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    RememberedSids later(path());
    for (std::uint32_t number = 1; number <= last; ++number)
      EXPECT_EQ(find(later, numbered(number)), 0) << number << " in round " << round;
    next = last + 1;
  }
  EXPECT_FALSE(std::filesystem::exists(path() + ".damaged"));
}

}  // namespace
}  // namespace paddock
