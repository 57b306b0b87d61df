// Which folder each share point stood for when it was made, so that another one in its place is
// noticed: by the number of the inode, which outlives restarts and new mounts of the volume, and by
// the type of its file system. The number of the device is not looked at: it may be another one
// after each mount.
#pragma once

#include <string>

namespace paddock {

enum class SharedFolder {
  unknown,  // nothing is remembered of the two, or nothing is there now, or it cannot be told
  same,
  other,
};

// Paths are those of share points, links followed as path_use.h says of reading; names those of
// their records. What is remembered of a path under another name counts as nothing. Errors are
// errno values; any thread may call.
class SharedFolders {
 public:
  virtual ~SharedFolders() = default;
  // Remembers the folder that is at the path now, in the place of what was remembered of the path.
  // 0 also where no folder is, or where its file system gives numbers that do not last (FUSE, FAT
  // and the like): nothing is remembered of the path then. Otherwise everything is as it was.
  virtual int remember(const std::string& path, const std::string& name) = 0;
  virtual int forget(const std::string& path) = 0;
  virtual SharedFolder compare(const std::string& path, const std::string& name) = 0;
};

}  // namespace paddock
