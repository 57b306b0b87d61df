// The file format of the local directory node: docs/formats/directory.md.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "platform/linux/database/sqlite_file.h"

namespace paddock {

// RecordName's number in the table of attribute names, fixed by the schema.
inline constexpr std::int64_t kRecordNameNumber = 1;

const SqliteFormat& directoryFormat();

// Opens the database at `path` as openSqliteFile does, with its folded values up to date.
std::unique_ptr<SqliteConnection> openDirectoryDatabase(const std::string& path,
                                                        std::chrono::milliseconds timeout);

}  // namespace paddock
