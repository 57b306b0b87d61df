// Brings a volume's quota files up to date.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/file_access.h"
#include "platform/linux/privileges/walk_rounds.h"
#include "quotascan/quota_file.h"
#include "quotascan/quota_table.h"
#include "quotascan/usage.h"

namespace paddock::quotascan {

// Counts what every user and group uses on a volume, by walking it with several threads.
//
// Each inode counts once, for its owner and its group, with the bytes that are allocated to it. No
// symlink is followed. The walk stays on the volume: mounts in it, with everything below them, are
// skipped, also bind mounts of the volume itself; so is a folder of another device in the same
// mount. Objects that are created, moved or removed during the walk are counted as they are
// encountered; but no folder is missed, or counted twice, because it moved: where entries moved
// meanwhile, folders are looked at again, as platform/linux/privileges/walk_rounds.h says. Of a
// volume with more folders than are kept there, one that moves may be counted twice.
struct WalkOptions {
  unsigned threads = 0;           // 0: one for each processor, from 2 to 12
  unsigned descriptors = 48;      // that may be open at a time; at least 4 for each thread
  std::set<std::string> ignored;  // names in the highest folder that are not counted
  std::chrono::milliseconds pause = WalkRounds::kPause;  // before folders are looked at again
  std::size_t knownFolders = VisitedFolders::kMost;      // that are recognised then
};

// `root` is the volume's highest folder, which counts too. `objects` grows as the walk goes on.
// Memory does not grow with the number of objects, but 8 to 16 bytes for each inode with several
// links that is no folder, a little for each level of the deepest folders and up to 4 MiB for the
// numbers of folders. Throws Failure when a
// folder or an object cannot be read.
Counts countUsage(int root, const WalkOptions& options, std::atomic<std::uint64_t>& objects);

// What became of one of the files.
struct FileOutcome {
  QuotaType type = kUserQuota;
  bool byKernel = false;  // the kernel's figures; else those of a walk
  TableSummary table;     // of what was written
  std::string failure;    // why it stays as it was; empty when it does not
};

struct ScanOutcome {
  std::vector<FileOutcome> files;        // one for each file that is there, users first
  std::optional<std::uint64_t> objects;  // how many a walk met; none when the kernel knew all
  std::string unsettled{};               // as in Counts
};

// Progress events of a run. `objects` is the number encountered so far.
struct ScanEvents {
  std::function<void()> waiting = [] {};  // another run is at the same volume
  std::function<void()> walking = [] {};
  std::function<void()> walked = [] {};
  std::atomic<std::uint64_t> objects = 0;
};

enum class CountedBy : std::uint8_t {
  any,          // the kernel, and a walk where it does not count
  kernelAlone,  // files that it does not count for stay as they are, and no other run is waited for
};

// `volume` is the path of a volume's highest folder. Throws Failure when it is not that, when it
// has no quota file, and when it cannot be counted.
ScanOutcome scanVolume(const std::string& volume, ScanEvents& events,
                       CountedBy countedBy = CountedBy::any);

}  // namespace paddock::quotascan
