// The mount point and size of a path's volume: the subset of BSD's statfs(2) and getmntinfo(3) used
// here.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace paddock {

struct MountedVolume {
  std::string f_mntonname;    // the directory on which the file system is mounted
  std::string f_mntfromname;  // the mounted device, or HOST:PATH for NFS
  std::string f_fstypename;   // the file system's type as the kernel names it, "ext4"
  friend bool operator==(const MountedVolume&, const MountedVolume&) = default;
};

// How large a volume is, and what its quotas take it for.
struct VolumeStatistics {
  std::string family;         // "ufs", "hfs", or the file system's type as the kernel names it
  std::uint64_t f_bsize = 0;  // the bytes of a block, in which the others are counted
  std::uint64_t f_blocks = 0;
  std::uint64_t f_bavail = 0;  // free for users other than root
  friend bool operator==(const VolumeStatistics&, const VolumeStatistics&) = default;
};

class VolumeInfo {
 public:
  virtual ~VolumeInfo() = default;
  // The volume that holds `path`, its last component followed when it is a link. 0, or an errno
  // with `volume` empty, as statfs(2) says it: ENOENT (of an empty path, too), ENOTDIR, EACCES,
  // ENAMETOOLONG (4096 bytes and more). ".." leads where the kernel goes, and a relative path
  // begins at the working folder. EINVAL for a path with a NUL.
  virtual int statfs(const std::string& path, MountedVolume& volume) = 0;
  // How large that volume is. The same errors, with `statistics` empty. The volume is queried,
  // which may be slow for a remote one.
  virtual int statistics(const std::string& path, VolumeStatistics& statistics) = 0;
  // All mounted volumes in the order of the mount table. 0, or an errno with `volumes` empty.
  virtual int getmntinfo(std::vector<MountedVolume>& volumes) = 0;
};

}  // namespace paddock
