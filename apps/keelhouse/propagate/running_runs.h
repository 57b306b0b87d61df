// Runs that push privileges down folders, found among the running processes.
//
// A run is the daemon's program with the argument vector
//   CopyPrivs -p FOLDER -f MASK -s STATUSFILE
// and the status file of the daemon's tree. Everybody may see processes (unless /proc is mounted
// with hidepid); only root sees of which program they are, so that for others the process's user
// has to do.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/file_descriptor.h"

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

// The process of a run, held so that its number cannot become another's. Invalid when it has
// ended, or is not that run any more. Throws std::system_error when the kernel cannot do that.
FileDescriptor holdRun(const std::string& root, const RunningRun& run);

}  // namespace paddock::keelhouse
