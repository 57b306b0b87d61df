#include "platform/linux/database/sqlite_format.h"

#include <cerrno>

#include "platform/directory.h"
#include "platform/linux/database/sqlite_file.h"

namespace paddock {

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

}  // namespace paddock
