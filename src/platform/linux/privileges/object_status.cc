#include "platform/linux/privileges/object_status.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <climits>

#include "base/system_call.h"

namespace paddock {

namespace {

constexpr unsigned kMask = STATX_TYPE | STATX_MODE | STATX_NLINK | STATX_UID | STATX_GID |
                           STATX_INO | STATX_BLOCKS | STATX_MTIME | STATX_CTIME | STATX_MNT_ID;
constexpr int kNotFollowed = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
constexpr unsigned kDeviceShift = 32;
constexpr std::uint64_t kBlock = 512;  // of stx_blocks, whatever the file system's own are

FileTime timeOf(const statx_timestamp& time) { return {time.tv_sec, time.tv_nsec}; }

int readStatus(int folder, const char* name, int flags, unsigned mask, ObjectStatus& status) {
  struct statx raw {};
  const int error = errnoOf([&] { return ::statx(folder, name, flags, mask, &raw); });
  if (error != 0) return error;
  status.device = std::uint64_t{raw.stx_dev_major} << kDeviceShift | raw.stx_dev_minor;
  status.inode = raw.stx_ino;
  status.mount = (raw.stx_mask & STATX_MNT_ID) != 0 ? raw.stx_mnt_id : 0;
  status.bytes = raw.stx_blocks * kBlock;
  status.owner = raw.stx_uid;
  status.group = raw.stx_gid;
  status.links = raw.stx_nlink;
  status.type = raw.stx_mode & S_IFMT;
  status.mode = raw.stx_mode & ~static_cast<mode_t>(S_IFMT);
  status.modified = timeOf(raw.stx_mtime);
  status.changed = timeOf(raw.stx_ctime);
  status.isMountRoot = (raw.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) == 0 ||
                       (raw.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
  return 0;
}

}  // namespace

int statusOf(int folder, const char* name, ObjectStatus& status) {
  return readStatus(folder, name, kNotFollowed | AT_STATX_DONT_SYNC, kMask, status);
}

int statusOf(int object, ObjectStatus& status) {
  return readStatus(object, "", AT_EMPTY_PATH, kMask, status);
}

int placeOf(int folder, const char* name, ObjectStatus& status) {
  // With an empty mask, a file system reports these two without a query of its own.
  return readStatus(folder, name, kNotFollowed | AT_STATX_DONT_SYNC, 0, status);
}

int placeOf(int object, ObjectStatus& status) {
  return readStatus(object, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, 0, status);
}

std::string pathOf(int object) {
  std::array<char, PATH_MAX> path{};
  const std::string link = "/proc/self/fd/" + std::to_string(object);
  std::size_t length = 0;
  const int error =
      errnoOf([&] { return ::readlink(link.c_str(), path.data(), path.size()); }, &length);
  return error == 0 ? std::string(path.data(), length) : "a folder";
}

std::string pathOf(int folder, const std::string& name) {
  const std::string path = pathOf(folder);
  return path == "/" ? path + name : path + "/" + name;
}

}  // namespace paddock
