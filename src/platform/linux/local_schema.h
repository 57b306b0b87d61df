// The file format of the local directory node: docs/formats/directory.md.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/sqlite.h"

namespace paddock {

// In the header of every directory database ("PdDk").
inline constexpr std::int64_t kDirectoryApplicationId = 0x5064446B;

// RecordName's number in the table of attribute names, fixed by the schema.
inline constexpr std::int64_t kRecordNameNumber = 1;

// Opens the database at `path`; creates it (mode 0600) and the folder it stands in (mode 0700)
// when they are missing, and brings an older schema up to date. A file that is something else
// (EIO) or has a newer schema (ENOTSUP) is refused and left as it is. Locks are waited for until
// `timeout` has passed; it stays the connection's busy timeout.
std::unique_ptr<SqliteConnection> openDirectoryDatabase(const std::string& path,
                                                        std::chrono::milliseconds timeout);

// The steps from each schema version to the next, the first from an empty file.
const std::vector<std::string>& directoryMigrations();

// Runs the steps that the database lacks, all in one transaction.
void migrateDirectory(SqliteConnection& connection, const std::vector<std::string>& migrations);

}  // namespace paddock
