// The mount table of this process: /proc/self/mountinfo; see proc_pid_mountinfo(5).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/file_descriptor.h"
#include "platform/volume_info.h"

namespace paddock {

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

// Keeps the table and reads it again only when the kernel says that it has changed. Not safe
// from two threads at once.
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

}  // namespace paddock
