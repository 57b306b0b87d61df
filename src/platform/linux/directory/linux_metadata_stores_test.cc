#include "platform/linux/directory/linux_metadata_stores.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <thread>

#include "platform/linux/directory/stored_metadata.h"
#include "platform/testing/fake_machine_information.h"
#include "platform/testing/recording_host_services.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

using metadata_store::kLevelReadWrite;
using metadata_store::kSearchLevel;
using std::chrono::milliseconds;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

using Paths = std::vector<std::string>;

class MetadataStoresFile : public ::testing::Test {
 protected:
  MetadataStoresFile() { reopen(); }

  void reopen() { stores_ = std::make_unique<LinuxMetadataStores>(options()); }
  LinuxMetadataStoresOptions options() {
    return {.path = path_, .logger = &logger_, .patience = kPatience};
  }
  int create(const std::string& path) {
    return stores_->createStore(path, {{kSearchLevel, kLevelReadWrite}});
  }
  int read() { return stores_->copyStorePaths(copy_); }
  Paths paths() {
    EXPECT_EQ(read(), 0);
    return copy_ != nullptr ? copy_->all() : Paths{"(null)"};
  }
  // Sixty stores: enough that damage after the first page is detected.
  void createMany() {
    ASSERT_EQ(create("/srv/0"), 0);
    SqliteConnection(path_).execute(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 59) "
        "INSERT INTO stores SELECT '/srv/' || hex(zeroblob(100)) || i, '{}' FROM n");
  }
  std::string bytes() const { return readWholeFile(path_); }
  // Keeps the inode.
  void overwrite(const std::string& contents) const { writeWholeFile(path_, contents); }
  static mode_t modeOf(const std::filesystem::path& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    return status.st_mode & 07777U;
  }
  void setTimeOfChange(std::time_t seconds, long nanoseconds = 0) const {
    const timespec times[] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path_.c_str(), times, 0), 0);
  }

  static constexpr milliseconds kPatience{300};
  TestFolder folder_;
  const std::string path_ = folder_.path("state/metadata-stores.sqlite");
  RecordingLogger logger_;
  std::unique_ptr<LinuxMetadataStores> stores_;
  std::shared_ptr<const StorePaths> copy_;
};

TEST_F(MetadataStoresFile, MissingFileReadsEmptyAndIsNotCreated) {
  EXPECT_EQ(paths(), Paths());
  Dictionary attributes;
  EXPECT_EQ(stores_->copyStoreAttributes("/srv/a", attributes), ENOENT);
  EXPECT_FALSE(std::filesystem::exists(folder_.path("state")));
}

TEST_F(MetadataStoresFile, FirstChangeCreatesFileForOwnerOnly) {
  const mode_t umask = ::umask(0);
  EXPECT_EQ(create("/srv/a"), 0);
  ::umask(umask);
  EXPECT_EQ(modeOf(path_), 0600U);
  EXPECT_EQ(modeOf(folder_.path("state")), 0700U);
}

TEST_F(MetadataStoresFile, KeepsStoresThroughARestart) {
  EXPECT_EQ(create("/srv/a"), 0);
  reopen();
  EXPECT_EQ(paths(), (Paths{"/srv/a"}));
  Dictionary attributes;
  EXPECT_EQ(stores_->copyStoreAttributes("/srv/a", attributes), 0);
  EXPECT_EQ(attributes, (Dictionary{{kSearchLevel, kLevelReadWrite}}));
}

TEST_F(MetadataStoresFile, IsWhatItsFormatSays) {
  EXPECT_EQ(create("/srv/a"), 0);
  EXPECT_EQ(stores_->createStore("/srv/b", {}), 0);
  SqliteConnection file(path_);
  EXPECT_EQ(file.queryInteger("PRAGMA application_id"), 0x50644D73);
  EXPECT_EQ(file.queryInteger("PRAGMA user_version"), 1);
  SqliteStatement rows = file.statement("SELECT path, attributes FROM stores ORDER BY path");
  ASSERT_TRUE(rows.step());
  EXPECT_EQ(rows.text(0), "/srv/a");
  EXPECT_EQ(rows.text(1), R"({"searchLevel":"readWrite"})");
  ASSERT_TRUE(rows.step());
  EXPECT_EQ(rows.text(1), "{}");
  EXPECT_FALSE(rows.step());
}

