// Pushes privileges down to everything inside a folder, with several threads.
#pragma once

#include <atomic>
#include <stdexcept>
#include <string>

#include "base/file_access.h"
#include "copyprivs/object_setter.h"
#include "copyprivs/run_report.h"
#include "platform/linux/privileges/file_acls.h"

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

// No symlink is followed, and the walk stays in the mount of the folder: mounts below it are
// skipped and not counted. Memory does not grow with the number of objects, but by a little for
// each level of the deepest folders and up to 1 MiB for the numbers of folders. Objects that are
// created, moved or removed concurrently are set as they are encountered; a folder that leaves the
// tree is not touched from then on. Where entries moved meanwhile, folders are looked at again, as
// platform/linux/privileges/walk_rounds.h says, and those that change in the last round, too, are
// errors; a dry run has one round. Ends early when `stop` becomes true. Throws std::system_error
// when the walk cannot start or runs out of resources.
void walkTree(const StartingFolder& folder, const Propagation& propagation,
              FilePrivileges& privileges, const WalkOptions& options, const std::atomic<bool>& stop,
              RunReport& report);

// What the starting folder propagates to its contents.

// Why a run cannot start.
class CannotStart : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The folder at the path; symlinks above it are followed as platform/path_use.h defines for
// changes, it must be none itself. Throws CannotStart.
StartingFolder findStartingFolder(const std::string& path);

// Its own owner, group, mode and, when `what` has them, the entries that it passes on. Throws
// CannotStart when they cannot be read, or the ACL is invalid.
Propagation propagationFrom(const StartingFolder& folder, std::uint32_t what, const FileAcls& acls);

}  // namespace paddock::copyprivs
