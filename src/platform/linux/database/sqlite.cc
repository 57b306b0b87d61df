#include "platform/linux/database/sqlite.h"

#include <sqlite3.h>

#include <algorithm>
#include <cerrno>
#include <tuple>

#include "platform/directory.h"

namespace paddock {

namespace {

int statusOf(int code, int systemError) {
  switch (code & 0xFF) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_PROTOCOL:
      return EBUSY;
    case SQLITE_FULL:
      return ENOSPC;
    case SQLITE_NOMEM:
      return ENOMEM;
    case SQLITE_READONLY:
      return code == SQLITE_READONLY_DBMOVED ? EIO : EROFS;
    case SQLITE_PERM:
    case SQLITE_AUTH:
      return EACCES;
    case SQLITE_TOOBIG:
      return E2BIG;
    case SQLITE_IOERR:
      if (code == SQLITE_IOERR_NOMEM) return ENOMEM;
      return systemError == ENOSPC || systemError == EDQUOT || systemError == EFBIG ? systemError
                                                                                    : EIO;
    case SQLITE_CANTOPEN:
      return systemError != 0 ? systemError : EIO;
    default:
      return EIO;
  }
}

}  // namespace

SqliteConnection::SqliteConnection(std::string path, std::string kind)
    : path_(std::move(path)), kind_(std::move(kind)) {
  // One thread at a time uses the connection, so SQLite need not lock it again.
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
  const int code = sqlite3_open_v2(path_.c_str(), &database_, flags, nullptr);
  if (code == SQLITE_OK) return;
  try {
    fail(code);
  } catch (...) {
    sqlite3_close(database_);
    throw;
  }
}

SqliteConnection::~SqliteConnection() {
  for (const auto& [sql, entry] : statements_) sqlite3_finalize(entry.first);
  sqlite3_close(database_);
}

void SqliteConnection::setBusyTimeout(std::chrono::milliseconds timeout) {
  sqlite3_busy_timeout(database_, static_cast<int>(std::max<std::int64_t>(timeout.count(), 0)));
}

void SqliteConnection::execute(const std::string& sql) {
  const int code = sqlite3_exec(database_, sql.c_str(), nullptr, nullptr, nullptr);
  if (code != SQLITE_OK) fail(code);
}

std::int64_t SqliteConnection::queryInteger(const std::string& sql) {
  sqlite3_stmt* handle = nullptr;
  int code = sqlite3_prepare_v2(database_, sql.c_str(), -1, &handle, nullptr);
  if (code != SQLITE_OK) fail(code);
  code = sqlite3_step(handle);
  const std::int64_t value = code == SQLITE_ROW ? sqlite3_column_int64(handle, 0) : 0;
  const int closing = sqlite3_finalize(handle);
  if (closing != SQLITE_OK) fail(closing);
  return value;
}

SqliteStatement SqliteConnection::statement(const char* sql) {
  auto& [handle, inUse] = statements_[sql];
  if (handle == nullptr) {
    const int code =
        sqlite3_prepare_v3(database_, sql, -1, SQLITE_PREPARE_PERSISTENT, &handle, nullptr);
    if (code != SQLITE_OK) fail(code);
  }
  return {*this, handle, inUse};
}

std::int64_t SqliteConnection::lastInsertedRow() const {
  return sqlite3_last_insert_rowid(database_);
}

bool SqliteConnection::fileHasMoved() {
  int moved = 0;
  const int code = sqlite3_file_control(database_, "main", SQLITE_FCNTL_HAS_MOVED, &moved);
  return code != SQLITE_OK || moved != 0;
}

bool SqliteConnection::inTransaction() const { return sqlite3_get_autocommit(database_) == 0; }

template <std::size_t Count>
std::array<unsigned char, Count> SqliteConnection::bytes(std::int64_t offset) {
  sqlite3_file* file = nullptr;
  int code = sqlite3_file_control(database_, "main", SQLITE_FCNTL_FILE_POINTER, &file);
  if (code != SQLITE_OK) fail(code);
  std::array<unsigned char, Count> read{};
  code = file->pMethods->xRead(file, read.data(), static_cast<int>(Count), offset);
  if (code != SQLITE_OK && code != SQLITE_IOERR_SHORT_READ) fail(code);
  return read;
}