TEST_F(MetadataStoresFile, WhatIsNoTextIsPassedOver) {
  EXPECT_EQ(create("/srv/a"), 0);
  SqliteConnection(path_).execute(
      R"(UPDATE stores SET attributes = '{"n":1,"b":true,"z":null,"t":"x","o":{},"":"e"}')");
  Dictionary attributes;
  EXPECT_EQ(stores_->copyStoreAttributes("/srv/a", attributes), 0);
  EXPECT_EQ(attributes, (Dictionary{{"t", "x"}}));
}

TEST_F(MetadataStoresFile, NonObjectIsStoreWithoutAttributes) {
  EXPECT_EQ(create("/srv/a"), 0);
  EXPECT_EQ(create("/srv/b"), 0);
  for (const char* broken : {"''", "'x'", "'[\"t\"]'", "'\"t\"'", "'{\"a\"'", "x'00'", "7"}) {
    SqliteConnection(path_).execute(std::string("UPDATE stores SET attributes = ") + broken +
                                    " WHERE path = '/srv/a'");
    Dictionary attributes;
    EXPECT_EQ(stores_->copyStoreAttributes("/srv/a", attributes), 0) << broken;
    EXPECT_EQ(attributes, Dictionary()) << broken;
    EXPECT_EQ(stores_->copyStoreAttributes("/srv/b", attributes), 0);
    EXPECT_EQ(attributes.size(), 1U);
    EXPECT_EQ(stores_->setStoreAttributes("/srv/a", {{"t", "x"}}), 0) << broken;
    EXPECT_EQ(stores_->copyStoreAttributes("/srv/a", attributes), 0);
    EXPECT_EQ(attributes, (Dictionary{{"t", "x"}})) << broken;
  }
}

TEST_F(MetadataStoresFile, ChangesOfAnotherProgramAreSeenAtOnce) {
  EXPECT_EQ(create("/srv/a"), 0);
  LinuxMetadataStores other(options());
  for (int i = 0; i < 20; ++i) {
    const std::string path = "/srv/" + std::to_string(i);
    EXPECT_EQ(paths().size(), 1U + static_cast<unsigned>(i));
    EXPECT_EQ(other.createStore(path, {{"step", "0"}}), 0);
    ASSERT_EQ(read(), 0);
    EXPECT_TRUE(copy_->contains(path)) << path;
  }
}

TEST_F(MetadataStoresFile, ChangePreservingTimeAndSizeIsSeen) {
  EXPECT_EQ(stores_->createStore("/srv/a", {{"step", "1"}}), 0);
  setTimeOfChange(1'000'000);
  EXPECT_EQ(paths(), (Paths{"/srv/a"}));
  const auto size = std::filesystem::file_size(path_);
  SqliteConnection(path_).execute("UPDATE stores SET path = '/srv/b'");
  setTimeOfChange(1'000'000);
  ASSERT_EQ(std::filesystem::file_size(path_), size);
  EXPECT_EQ(paths(), (Paths{"/srv/b"}));
}

TEST_F(MetadataStoresFile, AFileWithAnotherTimeIsReadAgain) {
  EXPECT_EQ(create("/srv/a"), 0);
  EXPECT_EQ(paths().size(), 1U);
  const auto first = copy_;
  setTimeOfChange(1'000'000);
  EXPECT_EQ(paths().size(), 1U);
  EXPECT_NE(copy_, first);
}

TEST_F(MetadataStoresFile, OtherJournalModeReturnsBusyNeverStaleData) {
  EXPECT_EQ(create("/srv/a"), 0);
  EXPECT_EQ(paths().size(), 1U);
  {
    SqliteConnection other(path_);
    other.execute("PRAGMA journal_mode = WAL");
    other.execute("INSERT INTO stores VALUES('/srv/b', '{}')");
    EXPECT_EQ(read(), EBUSY);
    EXPECT_EQ(create("/srv/c"), EBUSY);
  }
  EXPECT_EQ(paths(), (Paths{"/srv/a", "/srv/b"}));
  EXPECT_EQ(create("/srv/c"), 0);
  EXPECT_EQ(paths().size(), 3U);
}

