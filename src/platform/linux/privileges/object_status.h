// The status of a file-system object needed for walking a tree; see statx(2).
#pragma once

#include <sys/stat.h>

#include <compare>
#include <cstdint>
#include <string>

namespace paddock {

// As the file system has it.
struct FileTime {
  std::int64_t seconds = 0;
  std::uint32_t nanoseconds = 0;

  friend auto operator<=>(const FileTime&, const FileTime&) = default;
};

struct ObjectStatus {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint64_t mount = 0;  // 0 where the kernel does not say (before Linux 5.8)
  std::uint64_t bytes = 0;  // allocated
  std::uint32_t owner = 0;
  std::uint32_t group = 0;
  std::uint32_t links = 0;
  mode_t type = 0;          // the S_IFMT bits
  mode_t mode = 0;          // the others
  FileTime modified;        // of a folder: when an entry came, went or got another name
  FileTime changed;         // then too, and when its privileges were set; nobody can set it back
  bool isMountRoot = true;  // true too where the kernel does not say

  bool isFolder() const { return S_ISDIR(type); }
  bool isSameObject(const ObjectStatus& other) const {
    return device == other.device && inode == other.inode;
  }
};

// Of the object `name` in the folder; a link itself, and no automount is set off. What a file
// system asks a server for is what is known of it, so that a server that does not answer is not
// waited for (a user's FUSE that is mounted at the name). 0 or an errno.
int statusOf(int folder, const char* name, ObjectStatus& status);
// Of an open object, as its server has it.
int statusOf(int object, ObjectStatus& status);
// The device and the mount only, which are reported for what is mounted at the name also when the
// rest is not (a user's FUSE), or would block (a server that does not answer).
int placeOf(int folder, const char* name, ObjectStatus& status);
// The same of an open object.
int placeOf(int object, ObjectStatus& status);

// The path of an open object, for messages.
std::string pathOf(int object);
// The same of what has the name in an open folder.
std::string pathOf(int folder, const std::string& name);

}  // namespace paddock
