#include "platform/testing/fake_volume_info.h"

#include <algorithm>
#include <cerrno>
#include <string_view>

namespace paddock {

namespace {

constexpr std::size_t kPathLimit = 4096;

const VolumeStatistics kUsualSize{"", 4096, 1U << 20U, 1U << 19U};

std::string familyOf(const std::string& type) {
  if (type == "ext4" || type == "xfs") return "ufs";
  return type == "hfsplus" ? "hfs" : type;
}

int pathError(const std::string& path) {
  if (path.empty()) return ENOENT;
  if (path.find('\0') != std::string::npos) return EINVAL;
  return path.size() >= kPathLimit ? ENAMETOOLONG : 0;
}

// Absolute, without "..", repeated and final slashes. There are no links, and the working folder
// is "/".
std::string normalised(std::string_view path) {
  std::string normal;
  while (!path.empty()) {
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string_view component = path.substr(0, end);
    path.remove_prefix(std::min(end + 1, path.size()));
    if (component == "..") {
      normal.erase(std::min(normal.rfind('/'), normal.size()));
    } else if (!component.empty() && component != ".") {
      normal.append("/").append(component);
    }
  }
  return normal.empty() ? "/" : normal;
}

bool liesOn(const std::string& path, const std::string& mountPoint) {
  if (mountPoint == "/") return true;
  return path.compare(0, mountPoint.size(), mountPoint) == 0 &&
         (path.size() == mountPoint.size() || path[mountPoint.size()] == '/');
}

}  // namespace

int FakeVolumeInfo::statfs(const std::string& path, MountedVolume& volume) {
  ++statfsCalls_;
  volume = {};
  if (const int error = pathError(path); error != 0) return error;
  if (const auto error = errors_.find(path); error != errors_.end()) return error->second;
  const std::string normal = normalised(path);
  const MountedVolume* nearest = nullptr;
  for (const MountedVolume& mounted : volumes_) {
    if (!liesOn(normal, mounted.f_mntonname)) continue;
    if (nearest == nullptr || mounted.f_mntonname.size() >= nearest->f_mntonname.size()) {
      nearest = &mounted;
    }
  }
  if (nearest == nullptr) return ENOENT;
  volume = *nearest;
  return 0;
}

int FakeVolumeInfo::statistics(const std::string& path, VolumeStatistics& statistics) {
  statistics = {};
  MountedVolume volume;
  if (const int error = statfs(path, volume); error != 0) return error;
  const auto size = sizes_.find(volume.f_mntonname);
  statistics = size != sizes_.end() ? size->second : kUsualSize;
  statistics.family = familyOf(volume.f_fstypename);
  return 0;
}

void FakeVolumeInfo::setSize(const std::string& mountPoint, std::uint64_t blockSize,
                             std::uint64_t blocks, std::uint64_t available) {
  sizes_[mountPoint] = {"", blockSize, blocks, available};
}

int FakeVolumeInfo::getmntinfo(std::vector<MountedVolume>& volumes) {
  volumes = tableError_ == 0 ? volumes_ : std::vector<MountedVolume>();
  return tableError_;
}

void FakeVolumeInfo::mount(const MountedVolume& volume) { volumes_.push_back(volume); }

void FakeVolumeInfo::unmount(const std::string& mountPoint) {
  const auto top =
      std::find_if(volumes_.rbegin(), volumes_.rend(),
                   [&](const MountedVolume& mounted) { return mounted.f_mntonname == mountPoint; });
  if (top != volumes_.rend()) volumes_.erase(std::next(top).base());
}

void FakeVolumeInfo::setError(const std::string& path, int error) {
  if (error == 0) {
    errors_.erase(path);
  } else {
    errors_[path] = error;
  }
}

}  // namespace paddock