TEST_F(MetadataStoresFile, RemovedFileReadsEmptyAndIsRecreated) {
  EXPECT_EQ(create("/srv/a"), 0);
  EXPECT_EQ(paths().size(), 1U);
  std::filesystem::remove_all(folder_.path("state"));
  EXPECT_EQ(paths(), Paths());
  EXPECT_EQ(create("/srv/b"), 0);
  EXPECT_EQ(paths(), (Paths{"/srv/b"}));
  reopen();
  EXPECT_EQ(paths(), (Paths{"/srv/b"}));
}

TEST_F(MetadataStoresFile, AFileThatWasReplacedIsReadInstead) {
  EXPECT_EQ(create("/srv/a"), 0);
  std::filesystem::copy_file(path_, folder_.path("backup"));
  EXPECT_EQ(create("/srv/b"), 0);
  EXPECT_EQ(paths().size(), 2U);
  std::filesystem::rename(folder_.path("backup"), path_);
  EXPECT_EQ(paths(), (Paths{"/srv/a"}));
  EXPECT_EQ(create("/srv/c"), 0);
  reopen();
  EXPECT_EQ(paths(), (Paths{"/srv/a", "/srv/c"}));
}

TEST_F(MetadataStoresFile, AnEmptyFileBecomesADatabase) {
  std::filesystem::create_directory(folder_.path("state"));
  overwrite("");
  EXPECT_EQ(paths(), Paths());
  EXPECT_EQ(create("/srv/a"), 0);
  EXPECT_EQ(paths(), (Paths{"/srv/a"}));
}

TEST_F(MetadataStoresFile, NonDatabaseFileIsRefusedAndLeftAlone) {
  std::filesystem::create_directory(folder_.path("state"));
  const std::string text(5000, 'x');
  overwrite(text);
  copy_ = std::make_shared<const StorePaths>();
  EXPECT_EQ(read(), EIO);
  EXPECT_EQ(copy_, nullptr);
  EXPECT_EQ(create("/srv/a"), EIO);
  EXPECT_EQ(stores_->setStoreAttributes("/srv/a", {}), EIO);
  EXPECT_EQ(bytes(), text);
}

TEST_F(MetadataStoresFile, ForeignDatabaseIsRefusedAndLeftAlone) {
  std::filesystem::create_directory(folder_.path("state"));
  overwrite("");
  SqliteConnection(path_).execute("CREATE TABLE stores(path, attributes)");
  const std::string before = bytes();
  EXPECT_EQ(read(), EIO);
  EXPECT_EQ(create("/srv/a"), EIO);
  EXPECT_EQ(bytes(), before);
  EXPECT_THAT(logger_.lines().at(0).text, HasSubstr(path_ + " is not a metadata store database"));
}

TEST_F(MetadataStoresFile, ANewerFormatIsRefusedAndLeftAlone) {
  EXPECT_EQ(create("/srv/a"), 0);
  SqliteConnection(path_).execute("PRAGMA user_version = 99");
  reopen();
  const std::string before = bytes();
  EXPECT_EQ(read(), ENOTSUP);
  EXPECT_EQ(create("/srv/b"), ENOTSUP);
  EXPECT_EQ(bytes(), before);
  EXPECT_THAT(logger_.lines().at(0).text, HasSubstr("has the format 99"));
}

TEST_F(MetadataStoresFile, DamagedFileIsLeftAloneAndRepairDetected) {
  createMany();
  const std::string whole = bytes();
  std::string damaged = whole;
  std::fill(damaged.begin() + 4096, damaged.end(), '\x5A');
  overwrite(damaged);
  EXPECT_EQ(read(), EIO);
  EXPECT_EQ(create("/srv/new"), EIO);
  EXPECT_EQ(bytes(), damaged);
  reopen();
  EXPECT_EQ(read(), EIO);
  overwrite(whole);
  EXPECT_EQ(paths().size(), 60U);
}

TEST_F(MetadataStoresFile, FileTruncatedAtAnyPageIsDamaged) {
  createMany();
  const std::string whole = bytes();
  for (std::size_t length = 512; length < whole.size(); length += 512) {
    overwrite(whole.substr(0, length));
    EXPECT_EQ(read(), EIO) << length;
    reopen();
    EXPECT_EQ(read(), EIO) << length;
    EXPECT_EQ(bytes().size(), length);
  }
}

