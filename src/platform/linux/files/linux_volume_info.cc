#include "platform/linux/files/linux_volume_info.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string>

#include "base/system_call.h"

namespace paddock {

namespace {

constexpr std::size_t kDeviceField = 2;
constexpr std::size_t kMountPointField = 4;
constexpr std::size_t kFirstOptionalField = 6;
constexpr std::size_t kChunk = std::size_t{64} << 10U;

bool isOctalEscape(std::string_view text) {
  return text.size() >= 4 && text[0] == '\\' && text[1] >= '0' && text[1] <= '3' &&
         text[2] >= '0' && text[2] <= '7' && text[3] >= '0' && text[3] <= '7';
}

std::string decoded(std::string_view field) {
  std::string text;
  while (!field.empty()) {
    if (isOctalEscape(field)) {
      text += static_cast<char>((field[1] - '0') * 64 + (field[2] - '0') * 8 + (field[3] - '0'));
      field.remove_prefix(4);
    } else {
      text += field.front();
      field.remove_prefix(1);
    }
  }
  return text;
}

std::vector<std::string_view> fieldsOf(std::string_view line) {
  std::vector<std::string_view> fields;
  while (true) {
    const std::size_t blank = line.find(' ');
    fields.push_back(line.substr(0, blank));
    if (blank == std::string_view::npos) return fields;
    line.remove_prefix(blank + 1);
  }
}

void parseLine(std::string_view line, MountTable& table) {
  const auto fields = fieldsOf(line);
  std::size_t dash = kFirstOptionalField;
  while (dash < fields.size() && fields[dash] != "-") ++dash;
  if (dash + 2 >= fields.size()) return;
  std::uint64_t id = 0;
  const std::string_view number = fields[0];
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), id);
  if (error != std::errc{} || end != number.data() + number.size()) return;
  table.byId[id] = table.volumes.size();
  table.devices.emplace_back(fields[kDeviceField]);
  table.volumes.push_back(
      {decoded(fields[kMountPointField]), decoded(fields[dash + 2]), decoded(fields[dash + 1])});
}

}  // namespace

const MountedVolume* MountTable::find(std::uint64_t mountId) const {
  const auto found = byId.find(mountId);
  return found == byId.end() ? nullptr : &volumes[found->second];
}

const MountedVolume* MountTable::findDevice(const std::string& device) const {
  const auto found = std::find(devices.begin(), devices.end(), device);
  return found == devices.end() ? nullptr
                                : &volumes[static_cast<std::size_t>(found - devices.begin())];
}

MountTable parseMountTable(std::string_view text) {
  MountTable table;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    parseLine(text.substr(0, end), table);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return table;
}

bool KeptMountTable::changed() const {
  pollfd waited{file_.get(), POLLPRI, 0};
  // A failing poll says nothing, so that the table is read.
  if (retryOnInterrupt([&] { return ::poll(&waited, 1, 0); }) < 0) return true;
  return (waited.revents & (POLLERR | POLLPRI)) != 0;
}

int KeptMountTable::update() {
  // Asking first: what changes while the table is read is reported by the next question.
  if (file_ && !changed()) return 0;
  const int error = readTable();
  if (error != 0) {
    file_.reset();
    table_ = {};
  }
  return error;
}

int KeptMountTable::readTable() {
  if (!file_) {
    int descriptor = -1;
    const int error = errnoOf([&] { return ::open(path_, O_RDONLY | O_CLOEXEC); }, &descriptor);
    if (error != 0) return error;
    file_ = FileDescriptor(descriptor);
  }
  if (::lseek(file_.get(), 0, SEEK_SET) < 0) return errno;
  std::string text;
  std::array<char, kChunk> chunk;
  while (true) {
    std::size_t count = 0;
    const int error =
        errnoOf([&] { return ::read(file_.get(), chunk.data(), chunk.size()); }, &count);
    if (error != 0) return error;
    if (count == 0) break;
    text.append(chunk.data(), count);
  }
  table_ = parseMountTable(text);
  ++readings_;
  return 0;
}

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
  const MutexLock lock(mutex_);
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

// The statistics are queried after the mount, so that a concurrent unmount is an error.
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
  const MutexLock lock(mutex_);
  volumes.clear();
  if (const int error = mounts_.update(); error != 0) return error;
  volumes = mounts_.table().volumes;
  return 0;
}

}  // namespace paddock
