// Pushes privileges down to everything inside a folder, with several threads.
#pragma once

#include <atomic>

#include "base/file_descriptor.h"
#include "copyprivs/object_setter.h"
#include "copyprivs/run_report.h"

namespace paddock::copyprivs {

struct WalkOptions {
  unsigned threads = 0;       // 0: one for each processor, as the descriptors allow
  unsigned descriptors = 40;  // that may be open at a time; at least 8 for each thread
};

// The starting folder, which is itself not changed.
struct StartingFolder {
  std::string path;  // for messages
  FileDescriptor held;
  ObjectStatus status;
};

// No link is followed, and the walk stays in the mount of the folder: what is mounted in it is left
// out and not counted. Memory does not grow with the number of objects, but by a little for each
// level of the deepest folders. What appears, moves or goes meanwhile is set as it is met; a folder
// that leaves the tree is left alone from then on. Ends early when `stop` becomes true. Throws
// std::system_error when the walk cannot begin or its means run out.
void walkTree(const StartingFolder& folder, const Propagation& propagation,
              FilePrivileges& privileges, const WalkOptions& options, const std::atomic<bool>& stop,
              RunReport& report);

}  // namespace paddock::copyprivs