SqliteConnection::ChangeMark SqliteConnection::changeMark() {
  // The format's versions, two numbers that never change, the change counter, the number of pages.
  return bytes<std::tuple_size_v<ChangeMark>>(18);
}

bool SqliteConnection::isCutShort() {
  // https://www.sqlite.org/fileformat.html: the page's size, where 1 stands for 65536, and, at
  // offset 28, the number of pages.
  const auto header = bytes<16>(16);
  const std::int64_t pageSize = header[0] << 8U | header[1];
  std::int64_t pages = 0;
  for (std::size_t i = 12; i < 16; ++i) pages = pages << 8U | header[i];
  sqlite3_file* file = nullptr;
  sqlite3_file_control(database_, "main", SQLITE_FCNTL_FILE_POINTER, &file);
  sqlite3_int64 size = 0;
  const int code = file->pMethods->xFileSize(file, &size);
  if (code != SQLITE_OK) fail(code);
  return size < pages * (pageSize == 1 ? 65536 : pageSize);
}

void SqliteConnection::fail(int code) const {
  if (database_ == nullptr) throw DirectoryError(ENOMEM, name());
  const int status = statusOf(code, sqlite3_system_errno(database_));
  throw DirectoryError(status, name() + ": " + sqlite3_errmsg(database_));
}

SqliteStatement::SqliteStatement(SqliteConnection& connection, sqlite3_stmt* handle, bool& inUse)
    : connection_(connection), handle_(handle), inUse_(inUse) {
  if (inUse_) throw std::logic_error("an SQL statement is used within itself");
  inUse_ = true;
}

SqliteStatement::~SqliteStatement() {
  sqlite3_reset(handle_);
  sqlite3_clear_bindings(handle_);
  inUse_ = false;
}

SqliteStatement& SqliteStatement::bind(int parameter, std::int64_t value) {
  const int code = sqlite3_bind_int64(handle_, parameter, value);
  if (code != SQLITE_OK) connection_.fail(code);
  return *this;
}

SqliteStatement& SqliteStatement::bind(int parameter, std::string_view text) {
  // A null pointer would bind NULL.
  const char* start = text.data() == nullptr ? "" : text.data();
  const int code =
      sqlite3_bind_text64(handle_, parameter, start, text.size(), SQLITE_STATIC, SQLITE_UTF8);
  if (code != SQLITE_OK) connection_.fail(code);
  return *this;
}

bool SqliteStatement::step() {
  const int code = sqlite3_step(handle_);
  if (code == SQLITE_ROW) return true;
  if (code != SQLITE_DONE) connection_.fail(code);
  return false;
}

void SqliteStatement::run() {
  while (step()) {
  }
  sqlite3_reset(handle_);
}

std::int64_t SqliteStatement::integer(int column) const {
  return sqlite3_column_int64(handle_, column);
}

std::string_view SqliteStatement::text(int column) const {
  const unsigned char* start = sqlite3_column_text(handle_, column);
  if (start == nullptr) return {};
  return {reinterpret_cast<const char*>(start),
          static_cast<std::size_t>(sqlite3_column_bytes(handle_, column))};
}

SqliteTransaction::SqliteTransaction(SqliteConnection& connection, Kind kind)
    : connection_(connection) {
  connection_.statement(kind == Kind::write ? "BEGIN IMMEDIATE" : "BEGIN").run();
}

SqliteTransaction::~SqliteTransaction() {
  if (!connection_.inTransaction()) return;
  try {
    connection_.statement("ROLLBACK").run();
  } catch (const DirectoryError&) {  // NOLINT(bugprone-empty-catch)
    // The next opening of the file rolls back from its journal; the first error is what counts.
  }
}

void SqliteTransaction::commit() { connection_.statement("COMMIT").run(); }

}  // namespace paddock
