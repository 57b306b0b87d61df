// Volumes from statx(2) and the mount table.
//
// A path's volume is found by its mount's id, not by device number or text, so that volumes
// mounted over one another, subvolumes and overlays are told apart. Nothing is mounted
// for the sake of an answer (no automount), and no file server is asked.
#pragma once

#include <mutex>

#include "platform/linux/mount_table.h"
#include "platform/volume_info.h"

namespace paddock {

// Any thread may call.
class LinuxVolumeInfo : public VolumeInfo {
 public:
  int statfs(const std::string& path, MountedVolume& volume) override;
  int getmntinfo(std::vector<MountedVolume>& volumes) override;

 private:
  std::mutex mutex_;
  KeptMountTable mounts_;
};

}  // namespace paddock
