// What makes a file a database of ours: its marks, its schema, its settings.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/database/sqlite.h"

namespace paddock {

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

}  // namespace paddock
