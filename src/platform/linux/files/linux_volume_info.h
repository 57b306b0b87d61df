// Volumes from statx(2) and the mount table.
//
// A path's volume is found by its mount's id, not by device number or text, so that volumes
// mounted over one another, subvolumes and overlays are told apart. Nothing is mounted
// for the sake of an answer (no automount), and no file server is asked but for statistics.
#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/files/mount_table.h"
#include "platform/volume_info.h"

namespace paddock {

// Which types are a family of their own; hfs and hfsplus are always "hfs".
struct VolumeFamilies {
  std::vector<std::string> ufs = {"ext2", "ext3", "ext4", "xfs"};
  bool everyTypeIsUfs = false;
};

// Any thread may call.
class LinuxVolumeInfo : public VolumeInfo {
 public:
  explicit LinuxVolumeInfo(VolumeFamilies families = {}) : families_(std::move(families)) {}

  int statfs(const std::string& path, MountedVolume& volume) override;
  int statistics(const std::string& path, VolumeStatistics& statistics) override;
  int getmntinfo(std::vector<MountedVolume>& volumes) override;

 private:
  std::string familyOf(const std::string& type) const;

  const VolumeFamilies families_;
  std::mutex mutex_;
  KeptMountTable mounts_;
};

}  // namespace paddock
