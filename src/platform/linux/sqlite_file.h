// Making the file of an SQLite database.
#pragma once

#include <string>

namespace paddock {

// Makes an empty file of mode 0600 at the path unless there is one, and its folder, mode 0700.
// Throws DirectoryError with the errno and a text that starts with `kind` and names the path.
void createDatabaseFile(const std::string& kind, const std::string& path);

}  // namespace paddock
