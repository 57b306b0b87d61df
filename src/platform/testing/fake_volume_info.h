// A mount table that a test sets; at first the root volume alone.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/testing/call_rules.h"
#include "platform/volume_info.h"

namespace paddock {

class FakeVolumeInfo : public VolumeInfo {
 public:
  // The volume mounted nearest above the path, by its components. Every path exists that
  // `setError` says nothing of; there are no links, and the working folder is "/".
  int statfs(const std::string& path, MountedVolume& volume) override;
  // The numbers set for the volume; its family is "ufs" or "hfs" for the types that are of them.
  int statistics(const std::string& path, VolumeStatistics& statistics) override;
  int getmntinfo(std::vector<MountedVolume>& volumes) override;

  // Appends to the table; a later volume on the same directory covers an earlier one.
  void mount(const MountedVolume& volume);
  void unmount(const std::string& mountPoint);
  // The size of the volume mounted on the directory; 4 GiB, half of them free, until it is set.
  void setSize(const std::string& mountPoint, std::uint64_t blockSize, std::uint64_t blocks,
               std::uint64_t available);
  // The error of `statfs` and `statistics` on exactly this path; 0 for none.
  void setError(const std::string& path, int error);
  // The error of `getmntinfo`; 0 for none.
  void setTableError(int error) { tableError_ = error; }

  int statfsCalls() const { return statfsCalls_; }

 private:
  std::vector<MountedVolume> volumes_{{"/", "/dev/root", "ext4"}};
  std::map<std::string, VolumeStatistics> sizes_;
  std::map<std::string, int> errors_;
  int tableError_ = 0;
  int statfsCalls_ = 0;
};

// Volumes. A failure is the errno and nothing. Operations: statfs, statistics (subject: the path),
// getmntinfo.
class ForwardingVolumeInfo final : public Forwarder<VolumeInfo> {
 public:
  using Forwarder::Forwarder;
  int statfs(const std::string& path, MountedVolume& volume) override {
    volume = {};
    const int error = ask("volumeInfo.statfs", {"statfs", path, ""});
    return error != 0 ? error : wrapped().statfs(path, volume);
  }
  int statistics(const std::string& path, VolumeStatistics& statistics) override {
    statistics = {};
    const int error = ask("volumeInfo.statistics", {"statistics", path, ""});
    return error != 0 ? error : wrapped().statistics(path, statistics);
  }
  int getmntinfo(std::vector<MountedVolume>& volumes) override {
    volumes.clear();
    const int error = ask("volumeInfo.getmntinfo", {"getmntinfo", "", ""});
    return error != 0 ? error : wrapped().getmntinfo(volumes);
  }
};

}  // namespace paddock
