#include "platform/linux/directory/local_database.h"

#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>
#include <utility>

#include "platform/directory.h"
#include "platform/linux/database/local_schema.h"
#include "platform/linux/directory/local_node.h"

namespace paddock {
namespace {

using std::chrono::milliseconds;
using ::testing::HasSubstr;

constexpr const char* kShares = "dsRecTypeStandard:SharePoints";

struct Failure {
  Status status = 0;
  std::string text;
};

template <typename Work>
Failure failureOf(Work&& work) {
  try {
    work();
  } catch (const DirectoryError& error) {
    return {error.status().value_or(-1), error.what()};
  }
  return {};
}

// During its lifetime, the first execution of a given statement on a connection opened since its
// construction is preceded by one call of `work`.
class Interruption {
 public:
  Interruption(std::string sql, std::function<void()> work) {
    sql_ = std::move(sql);
    work_ = std::move(work);
    ::sqlite3_auto_extension(entryPoint());
  }
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;
  ~Interruption() {
    ::sqlite3_cancel_auto_extension(entryPoint());
    work_ = nullptr;
  }

  static bool isDone() { return !work_; }

 private:
  using EntryPoint = void (*)();
  static EntryPoint entryPoint() { return reinterpret_cast<EntryPoint>(&watch); }

  static int watch(sqlite3* database, char** /*error*/, const void* /*routines*/) {
    return ::sqlite3_trace_v2(database, SQLITE_TRACE_STMT, &begins, nullptr);
  }
  static int begins(unsigned /*event*/, void* /*context*/, void* /*statement*/, void* text) {
    if (work_ && sql_ == static_cast<const char*>(text)) std::exchange(work_, nullptr)();
    return 0;
  }

  static inline std::string sql_;
  static inline std::function<void()> work_;
};

class LocalDatabaseFile : public ::testing::Test {
 protected:
  LocalDatabaseFile() {
    std::string name = (std::filesystem::temp_directory_path() / "paddock.XXXXXX").string();
    folder_ = ::mkdtemp(name.data());
    path_ = (folder_ / "state" / "directory.sqlite").string();
    database_ = std::make_shared<LocalDatabase>(path_, milliseconds(300));
  }
  ~LocalDatabaseFile() override {
    database_.reset();
    std::filesystem::remove_all(folder_);
  }

  std::shared_ptr<LocalDirectoryNode> node() { return openLocalNode(database_, "paddock"); }
  bool has(const std::string& name) { return node()->findRecord(name, kShares) != nullptr; }
  void add(const std::string& name) { node()->newRecord(name, kShares)->setAttribute("a", name); }
  void reopen() { database_ = std::make_shared<LocalDatabase>(path_, milliseconds(300)); }

