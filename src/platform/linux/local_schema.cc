#include "platform/linux/local_schema.h"

#include <cerrno>

#include "platform/directory.h"
#include "platform/linux/case_fold.h"
#include "platform/linux/sqlite_file.h"

namespace paddock {

namespace {

constexpr const char* kVersion1 = R"sql(
CREATE TABLE meta(
  key TEXT PRIMARY KEY,
  value TEXT NOT NULL
) WITHOUT ROWID;
-- Tells this directory from every other one.
INSERT INTO meta(key, value) VALUES('identity', hex(randomblob(16)));

-- Numbers are given in the order of creation and never given again.
CREATE TABLE records(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  type TEXT NOT NULL
);
CREATE INDEX records_by_type ON records(type);

CREATE TABLE attributes(
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL UNIQUE
);
INSERT INTO attributes(id, name) VALUES(1, 'dsAttrTypeStandard:RecordName');

-- What the records hold. position: the attribute's place in its record (RecordName has 0);
-- ordinal: the value's place in the attribute.
CREATE TABLE vals(
  record INTEGER NOT NULL REFERENCES records(id) ON DELETE CASCADE,
  position INTEGER NOT NULL,
  ordinal INTEGER NOT NULL,
  attribute INTEGER NOT NULL REFERENCES attributes(id),
  value TEXT NOT NULL,
  PRIMARY KEY(record, position, ordinal)
) WITHOUT ROWID;

-- The index of case-folded values, of every attribute but RecordName.
CREATE TABLE matches(
  attribute INTEGER NOT NULL,
  folded TEXT NOT NULL,
  record INTEGER NOT NULL,
  PRIMARY KEY(attribute, folded, record)
) WITHOUT ROWID;

-- The case-folded names of the records, each once per type.
CREATE TABLE names(
  type TEXT NOT NULL,
  folded TEXT NOT NULL,
  record INTEGER NOT NULL,
  PRIMARY KEY(type, folded)
) WITHOUT ROWID;

-- crypt(5) hashes.
CREATE TABLE passwords(
  record INTEGER PRIMARY KEY REFERENCES records(id) ON DELETE CASCADE,
  hash TEXT NOT NULL
);
)sql";

std::int64_t versionOf(SqliteConnection& connection) {
  return connection.queryInteger("PRAGMA user_version");
}

void requireOurs(SqliteConnection& connection) {
  // One state of the file: another process may be making the directory in it.
  const SqliteTransaction transaction(connection, SqliteTransaction::Kind::read);
  const std::int64_t application = connection.queryInteger("PRAGMA application_id");
  const std::int64_t version = versionOf(connection);
  const bool fresh = application == 0 && version == 0 &&
                     connection.queryInteger("SELECT count(*) FROM sqlite_schema") == 0;
  if (!fresh && application != kDirectoryApplicationId)
    throw DirectoryError(EIO, connection.path() + " is not a directory database");
  const auto known = static_cast<std::int64_t>(directoryMigrations().size());
  if (version > known)
    throw DirectoryError(ENOTSUP, "directory database " + connection.path() + " has the format " +
                                      std::to_string(version) + "; the newest known here is " +
                                      std::to_string(known));
}

void configure(SqliteConnection& connection) {
  // A rollback journal, not a write-ahead log: between transactions the one file is the whole
  // directory, so that it can be moved, removed and restored without a log that belongs to
  // another file being applied to it. Truncating and "full" make a commit durable.
  connection.execute("PRAGMA journal_mode = TRUNCATE");
  connection.execute("PRAGMA synchronous = FULL");
  connection.execute("PRAGMA foreign_keys = ON");
  connection.execute("PRAGMA trusted_schema = OFF");
  connection.execute("PRAGMA cell_size_check = ON");
  connection.execute("PRAGMA temp_store = MEMORY");
}

bool isFoldedAsHere(SqliteConnection& connection) {
  SqliteStatement query = connection.statement("SELECT value FROM meta WHERE key = 'folding'");
  return query.step() && query.text(0) == caseFoldVersion();
}

void foldAgain(SqliteConnection& connection) {
  SqliteStatement rows = connection.statement(
      "SELECT v.record, r.type, v.attribute, v.value FROM vals v JOIN records r ON r.id = v.record "
      "ORDER BY v.record, v.position, v.ordinal");
  // Names that have come to be equal: the earlier record keeps the name, the later one stays
  // reachable by its other values.
  SqliteStatement name =
      connection.statement("INSERT OR IGNORE INTO names(type, folded, record) VALUES(?1, ?2, ?3)");
  SqliteStatement match = connection.statement(
      "INSERT OR IGNORE INTO matches(attribute, folded, record) VALUES(?1, ?2, ?3)");
  while (rows.step()) {
    const std::string folded = caseFold(rows.text(3));
    if (rows.integer(2) == kRecordNameNumber)
      name.bind(1, rows.text(1)).bind(2, folded).bind(3, rows.integer(0)).run();
    else
      match.bind(1, rows.integer(2)).bind(2, folded).bind(3, rows.integer(0)).run();
  }
}

// The folded values follow the Unicode version of the program that wrote them.
void followFolding(SqliteConnection& connection) {
  if (isFoldedAsHere(connection)) return;
  SqliteTransaction transaction(connection, SqliteTransaction::Kind::write);
  connection.execute("DELETE FROM matches");
  connection.execute("DELETE FROM names");
  foldAgain(connection);
  connection.statement("INSERT OR REPLACE INTO meta(key, value) VALUES('folding', ?1)")
      .bind(1, caseFoldVersion())
      .run();
  transaction.commit();
}

}  // namespace

const std::vector<std::string>& directoryMigrations() {
  static const std::vector<std::string> migrations = {kVersion1};
  return migrations;
}

void migrateDirectory(SqliteConnection& connection, const std::vector<std::string>& migrations) {
  const auto newest = static_cast<std::int64_t>(migrations.size());
  if (versionOf(connection) >= newest) return;
  SqliteTransaction transaction(connection, SqliteTransaction::Kind::write);
  // Another process may have been faster.
  for (std::int64_t version = versionOf(connection); version < newest; ++version)
    connection.execute(migrations[static_cast<std::size_t>(version)]);
  connection.execute("PRAGMA application_id = " + std::to_string(kDirectoryApplicationId));
  connection.execute("PRAGMA user_version = " + std::to_string(newest));
  transaction.commit();
}

std::unique_ptr<SqliteConnection> openDirectoryDatabase(const std::string& path,
                                                        std::chrono::milliseconds timeout) {
  createDatabaseFile("directory database", path);
  auto connection = std::make_unique<SqliteConnection>(path);
  connection->setBusyTimeout(timeout);
  requireOurs(*connection);
  configure(*connection);
  migrateDirectory(*connection, directoryMigrations());
  followFolding(*connection);
  return connection;
}

}  // namespace paddock
