#include "platform/linux/database/sqlite_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "base/file_access.h"
#include "platform/directory.h"

namespace paddock {

namespace {

int createFolderOf(const std::string& path) {
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  if (folder.empty()) return 0;
  std::error_code error;
  if (folder.has_parent_path()) std::filesystem::create_directories(folder.parent_path(), error);
  if (error) return error.value();
  return ::mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST ? 0 : errno;
}

// The file appears at its path closed: closing a descriptor of a database in use would drop
// every lock that this process holds on it.
int createFile(const std::string& path) {
  std::string temporary = path + ".XXXXXX";
  FileDescriptor descriptor(::mkostemp(temporary.data(), O_CLOEXEC));  // mode 0600
  if (!descriptor) return errno;
  descriptor.reset();
  const int error = ::link(temporary.c_str(), path.c_str()) == 0 ? 0 : errno;
  ::unlink(temporary.c_str());
  return error == EEXIST ? 0 : error;
}

bool isMissing(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) != 0 && errno == ENOENT;
}

// How often a file that is replaced while it is being opened is tried.
constexpr int kOpenAttempts = 5;

}  // namespace

void createDatabaseFile(const std::string& kind, const std::string& path) {
  if (!isMissing(path)) return;
  int error = createFolderOf(path);
  if (error == 0) error = createFile(path);
  if (error != 0)
    throw DirectoryError(error, kind + " " + path + " cannot be created: " +
                                    std::error_code(error, std::system_category()).message());
}

std::unique_ptr<SqliteConnection> openFileInPlace(const std::string& path, const SqliteOpener& open,
                                                  SqliteFileIdentity& identity) {
  for (int attempt = 1;; ++attempt) {
    auto connection = open();
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && !connection->fileHasMoved()) {
      identity = {status.st_dev, status.st_ino};
      return connection;
    }
    if (attempt == kOpenAttempts)
      throw DirectoryError(EBUSY, connection->name() + " is being replaced");
  }
}

namespace {

std::int64_t versionOf(SqliteConnection& connection) {
  return connection.queryInteger("PRAGMA user_version");
}

void requireSound(SqliteConnection& connection, const SqliteFormat& format) {
  // One state of the file: another process may be making the database in it.
  const SqliteTransaction transaction(connection, SqliteTransaction::Kind::read);
  const std::int64_t application = connection.queryInteger("PRAGMA application_id");
  const std::int64_t version = versionOf(connection);
  const bool fresh = application == 0 && version == 0 &&
                     connection.queryInteger("SELECT count(*) FROM sqlite_schema") == 0;
  if (!fresh && application != format.applicationId)
    throw DirectoryError(EIO, connection.path() + " is not a " + format.name);
  const auto known = static_cast<std::int64_t>(format.migrations.size());
  if (version > known)
    throw DirectoryError(ENOTSUP, connection.name() + " has the format " + std::to_string(version) +
                                      "; the newest known here is " + std::to_string(known));
  if (connection.isCutShort()) throw DirectoryError(EIO, connection.name() + " is cut short");
}

void configure(SqliteConnection& connection) {
  // A rollback journal, not a write-ahead log: between transactions the one file is the whole
  // database, so that it can be moved, removed and restored without a log that belongs to
  // another file being applied to it. Truncating and "full" make a commit durable.
  connection.execute("PRAGMA journal_mode = TRUNCATE");
  connection.execute("PRAGMA synchronous = FULL");
  connection.execute("PRAGMA foreign_keys = ON");
  connection.execute("PRAGMA trusted_schema = OFF");
  connection.execute("PRAGMA cell_size_check = ON");
  connection.execute("PRAGMA temp_store = MEMORY");
}

}  // namespace

void migrateSqliteFile(SqliteConnection& connection, const SqliteFormat& format) {
  const auto newest = static_cast<std::int64_t>(format.migrations.size());
  if (versionOf(connection) >= newest) return;
  SqliteTransaction transaction(connection, SqliteTransaction::Kind::write);
  // Another process may have been faster.
  for (std::int64_t version = versionOf(connection); version < newest; ++version)
    connection.execute(format.migrations[static_cast<std::size_t>(version)]);
  connection.execute("PRAGMA application_id = " + std::to_string(format.applicationId));
  connection.execute("PRAGMA user_version = " + std::to_string(newest));
  transaction.commit();
}

std::unique_ptr<SqliteConnection> openSqliteFile(const SqliteFormat& format,
                                                 const std::string& path,
                                                 std::chrono::milliseconds timeout) {
  createDatabaseFile(format.name, path);
  auto connection = std::make_unique<SqliteConnection>(path, format.name);
  connection->setBusyTimeout(timeout);
  requireSound(*connection, format);
  configure(*connection);
  migrateSqliteFile(*connection, format);
  return connection;
}

namespace {

constexpr std::array kSoundErrors = {ENOENT, EACCES, EINVAL, EEXIST, EBUSY, ENOSPC, ENOMEM};

}  // namespace

std::chrono::milliseconds LockPatience::timeout() const {
  return Clock::now() < lockedUntil_ ? std::chrono::milliseconds::zero() : patience_;
}

void LockPatience::waitedInVain() { lockedUntil_ = Clock::now() + patience_; }

bool isSoundSqliteError(int status) {
  return std::find(kSoundErrors.begin(), kSoundErrors.end(), status) != kSoundErrors.end();
}

}  // namespace paddock
