#include "platform/linux/database/local_schema.h"

#include "platform/linux/process/case_fold.h"

namespace paddock {

namespace {

constexpr std::int64_t kApplicationId = 0x5064446B;  // "PdDk"

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

const SqliteFormat& directoryFormat() {
  static const SqliteFormat format{"directory database", kApplicationId, {kVersion1}};
  return format;
}

std::unique_ptr<SqliteConnection> openDirectoryDatabase(const std::string& path,
                                                        std::chrono::milliseconds timeout) {
  auto connection = openSqliteFile(directoryFormat(), path, timeout);
  followFolding(*connection);
  return connection;
}

}  // namespace paddock
