// Runs that push privileges down folders, found among the running processes.
//
// A run is the daemon's program with the argument vector
//   CopyPrivs -p FOLDER -f MASK -s STATUSFILE
// and the status file of the daemon's tree. Everybody may see processes (unless /proc is mounted
// with hidepid); only root sees their executable, so that for others the process's user has to
// suffice: root or the caller, by its real uid and all others. A set-user-ID program that somebody
// has started with such arguments is no run.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/file_access.h"

namespace paddock::keelhouse {

struct RunningRun {
  pid_t process = 0;
  std::string path;  // not yet printable
  std::uint32_t mask = 0;
  std::string statusFile;

  friend bool operator==(const RunningRun&, const RunningRun&) = default;
};

// The program that pushes privileges down, in the tree below `root` (empty: the system).
std::string propagationProgram(const std::string& root);

// Reads a process's argument vector as the kernel gives it: each argument ended by a NUL. Absent
// when it is not that of a run.
std::optional<RunningRun> parseRunArguments(pid_t process, const std::string& arguments);

// The runs of the tree below `root`, oldest process first.
std::vector<RunningRun> runningRuns(const std::string& root);

// A pidfd of the run's process, so that its number cannot be reused. Invalid when it has ended, or
// is no longer that run. Throws std::system_error when the kernel cannot do that.
FileDescriptor holdRun(const std::string& root, const RunningRun& run);

// Ends runs that push privileges down a folder.

// Ends the run's process with SIGTERM, and waits until it has ended; does nothing when it has ended
// already. Never signals another process: it is opened before it is checked. Throws Failure when it
// cannot be ended, or does not end within `patience`.
void stopRun(const std::string& root, const RunningRun& run,
             std::chrono::milliseconds patience = std::chrono::minutes(1));

}  // namespace paddock::keelhouse
