// The file of an SQLite database: making it, and telling which one stands at its path.
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>

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
// Calls `open` until the file that it opened is the one at the path, and says which that is. EBUSY
// for a path at which the file is replaced every time.
std::unique_ptr<SqliteConnection> openFileInPlace(const std::string& path, const SqliteOpener& open,
                                                  SqliteFileIdentity& identity);

}  // namespace paddock
