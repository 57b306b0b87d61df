// Counts what every user and group uses on a volume, by walking it with several threads.
//
// Each inode counts once, for its owner and its group, with the bytes that are allocated to it. No
// link is followed. The walk stays on the volume: what is mounted in it, and what stands below
// such a place, is left out, also when it is a part of the volume itself; so is a folder of
// another device in the same mount. What appears, moves or goes during the walk is counted as it
// was met.
#pragma once

#include <atomic>
#include <cstdint>
#include <set>
#include <string>

#include "quotascan/usage.h"

namespace paddock::quotascan {

struct WalkOptions {
  unsigned threads = 0;           // 0: one for each processor, from 2 to 12
  unsigned descriptors = 48;      // that may be open at a time; at least 4 for each thread
  std::set<std::string> ignored;  // names in the highest folder that are not counted
};

// `root` is the volume's highest folder, which counts too. `objects` grows as the walk goes on.
// Memory does not grow with the number of objects, but 8 to 16 bytes for each inode with several
// links that is no folder and a little for each level of the deepest folders. Throws Failure when a
// folder or an object cannot be read.
Counts countUsage(int root, const WalkOptions& options, std::atomic<std::uint64_t>& objects);

}  // namespace paddock::quotascan