TEST_F(MetadataStoresFile, DamageIsKnownUntilTheFileChanges) {
  createMany();
  const std::string whole = bytes();
  std::string damaged = whole;
  std::fill(damaged.begin() + 4096, damaged.end(), '\x5A');
  overwrite(damaged);
  setTimeOfChange(1'000'000);
  EXPECT_EQ(read(), EIO);
  // While the file's status is unchanged, it is not even opened.
  overwrite(whole);
  setTimeOfChange(1'000'000);
  EXPECT_EQ(read(), EIO);
  setTimeOfChange(1'000'001);
  EXPECT_EQ(paths().size(), 60U);
}

TEST_F(MetadataStoresFile, AChangeTriesADamagedFileAnew) {
  createMany();
  const std::string whole = bytes();
  overwrite(std::string(whole.size(), '\x5A'));
  setTimeOfChange(1'000'000);
  EXPECT_EQ(read(), EIO);
  overwrite(whole);
  setTimeOfChange(1'000'000);
  EXPECT_EQ(create("/srv/new"), 0);
  EXPECT_EQ(paths().size(), 61U);
}

TEST_F(MetadataStoresFile, UnopenablePathReturnsErrno) {
  std::filesystem::create_directories(path_);
  EXPECT_EQ(read(), EISDIR);
  EXPECT_EQ(create("/srv/a"), EISDIR);
  std::filesystem::remove_all(folder_.path("state"));
  writeWholeFile(folder_.path("state"), "a file");
  EXPECT_EQ(read(), ENOTDIR);
  EXPECT_EQ(create("/srv/a"), ENOTDIR);
}

TEST_F(MetadataStoresFile, ReadStoresStayAvailableDuringForeignLock) {
  EXPECT_EQ(create("/srv/a"), 0);
  EXPECT_EQ(paths().size(), 1U);
  SqliteConnection other(path_);
  other.execute("BEGIN EXCLUSIVE");
  EXPECT_EQ(paths().size(), 1U);
  EXPECT_EQ(create("/srv/b"), EBUSY);
  other.execute("ROLLBACK");
  EXPECT_EQ(create("/srv/b"), 0);
}

TEST_F(MetadataStoresFile, ALockThatStaysIsWaitedForOnce) {
  EXPECT_EQ(create("/srv/a"), 0);
  reopen();
  SqliteConnection other(path_);
  other.execute("BEGIN EXCLUSIVE");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(read(), EBUSY);
  EXPECT_GE(std::chrono::steady_clock::now() - start, kPatience);
  for (int lookups = 0; lookups < 200; ++lookups) EXPECT_EQ(read(), EBUSY);
  // Far from 200 times the patience.
  EXPECT_LT(std::chrono::steady_clock::now() - start, kPatience * 20);
  other.execute("ROLLBACK");
  EXPECT_EQ(paths(), (Paths{"/srv/a"}));
}

TEST_F(MetadataStoresFile, FaultIsLoggedOnFirstOccurrence) {
  EXPECT_EQ(create("/srv/a"), 0);
  const std::string whole = bytes();
  overwrite(std::string(5000, 'x'));
  for (int lookups = 0; lookups < 5; ++lookups) EXPECT_EQ(read(), EIO);
  ASSERT_EQ(logger_.lines().size(), 1U);
  EXPECT_EQ(logger_.lines().at(0).priority, kLogError);
  EXPECT_THAT(logger_.lines().at(0).text,
              AllOf(StartsWith("paddock_sharing: metadata store database "), HasSubstr(path_)));
  overwrite(whole);
  EXPECT_EQ(paths().size(), 1U);
  overwrite(std::string(5000, 'x'));
  EXPECT_EQ(read(), EIO);
  EXPECT_EQ(logger_.lines().size(), 2U);
}

TEST_F(MetadataStoresFile, NoTransactionStaysOpenBetweenCalls) {
  EXPECT_EQ(create("/srv/a"), 0);
  EXPECT_EQ(create("/srv/a"), EEXIST);
  EXPECT_EQ(stores_->setStoreAttributes("/srv/b", {}), ENOENT);
  EXPECT_EQ(paths().size(), 1U);
  SqliteConnection other(path_);
  other.execute("BEGIN EXCLUSIVE");
  other.execute("ROLLBACK");
}

