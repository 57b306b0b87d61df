// Locations of files, and the contents of regular ones.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <utility>

#include "base/file_access.h"
#include "platform/linux/files/new_file.h"
#include "platform/text_file.h"

namespace paddock {

// A place in a folder, whose last component is no link.
struct FilePlace {
  FileDescriptor folder;
  std::string name;
  std::optional<struct stat> present;
};

// Each returns 0 or an errno, unless it says otherwise.

// ENOENT or EINVAL for an invalid path.
int pathError(const std::string& path);
// 0 for a regular file.
int kindError(mode_t mode);
// "a/b" as folder "a" and name "b"; a slash at the end stays with the name.
std::pair<std::string, std::string> splitPath(const std::string& path);
int openFolder(int base, const std::string& path, FileDescriptor& folder);
// Follows links at the end of `path` to the place that they lead to, whether something is there
// or not; the folder's descriptor stays on it whatever happens to the names above.
int findPlace(const std::string& path, FilePlace& place);

// Reads a regular file and nothing else: a pipe or a device is not even opened. `status` is what
// it was before it was read.
int readRegular(const std::string& path, std::string& contents, struct stat& status);
// The same of one that is open.
int readRegular(const FileDescriptor& file, const struct stat& status, std::string& contents);

FileOwnership ownershipOf(const struct stat& status);
FileIdentity identityOf(const struct stat& status);

}  // namespace paddock
