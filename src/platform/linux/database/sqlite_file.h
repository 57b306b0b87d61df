// The file of an SQLite database: creation, and identification of the one at its path.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/database/sqlite.h"

namespace paddock {

// Makes an empty file of mode 0600 at the path unless there is one, and its folder, mode 0700.
// Throws DirectoryError with the errno and a text that starts with `kind` and names the path.
void createDatabaseFile(const std::string& kind, const std::string& path);

// One file, whatever its path.
struct SqliteFileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  friend bool operator==(const SqliteFileIdentity&, const SqliteFileIdentity&) = default;
};

using SqliteOpener = std::function<std::unique_ptr<SqliteConnection>()>;
// Calls `open` until the file that it opened is the one at the path, and returns its identity.
// EBUSY when the file at the path is replaced every time.
std::unique_ptr<SqliteConnection> openFileInPlace(const std::string& path, const SqliteOpener& open,
                                                  SqliteFileIdentity& identity);

// The format of a Paddock database: its marks, its schema, its settings.
struct SqliteFormat {
  const char* name;            // "directory database", as errors call it
  std::int64_t applicationId;  // in the header of every such database
  // The steps from each schema version to the next, the first from an empty file.
  std::vector<std::string> migrations;
};

// Opens the database at `path`; creates it (mode 0600) and the folder it stands in (mode 0700)
// when they are missing, and brings an older schema up to date. A file that is something else or
// shorter than its header says (EIO) and one with a newer schema (ENOTSUP) are refused and left as
// they are. Locks are waited for until `timeout` has passed; it stays the connection's busy
// timeout.
std::unique_ptr<SqliteConnection> openSqliteFile(const SqliteFormat& format,
                                                 const std::string& path,
                                                 std::chrono::milliseconds timeout);

// Runs the steps that the database lacks, all in one transaction.
void migrateSqliteFile(SqliteConnection& connection, const SqliteFormat& format);

// Effects of database errors on later calls.

// Maximum wait for a lock of another program. After a timeout the next calls, for as long again, do
// not wait at all: a database that stays locked costs a request one wait, not one per lookup.
class LockPatience {
 public:
  explicit LockPatience(std::chrono::milliseconds patience) : patience_(patience) {}
  std::chrono::milliseconds timeout() const;
  void waitedInVain();

 private:
  using Clock = std::chrono::steady_clock;
  std::chrono::milliseconds patience_;
  Clock::time_point lockedUntil_;
};

// Whether file and connection remain usable after an error with this status.
bool isSoundSqliteError(int status);

}  // namespace paddock
