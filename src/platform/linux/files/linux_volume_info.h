// Volumes from statx(2) and the mount table.
//
// A path's volume is found by its mount's id, not by device number or text, so that volumes mounted
// over one another, subvolumes and overlays are distinguished. No lookup triggers an automount, and
// file servers are queried only for statistics.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/file_access.h"
#include "base/mutex.h"
#include "platform/volume_info.h"

namespace paddock {

// The mount table of this process: /proc/self/mountinfo; see proc_pid_mountinfo(5).

// The volumes of one reading of the table, in its order, and by mount id.
struct MountTable {
  std::vector<MountedVolume> volumes;
  std::unordered_map<std::uint64_t, std::size_t> byId;  // -> index in `volumes`
  std::vector<std::string> devices;                     // "MAJOR:MINOR", as `volumes`

  const MountedVolume* find(std::uint64_t mountId) const;
  // The first volume on the device.
  const MountedVolume* findDevice(const std::string& device) const;
};

// Reads the text of a mountinfo file; a line that is cut short is left out.
MountTable parseMountTable(std::string_view text);

// Caches the table and rereads it only when the kernel reports a change. Not thread-safe.
class KeptMountTable {
 public:
  explicit KeptMountTable(const char* path = "/proc/self/mountinfo") : path_(path) {}

  // Brings the table up to date: 0, or an errno and no volumes.
  int update();
  const MountTable& table() const { return table_; }
  // How often the table was read.
  int readings() const { return readings_; }

 private:
  bool changed() const;
  int readTable();

  const char* path_;
  FileDescriptor file_;
  MountTable table_;
  int readings_ = 0;
};

// Which types are a family of their own; hfs and hfsplus are always "hfs".
struct VolumeFamilies {
  std::vector<std::string> ufs = {"ext2", "ext3", "ext4", "xfs"};
  bool everyTypeIsUfs = false;
};

// Thread-safe.
class LinuxVolumeInfo : public VolumeInfo {
 public:
  explicit LinuxVolumeInfo(VolumeFamilies families = {}) : families_(std::move(families)) {}

  int statfs(const std::string& path, MountedVolume& volume) override;
  int statistics(const std::string& path, VolumeStatistics& statistics) override;
  int getmntinfo(std::vector<MountedVolume>& volumes) override;

 private:
  std::string familyOf(const std::string& type) const;

  const VolumeFamilies families_;
  Mutex mutex_;
  KeptMountTable mounts_ PADDOCK_GUARDED_BY(mutex_);
};

}  // namespace paddock