  std::string bytes() const {
    std::ifstream file(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  void overwrite(const std::string& contents) const {
    std::ofstream(path_, std::ios::binary | std::ios::trunc) << contents;
  }
  mode_t modeOf(const std::filesystem::path& path) const {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    return status.st_mode & 07777U;
  }
  // Changes with every commit.
  std::filesystem::file_time_type lastWritten() const {
    return std::filesystem::last_write_time(path_);
  }

  std::filesystem::path folder_;
  std::string path_;
  std::shared_ptr<LocalDatabase> database_;
};

TEST_F(LocalDatabaseFile, IsCreatedWithFolderForOwnerOnly) {
  const mode_t umask = ::umask(0);
  add("Docs");
  ::umask(umask);
  EXPECT_EQ(modeOf(path_), 0600U);
  EXPECT_EQ(modeOf(folder_ / "state"), 0700U);
  for (const auto& entry : std::filesystem::directory_iterator(folder_ / "state"))
    EXPECT_EQ(modeOf(entry.path()), 0600U) << entry.path();
}

TEST_F(LocalDatabaseFile, KeepsRecordsThroughARestart) {
  add("Docs");
  reopen();
  EXPECT_TRUE(has("docs"));
}

TEST_F(LocalDatabaseFile, NothingButTheOneFileHoldsTheDirectory) {
  add("Docs");
  std::filesystem::copy_file(path_, folder_ / "copy");
  std::filesystem::remove_all(folder_ / "state");
  std::filesystem::create_directory(folder_ / "state");
  std::filesystem::rename(folder_ / "copy", path_);
  reopen();
  EXPECT_TRUE(has("Docs"));
}

TEST_F(LocalDatabaseFile, AFileThatWasRemovedIsCreatedAgain) {
  const auto before = node();
  const auto held = before->newRecord("Docs", kShares);
  std::filesystem::remove(path_);
  EXPECT_FALSE(has("Docs"));
  add("New");
  EXPECT_EQ(failureOf([&] { held->setAttribute("a", "1"); }).status, ENOENT);
  EXPECT_NE(before->findRecord("New", kShares), nullptr);
  reopen();
  EXPECT_TRUE(has("New"));
}

TEST_F(LocalDatabaseFile, AFolderThatWasRemovedIsCreatedAgain) {
  add("Docs");
  std::filesystem::remove_all(folder_ / "state");
  add("New");
  EXPECT_FALSE(has("Docs"));
  EXPECT_TRUE(has("New"));
}

TEST_F(LocalDatabaseFile, AFileThatWasReplacedIsReadInstead) {
  add("Old");
  std::filesystem::copy_file(path_, folder_ / "backup");
  add("Newer");
  const auto held = node()->findRecord("Newer", kShares);
  std::filesystem::rename(folder_ / "backup", path_);
  EXPECT_TRUE(has("Old"));
  EXPECT_FALSE(has("Newer"));
  add("Another");
  EXPECT_EQ(failureOf([&] { held->setAttribute("a", "1"); }).status, ENOENT);
  reopen();
  EXPECT_TRUE(has("Another"));
}

TEST_F(LocalDatabaseFile, NonDatabaseFileIsRefusedAndLeftAlone) {
  std::filesystem::create_directory(folder_ / "state");
  const std::string text(5000, 'x');
  overwrite(text);
  const Failure failure = failureOf([&] { node(); });
  EXPECT_EQ(failure.status, EIO);
  EXPECT_THAT(failure.text, HasSubstr(path_));
  EXPECT_EQ(bytes(), text);
}

TEST_F(LocalDatabaseFile, ForeignDatabaseIsRefusedAndLeftAlone) {
  std::filesystem::create_directory(folder_ / "state");
  overwrite("");
  SqliteConnection(path_).execute("CREATE TABLE other(a)");
  const std::string before = bytes();
  const Failure failure = failureOf([&] { node(); });
  EXPECT_EQ(failure.status, EIO);
  EXPECT_THAT(failure.text, HasSubstr(path_));
  EXPECT_EQ(bytes(), before);
}

TEST_F(LocalDatabaseFile, ANewerFormatIsRefusedAndLeftAlone) {
  add("Docs");
  reopen();
  SqliteConnection(path_).execute("PRAGMA user_version = 99");
  const std::string before = bytes();
  const Failure failure = failureOf([&] { node(); });
  EXPECT_EQ(failure.status, ENOTSUP);
  EXPECT_THAT(failure.text, HasSubstr("format 99"));
  EXPECT_THAT(failure.text, HasSubstr(path_));
  EXPECT_EQ(bytes(), before);
}

TEST_F(LocalDatabaseFile, AnEmptyFileBecomesADirectory) {
  std::filesystem::create_directory(folder_ / "state");
  overwrite("");
  add("Docs");
  EXPECT_TRUE(has("Docs"));
}

TEST_F(LocalDatabaseFile, ATruncatedFileIsDamagedAndLeftAlone) {
  for (int i = 0; i < 50; ++i) add("record " + std::to_string(i));
  reopen();
  const std::string whole = bytes();
  overwrite(whole.substr(0, whole.size() / 2));
  const Failure failure = failureOf([&] { has("Docs"); });
  EXPECT_EQ(failure.status, EIO);
  EXPECT_THAT(failure.text, HasSubstr(path_));
  EXPECT_EQ(bytes(), whole.substr(0, whole.size() / 2));
}

TEST_F(LocalDatabaseFile, DamagedFileIsNotOverwrittenAndRepairDetected) {
  for (int i = 0; i < 50; ++i) add("record " + std::to_string(i));
  reopen();
  const std::string whole = bytes();
  std::string damaged = whole;
  std::fill(damaged.begin() + 4096, damaged.end(), '\x5A');
  overwrite(damaged);
  const Failure reading = failureOf([&] { has("record 1"); });
  EXPECT_EQ(reading.status, EIO);
  EXPECT_THAT(reading.text, HasSubstr(path_));
  EXPECT_EQ(failureOf([&] { add("New"); }).status, EIO);
  EXPECT_EQ(bytes(), damaged);
  overwrite(whole);
  EXPECT_TRUE(has("record 1"));
}

TEST_F(LocalDatabaseFile, DamageToOpenFileFailsAndRepairDetected) {
  for (int i = 0; i < 50; ++i) add("record " + std::to_string(i));
  const std::string whole = bytes();
  overwrite(std::string(whole.size(), '\x5A'));
  EXPECT_EQ(failureOf([&] { has("record 1"); }).status, EIO);
  EXPECT_EQ(failureOf([&] { has("record 1"); }).status, EIO);
  overwrite(whole);
  EXPECT_TRUE(has("record 1"));
}

TEST_F(LocalDatabaseFile, UnopenablePathReturnsErrno) {
  std::filesystem::create_directories(path_);
  EXPECT_EQ(failureOf([&] { node(); }).status, EISDIR);
  std::filesystem::remove_all(folder_ / "state");
  std::ofstream(folder_ / "state") << "a file";
  EXPECT_EQ(failureOf([&] { node(); }).status, ENOTDIR);
}

TEST_F(LocalDatabaseFile, AChangeThatChangesNothingWritesNothing) {
  const auto record = node()->newRecord("Docs", kShares);
  record->setAttributesAndValues({{"a", "1"}, {"b", Array{"1", "2"}}});
  const auto before = lastWritten();
  record->setAttribute("a", "1");
  record->setAttribute("b", Array{"1", "2"});
  record->removeAttribute("nothing");
  record->removeAttribute(schema::kRecordName);
  record->setAttribute(schema::kRecordName, "Docs");
  record->setAttributesAndValues(record->getAllAttributesAndValues());
  EXPECT_EQ(lastWritten(), before);
  record->setAttribute("b", Array{"2", "1"});
  EXPECT_NE(lastWritten(), before);
}

TEST_F(LocalDatabaseFile, EmptyChangeSucceedsDuringForeignWrite) {
  const auto record = node()->newRecord("Docs", kShares);
  record->setAttribute("a", "1");
  SqliteConnection other(path_);
  const SqliteTransaction writing(other, SqliteTransaction::Kind::write);
  EXPECT_EQ(failureOf([&] { record->setAttribute("a", "1"); }).status, 0);
  EXPECT_EQ(failureOf([&] { record->setAttribute("a", "2"); }).status, EBUSY);
}

TEST_F(LocalDatabaseFile, HeldLockReturnsBusyAfterPatience) {
  add("Docs");
  SqliteConnection other(path_);
  other.execute("BEGIN EXCLUSIVE");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(failureOf([&] { has("Docs"); }).status, EBUSY);
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(300));
  EXPECT_EQ(failureOf([&] { add("New"); }).status, EBUSY);
  other.execute("ROLLBACK");
  EXPECT_TRUE(has("Docs"));
  EXPECT_FALSE(has("New"));
}

TEST_F(LocalDatabaseFile, ALockThatStaysIsWaitedForOnce) {
  add("Docs");
  SqliteConnection other(path_);
  other.execute("BEGIN EXCLUSIVE");
  const auto start = std::chrono::steady_clock::now();
  for (int lookups = 0; lookups < 200; ++lookups)
    EXPECT_EQ(failureOf([&] { has("Docs"); }).status, EBUSY);
  // Far from 200 times the patience of 300 ms.
  EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(300 * 20));
  other.execute("ROLLBACK");
  EXPECT_TRUE(has("Docs")) << "a lock that is gone is not in the way";
}

TEST_F(LocalDatabaseFile, WaitingThreadsShareThePatience) {
  add("Docs");
  SqliteConnection other(path_);
  other.execute("BEGIN EXCLUSIVE");
  const auto local = node();
  const auto start = std::chrono::steady_clock::now();
  std::vector<std::thread> threads;
  threads.reserve(16);
  for (int i = 0; i < 16; ++i)
    threads.emplace_back(
        [&] { EXPECT_EQ(failureOf([&] { local->findRecord("Docs", kShares); }).status, EBUSY); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(300 * 8));
  other.execute("ROLLBACK");
}

TEST_F(LocalDatabaseFile, NoTransactionStaysOpenBetweenCalls) {
  const auto record = node()->newRecord("Docs", kShares);
  record->setAttribute("a", "1");
  record->getAllAttributesAndValues();
  static_cast<void>(failureOf([&] { record->setAttribute(schema::kRecordType, "x"); }));
  SqliteConnection other(path_);
  other.execute("BEGIN EXCLUSIVE");
  other.execute("ROLLBACK");
}

TEST_F(LocalDatabaseFile, FailedTransactionForgetsAttributeNumbers) {
  const auto other = node()->newRecord("Other", kShares);
  const auto record = node()->newRecord("Docs", kShares);
  EXPECT_EQ(failureOf([&] {
              record->setAttributesAndValues({{"a new one", "1"}, {schema::kRecordName, "Other"}});
            }).status,
            EEXIST);
  record->setAttribute("another new one", "2");
  record->setAttribute("a new one", "3");
  EXPECT_EQ(record->getAttribute("a new one"), Array{"3"});
  reopen();
  EXPECT_EQ(node()->findRecord("Docs", kShares)->getAttribute("another new one"), Array{"2"});
}

TEST_F(LocalDatabaseFile, AnotherProgramsNewAttributesAreRead) {
  const auto record = node()->newRecord("Docs", kShares);
  openLocalNode(std::make_shared<LocalDatabase>(path_), "paddock")
      ->findRecord("Docs", kShares)
      ->setAttribute("written elsewhere", "1");
  EXPECT_EQ(record->getAttribute("written elsewhere"), Array{"1"});
}

TEST_F(LocalDatabaseFile, ValuesOfOtherUnicodeVersionAreRefolded) {
  add("Docs");
  reopen();
  {
    SqliteConnection connection(path_);
    connection.execute("UPDATE meta SET value = '1.0.0' WHERE key = 'folding'");
    connection.execute("UPDATE names SET folded = 'stale'");
    connection.execute("UPDATE matches SET folded = 'stale'");
  }
  EXPECT_TRUE(has("DOCS"));
  EXPECT_EQ(
      node()->findRecordsOfTypes({kShares}, "a", "docs", MatchType::caseInsensitiveExact).size(),
      1U);
  EXPECT_FALSE(has("stale"));
}

TEST_F(LocalDatabaseFile, SixteenThreadsShareTheConnection) {
  std::vector<std::thread> threads;
  threads.reserve(16);
  for (int thread = 0; thread < 16; ++thread)
    threads.emplace_back([&, thread] {
      for (int i = 0; i < 5; ++i) {
        const std::string name = std::to_string(thread) + "/" + std::to_string(i);
        add(name);
        EXPECT_TRUE(has(name));
        node()->findRecordNames(kRecordsAll, {kAttributesAll}, kShares,
                                MatchType::caseInsensitiveExact);
        if (i % 2 == 0) node()->findRecord(name, kShares)->removeRecord();
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(
      node()->findRecordNames(kRecordsAll, {}, kShares, MatchType::caseInsensitiveExact).size(),
      32U);
}

TEST_F(LocalDatabaseFile, TwoConnectionsOfOneProcessShareTheFile) {
  const auto other = std::make_shared<LocalDatabase>(path_, std::chrono::seconds(20));
  database_ = std::make_shared<LocalDatabase>(path_, std::chrono::seconds(20));
  std::vector<std::thread> threads;
  for (const auto& database : {database_, other})
    threads.emplace_back([&, database] {
      for (int i = 0; i < 20; ++i) {
        const Failure failure = failureOf([&] {
          openLocalNode(database, "paddock")
              ->newRecord(std::to_string(i) + (database == other ? "a" : "b"), kShares);
        });
        EXPECT_EQ(failure.text, "");
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(
      node()->findRecordNames(kRecordsAll, {}, kShares, MatchType::caseInsensitiveExact).size(),
      40U);
}

TEST_F(LocalDatabaseFile, DirectoryCreatedConcurrentlyIsNoForeignFile) {
  LocalDatabase other(path_, milliseconds(0));
  const Interruption interruption("PRAGMA user_version", [&other] {
    static_cast<void>(failureOf([&other] { other.use([](LocalStore&) {}); }));
  });
  EXPECT_EQ(failureOf([&] { add("Docs"); }).text, "");
  EXPECT_TRUE(Interruption::isDone());
  EXPECT_TRUE(has("Docs"));
  EXPECT_EQ(failureOf([&other] { other.use([](LocalStore&) {}); }).text, "");
}

TEST_F(LocalDatabaseFile, OnlyMissingMigrationsRunInOrder) {
  add("Docs");
  reopen();
  SqliteConnection connection(path_);
  SqliteFormat format = directoryFormat();
  format.migrations.emplace_back("CREATE TABLE second(a)");
  format.migrations.emplace_back("INSERT INTO second VALUES(3)");
  migrateSqliteFile(connection, format);
  migrateSqliteFile(connection, format);
  EXPECT_EQ(connection.queryInteger("SELECT count(*) FROM second"), 1);
  EXPECT_EQ(connection.queryInteger("PRAGMA user_version"),
            static_cast<std::int64_t>(format.migrations.size()));
  EXPECT_EQ(connection.queryInteger("SELECT count(*) FROM records"), 1);
}

TEST_F(LocalDatabaseFile, AMigrationThatFailsLeavesTheOldFormat) {
  add("Docs");
  reopen();
  SqliteConnection connection(path_);
  const auto version = connection.queryInteger("PRAGMA user_version");
  SqliteFormat format = directoryFormat();
  format.migrations.emplace_back("CREATE TABLE second(a)");
  format.migrations.emplace_back("INSERT INTO nowhere VALUES(3)");
  EXPECT_EQ(failureOf([&] { migrateSqliteFile(connection, format); }).status, EIO);
  EXPECT_EQ(connection.queryInteger("PRAGMA user_version"), version);
  EXPECT_EQ(connection.queryInteger("SELECT count(*) FROM sqlite_schema WHERE name = 'second'"), 0);
}

TEST_F(LocalDatabaseFile, PasswordsAreKeptAsHashes) {
  node()->newRecord("anna", schema::kUsers);
  node()->setPassword("anna", "correct horse battery");
  EXPECT_EQ(bytes().find("correct horse battery"), std::string::npos);
  EXPECT_NE(bytes().find("$y$"), std::string::npos);
  EXPECT_EQ(failureOf([&] { node()->setPassword("anna", ""); }).status, EINVAL);
  EXPECT_EQ(failureOf([&] { node()->setPassword("bert", "x"); }).status, ENOENT);
  EXPECT_EQ(node()->authenticateName("anna", "correct horse battery", true), 0);
}

TEST_F(LocalDatabaseFile, OnlyAnAdministratorSetsPasswordsAfterAuthenticating) {
  node()->newRecord("anna", schema::kUsers);
  node()->setPassword("anna", "first");
  const auto local = node();
  ASSERT_EQ(local->authenticateName("anna", "first", false), 0);
  EXPECT_EQ(failureOf([&] { local->setPassword("anna", "second"); }).status, EACCES);
  EXPECT_EQ(node()->authenticateName("anna", "first", true), 0);
}

}  // namespace
}  // namespace paddock