TEST_F(MetadataStoresFile, SeveralThreadsAndTwoConnectionsShareTheFile) {
  LinuxMetadataStores other({.path = path_, .patience = std::chrono::seconds(20)});
  LinuxMetadataStores one({.path = path_, .patience = std::chrono::seconds(20)});
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 6; ++thread)
    threads.emplace_back([&, thread] {
      LinuxMetadataStores& stores = thread % 2 == 0 ? one : other;
      for (int i = 0; i < 5; ++i) {
        const std::string path = "/" + std::to_string(thread) + "/" + std::to_string(i);
        EXPECT_EQ(stores.createStore(path, {}), 0);
        std::shared_ptr<const StorePaths> copy;
        EXPECT_EQ(stores.copyStorePaths(copy), 0);
        EXPECT_TRUE(copy->contains(path)) << path;
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(paths().size(), 30U);
}

// With a clock the file is not checked in each call.
class MetadataStoresClock : public MetadataStoresFile {
 protected:
  MetadataStoresClock() {
    LinuxMetadataStoresOptions clocked = options();
    clocked.clock = &clock_;
    stores_ = std::make_unique<LinuxMetadataStores>(clocked);
  }
  LinuxMetadataStores other_{options()};
  FakeClock clock_;
};

TEST_F(MetadataStoresClock, ForeignChangesAreSeenAfterTenMilliseconds) {
  EXPECT_EQ(other_.createStore("/srv/a", {}), 0);
  EXPECT_EQ(paths(), (Paths{"/srv/a"}));
  EXPECT_EQ(other_.createStore("/srv/b", {}), 0);
  clock_.advance(milliseconds(9));
  EXPECT_EQ(paths(), (Paths{"/srv/a"}));
  clock_.advance(milliseconds(1));
  EXPECT_EQ(paths(), (Paths{"/srv/a", "/srv/b"}));
  EXPECT_EQ(other_.createStore("/srv/c", {}), 0);
  EXPECT_EQ(paths().size(), 2U) << "the ten milliseconds begin with each look";
  clock_.advance(milliseconds(10));
  EXPECT_EQ(paths().size(), 3U);
}

TEST_F(MetadataStoresClock, OwnChangeRevealsItselfAndOthersAtOnce) {
  EXPECT_EQ(paths(), Paths());
  EXPECT_EQ(create("/srv/a"), 0);
  EXPECT_EQ(paths(), (Paths{"/srv/a"}));
  EXPECT_EQ(other_.createStore("/srv/b", {}), 0);
  EXPECT_EQ(stores_->setStoreAttributes("/srv/a", {{"x", "1"}}), 0);
  Dictionary attributes;
  EXPECT_EQ(stores_->copyStoreAttributes("/srv/a", attributes), 0);
  EXPECT_EQ(attributes.size(), 2U);
  EXPECT_EQ(paths(), (Paths{"/srv/a", "/srv/b"}));
}

TEST_F(MetadataStoresClock, FailedChangeRereadsFile) {
  EXPECT_EQ(other_.createStore("/srv/a", {}), 0);
  EXPECT_EQ(paths().size(), 1U);
  EXPECT_EQ(other_.createStore("/srv/b", {}), 0);
  EXPECT_EQ(create("/srv/b"), EEXIST);
  EXPECT_EQ(paths().size(), 2U);
}

TEST_F(MetadataStoresClock, FailuresAreNotTrusted) {
  EXPECT_EQ(other_.createStore("/srv/a", {}), 0);
  const std::string whole = bytes();
  overwrite(std::string(whole.size(), 'x'));
  EXPECT_EQ(read(), EIO);
  overwrite(whole);
  EXPECT_EQ(paths(), (Paths{"/srv/a"}));
}

TEST_F(MetadataStoresFile, ManyLookupsReadManyStoresOnce) {
  EXPECT_EQ(create("/srv/first"), 0);
  SqliteConnection(path_).execute(
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 10000) "
      "INSERT INTO stores SELECT '/srv/' || i, '{\"searchLevel\":\"readWrite\"}' FROM n");
  EXPECT_EQ(read(), 0);
  const auto first = copy_;
  EXPECT_EQ(first->all().size(), 10'001U);
  for (int i = 1; i <= 10'000; ++i) {
    Dictionary attributes;
    EXPECT_EQ(stores_->copyStoreAttributes("/srv/" + std::to_string(i), attributes), 0);
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(copy_, first);
  }
}

}  // namespace
}  // namespace paddock
