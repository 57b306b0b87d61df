// What happens to the local directory when the process or the disk fails it.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>

#include "base/file_access.h"
#include "base/system_call.h"
#include "platform/directory.h"
#include "platform/linux/directory/local_node.h"
#include "support/own_mounts.h"

namespace paddock {
namespace {

constexpr const char* kShares = "dsRecTypeStandard:SharePoints";
const std::vector<std::string> kAttributes = {"first", "second", "third", "fourth"};

std::shared_ptr<LocalDirectoryNode> open(const std::string& path) {
  return openLocalNode(std::make_shared<LocalDatabase>(path), "paddock");
}

Array all(DirectoryNode& node) {
  return node.findRecordNames(kRecordsAll, {kAttributesAll}, kShares,
                              MatchType::caseInsensitiveExact);
}

// Runs in a child process; its result is the exit status.
pid_t inChild(const std::function<int()>& work) {
  const pid_t child = ::fork();
  if (child != 0) return child;
  int result = 99;
  try {
    result = work();
  } catch (...) {
    result = 98;
  }
  ::_exit(result);
}

int waitFor(pid_t child) {
  int status = 0;
  retryOnInterrupt([&] { return ::waitpid(child, &status, 0); });
  return status;
}

class LocalDatabaseCrash : public ::testing::Test {
 protected:
  LocalDatabaseCrash() {
    std::string name = (std::filesystem::temp_directory_path() / "paddock.XXXXXX").string();
    folder_ = ::mkdtemp(name.data());
  }
  ~LocalDatabaseCrash() override { std::filesystem::remove_all(folder_); }

  std::string path() const { return (folder_ / "directory.sqlite").string(); }

  // Creates records, changes them all in one transaction each, removes some; reports to `progress`
  // the last number that was written completely.
  static int writeForever(const std::string& path, int progress) {
    const auto node = open(path);
    for (std::uint32_t number = 1;; ++number) {
      const std::string text = std::to_string(number);
      Dictionary attributes;
      for (const std::string& attribute : kAttributes)
        attributes.set(attribute, Array{text, text + " again"});
      const std::string name = "record " + std::to_string(number % 7);
      auto record = node->findRecord(name, kShares);
      if (!record) record = node->newRecord(name, kShares);
      record->setAttributesAndValues(attributes);
      if (::write(progress, &number, sizeof number) != sizeof number) return 1;
      if (number % 5 == 0) node->findRecord(name, kShares)->removeRecord();
    }
  }

  // Every record has all of the attributes with the same number, or none; searches agree with what
  // they find.
  static std::uint32_t requireWhole(const std::string& path) {
    SqliteConnection check(path);
    EXPECT_EQ(check.queryInteger("SELECT count(*) FROM pragma_integrity_check "
                                 "WHERE integrity_check <> 'ok'"),
              0);
    EXPECT_EQ(check.queryInteger("SELECT count(*) FROM pragma_foreign_key_check"), 0);
    const auto node = open(path);
    std::uint32_t largest = 0;
    for (const Value& answer : all(*node)) {
      const Dictionary& record = *answer.dictionary();
      const Array* first = record.array("first");
      for (const std::string& attribute : kAttributes) {
        const Array* values = record.array(attribute);
        EXPECT_EQ(values == nullptr, first == nullptr);
        if (values != nullptr && first != nullptr) {
          EXPECT_EQ(*values, *first);
        }
      }
      if (first == nullptr) continue;
      const std::string& number = *first->front().string();
      EXPECT_EQ(node->findRecordsOfTypes({kShares}, "fourth", number + " AGAIN",
                                         MatchType::caseInsensitiveExact)
                    .size(),
                1U);
      largest = std::max(largest, static_cast<std::uint32_t>(std::stoul(number)));
    }
    return largest;
  }

  std::filesystem::path folder_;
};

TEST_F(LocalDatabaseCrash, AKilledWriterLeavesWholeTransactions) {
  constexpr int kRounds = 25;
  for (int round = 0; round < kRounds; ++round) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    FileDescriptor reading(ends[0]);
    FileDescriptor writing(ends[1]);
    const pid_t writer = inChild([&] { return writeForever(path(), writing.get()); });
    ASSERT_GT(writer, 0);
    writing.reset();
    std::uint32_t written = 0;
    // At least one whole record, then a moment that differs from round to round.
    ASSERT_EQ(::read(reading.get(), &written, sizeof written), ssize_t{sizeof written});
    ::usleep(static_cast<useconds_t>(700 * round));
    ::kill(writer, SIGKILL);
    EXPECT_TRUE(WIFSIGNALED(waitFor(writer)));
    std::uint32_t last = written;
    while (::read(reading.get(), &written, sizeof written) == sizeof written) last = written;
    const std::uint32_t largest = requireWhole(path());
    // What was reported as written is there, unless the writer went on to remove it.
    if (last % 5 != 0) {
      EXPECT_GE(largest, last) << "round " << round;
    }
    if (::testing::Test::HasFailure()) return;
    std::filesystem::remove(path());
  }
}

// Writes until an error, which must have the status; then what was written must be whole, and
// once `makeRoom` has run, more can be written.
int writeUntil(const std::string& path, Status expected, const std::function<void()>& makeRoom) {
  const auto node = open(path);
  std::size_t written = 0;
  try {
    for (; written < 10'000; ++written)
      node->newRecord("record " + std::to_string(written), kShares)
          ->setAttribute("large", std::string(2000, 'x'));
    return 1;
  } catch (const DirectoryError& error) {
    if (error.status() != expected) return 2;
  }
  const std::size_t found = all(*node).size();
  if (found != written && found != written + 1) return 3;
  makeRoom();
  node->findRecord("record 0", kShares)->removeRecord();
  return all(*node).size() == found - 1 ? 0 : 4;
}

TEST_F(LocalDatabaseCrash, FullDiskIsReportedWithoutLoss) {
  if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    mountTmpfs(folder_.string(), "1m");
    const std::string ballast = (folder_ / "ballast").string();
    std::ofstream(ballast) << std::string(200'000, 'x');
    EXPECT_EQ(writeUntil(path(), ENOSPC, [&] { std::filesystem::remove(ballast); }), 0);
  });
}

TEST_F(LocalDatabaseCrash, FileSizeLimitIsReportedWithoutLoss) {
  const pid_t child = inChild([&] {
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{300'000, 300'000};
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 76;
    return writeUntil(path(), EIO, [] {});  // SQLite does not distinguish this error
  });
  const int status = waitFor(child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(LocalDatabaseCrash, AnotherProcessesLockIsWaitedFor) {
  open(path())->newRecord("Docs", kShares);
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const FileDescriptor reading(ends[0]);
  const FileDescriptor writing(ends[1]);
  const pid_t locker = inChild([&] {
    SqliteConnection connection(path());
    connection.execute("BEGIN EXCLUSIVE");
    if (::write(writing.get(), "x", 1) != 1) return 1;
    ::usleep(300'000);
    connection.execute("COMMIT");
    return 0;
  });
  char locked = 0;
  ASSERT_EQ(::read(reading.get(), &locked, 1), 1);
  EXPECT_NE(open(path())->findRecord("Docs", kShares), nullptr);
  EXPECT_EQ(waitFor(locker), 0);
}

}  // namespace
}  // namespace paddock
