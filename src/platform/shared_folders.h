// The folder of each share point at its creation, so that a replacement is detected: by the number
// of the inode, which outlives restarts and new mounts of the volume, and by the type of its file
// system. The device number is ignored: it may change with each mount.
#pragma once

#include <string>

namespace paddock {

enum class SharedFolder {
  unknown,      // not recorded
  unreachable,  // recorded, and no folder is there now, or which one is not determinable
  same,
  other,
};

// Paths are those of share points, links followed as path_use.h specifies for reading; names those
// of their records. A record of a path under another name is ignored. Errors are errno values.
// Thread-safe.
class SharedFolders {
 public:
  virtual ~SharedFolders() = default;
  // Records the folder that is at the path now, replacing an earlier record of the path. Returns 0
  // also where there is no folder, or where its file system has no persistent inode numbers (FUSE,
  // FAT and the like): the path then has no record. Otherwise nothing is changed.
  virtual int remember(const std::string& path, const std::string& name) = 0;
  virtual int forget(const std::string& path) = 0;
  virtual SharedFolder compare(const std::string& path, const std::string& name) = 0;
};

}  // namespace paddock
