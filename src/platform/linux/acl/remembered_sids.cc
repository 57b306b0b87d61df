#include "platform/linux/acl/remembered_sids.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <optional>

#include "base/system_call.h"
#include "platform/directory.h"
#include "platform/linux/acl/sid_forms.h"
#include "platform/linux/database/sqlite_file.h"

namespace paddock {

namespace {

constexpr std::int64_t kApplicationId = 0x50645369;  // "PdSi"
constexpr std::int64_t kVersion = 1;
constexpr std::chrono::milliseconds kPatience{500};

constexpr const char* kSchema = R"sql(
-- number: the order in which the SIDs came.
CREATE TABLE remembered(
  number INTEGER PRIMARY KEY AUTOINCREMENT,
  guid TEXT NOT NULL UNIQUE,
  sid TEXT NOT NULL
);
)sql";

void configure(SqliteConnection& connection) {
  // A rollback journal, so that the one file can be removed or restored by itself. What a power cut
  // takes is remembered again, so nothing waits for the disk.
  connection.execute("PRAGMA journal_mode = TRUNCATE");
  connection.execute("PRAGMA synchronous = OFF");
  connection.execute("PRAGMA trusted_schema = OFF");
  connection.execute("PRAGMA cell_size_check = ON");
}

void makeTable(SqliteConnection& connection) {
  SqliteTransaction transaction(connection, SqliteTransaction::Kind::write);
  // Another process may have been faster.
  if (connection.queryInteger("PRAGMA user_version") == 0) {
    connection.execute(kSchema);
    connection.execute("PRAGMA application_id = " + std::to_string(kApplicationId));
    connection.execute("PRAGMA user_version = " + std::to_string(kVersion));
  }
  transaction.commit();
}

// Of a file that another process has just made, and in which there is no table yet.
bool isFresh(SqliteConnection& connection) {
  return connection.queryInteger("PRAGMA user_version") == 0 &&
         connection.queryInteger("SELECT count(*) FROM sqlite_schema") == 0;
}

void requireOurs(SqliteConnection& connection) {
  if (connection.queryInteger("PRAGMA application_id") != kApplicationId ||
      connection.queryInteger("PRAGMA user_version") != kVersion)
    throw DirectoryError(ENOTSUP, connection.path() + " does not hold remembered SIDs");
}

std::optional<nt_acl::Sid> stored(SqliteConnection& connection, const Guid& guid) {
  const std::string key = guidText(guid);
  SqliteStatement query = connection.statement("SELECT sid FROM remembered WHERE guid = ?1");
  if (!query.bind(1, key).step()) return std::nullopt;
  auto sid = nt_acl::parseSid(query.text(0));
  if (!sid || nt_acl::foreignGuid(*sid) != guid)
    throw DirectoryError(EIO, connection.path() + " holds another SID under " + key);
  return sid;
}

}  // namespace

RememberedSids::RememberedSids(std::string path, std::int64_t capacity)
    : path_(std::move(path)), capacity_(capacity) {}

SqliteConnection* RememberedSids::opened() {
  if (connection_ && connection_->fileHasMoved()) connection_.reset();
  if (connection_) return connection_.get();
  struct stat status {};
  const int error = errnoOf([&] { return ::stat(path_.c_str(), &status); });
  if (error == ENOENT) return nullptr;
  if (error != 0) throw DirectoryError(error, path_ + " cannot be opened");
  auto connection = std::make_unique<SqliteConnection>(path_);
  connection->setBusyTimeout(kPatience);
  if (isFresh(*connection)) return nullptr;
  requireOurs(*connection);
  configure(*connection);
  connection_ = std::move(connection);
  return connection_.get();
}

SqliteConnection& RememberedSids::openedForWriting() {
  if (SqliteConnection* connection = opened()) return *connection;
  createDatabaseFile("remembered SIDs", path_);
  SqliteConnection connection(path_);
  connection.setBusyTimeout(kPatience);
  if (isFresh(connection)) makeTable(connection);
  if (SqliteConnection* made = opened()) return *made;
  throw DirectoryError(EBUSY, path_ + " is being replaced");
}

void RememberedSids::setAside() {
  connection_.reset();
  if (std::rename(path_.c_str(), (path_ + ".damaged").c_str()) == 0)
    ::unlink((path_ + "-journal").c_str());
}

void RememberedSids::insert(const std::string& guid, const std::string& sid) {
  SqliteTransaction transaction(*connection_, SqliteTransaction::Kind::write);
  connection_->statement("INSERT OR IGNORE INTO remembered(guid, sid) VALUES(?1, ?2)")
      .bind(1, guid)
      .bind(2, sid)
      .run();
  connection_->statement("DELETE FROM remembered WHERE number <= ?1")
      .bind(1, connection_->lastInsertedRow() - capacity_)
      .run();
  transaction.commit();
}

int RememberedSids::rememberOnce(const nt_acl::Sid& sid) {
  const Guid guid = nt_acl::foreignGuid(sid);
  const auto known = stored(openedForWriting(), guid);
  if (known) return *known == sid ? 0 : EEXIST;
  insert(guidText(guid), nt_acl::sidText(sid));
  return 0;
}

int RememberedSids::remember(const nt_acl::Sid& sid) {
  const MutexLock lock(mutex_);
  // Once more, in a new file, when this one is damaged.
  for (bool again = true;; again = false) {
    try {
      return rememberOnce(sid);
    } catch (const DirectoryError& error) {
      const Status status = error.status().value_or(EIO);
      if (status != EIO || !again) return status;
      setAside();
    }
  }
}

int RememberedSids::find(const Guid& guid, nt_acl::Sid& sid) {
  const MutexLock lock(mutex_);
  try {
    SqliteConnection* connection = opened();
    const auto known = connection != nullptr ? stored(*connection, guid) : std::nullopt;
    if (!known) return ENOENT;
    sid = *known;
    return 0;
  } catch (const DirectoryError& error) {
    const Status status = error.status().value_or(EIO);
    return status == EIO ? ENOENT : status;
  }
}

}  // namespace paddock
