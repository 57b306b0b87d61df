#include "platform/linux/files/linux_volume_info.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>

#include "base/system_call.h"

namespace paddock {

namespace {

int mountOf(const std::string& path, struct statx& status) {
  if (path.find('\0') != std::string::npos) return EINVAL;
  const int error = errnoOf([&] {
    return ::statx(AT_FDCWD, path.c_str(), AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC, STATX_MNT_ID,
                   &status);
  });
  if (error != 0) return error;
  // Kernels before 5.8 do not say it.
  return (status.stx_mask & STATX_MNT_ID) == 0 ? ENOSYS : 0;
}

// In a chroot whose root is no mount, the mount that holds it is not in the process's own table;
// the table of the system's first process has the device.
MountedVolume volumeOfChroot(const struct statx& status) {
  MountedVolume root{"/", "none", "unknown"};
  KeptMountTable whole("/proc/1/mountinfo");
  if (whole.update() != 0) return root;
  const std::string device =
      std::to_string(status.stx_dev_major) + ":" + std::to_string(status.stx_dev_minor);
  if (const MountedVolume* volume = whole.table().findDevice(device)) {
    root.f_mntfromname = volume->f_mntfromname;
    root.f_fstypename = volume->f_fstypename;
  }
  return root;
}

}  // namespace

int LinuxVolumeInfo::statfs(const std::string& path, MountedVolume& volume) {
  volume = {};
  struct statx status {};
  if (const int error = mountOf(path, status); error != 0) return error;
  const std::lock_guard lock(mutex_);
  if (const int error = mounts_.update(); error != 0) return error;
  if (const MountedVolume* found = mounts_.table().find(status.stx_mnt_id)) {
    volume = *found;
    return 0;
  }
  struct statx root {};
  if (const int error = mountOf("/", root); error != 0) return error;
  // Otherwise unmounted since.
  if (root.stx_mnt_id != status.stx_mnt_id) return ENOENT;
  volume = volumeOfChroot(root);
  return 0;
}

std::string LinuxVolumeInfo::familyOf(const std::string& type) const {
  const auto& ufs = families_.ufs;
  if (families_.everyTypeIsUfs || std::find(ufs.begin(), ufs.end(), type) != ufs.end())
    return "ufs";
  return type == "hfsplus" ? "hfs" : type;
}

// The numbers are asked after the mount, so that a volume that goes meanwhile is an error.
int LinuxVolumeInfo::statistics(const std::string& path, VolumeStatistics& statistics) {
  statistics = {};
  MountedVolume volume;
  if (const int error = statfs(path, volume); error != 0) return error;
  struct statvfs numbers {};
  const int error = errnoOf([&] { return ::statvfs(path.c_str(), &numbers); });
  if (error != 0) return error;
  statistics = {familyOf(volume.f_fstypename), numbers.f_frsize, numbers.f_blocks,
                numbers.f_bavail};
  return 0;
}

int LinuxVolumeInfo::getmntinfo(std::vector<MountedVolume>& volumes) {
  const std::lock_guard lock(mutex_);
  volumes.clear();
  if (const int error = mounts_.update(); error != 0) return error;
  volumes = mounts_.table().volumes;
  return 0;
}

}  // namespace paddock
