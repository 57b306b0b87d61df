// Common to all programs: argument checks, and reporting of their termination.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace paddock {

// EINVAL when the path or an argument contains a NUL, which would truncate it; otherwise 0.
int argumentError(const std::string& path, const std::vector<std::string>& arguments);

// The exit status, or 128 + the signal that ended it, of wait(2)'s status.
int exitStatusOf(int waitStatus);

// Logs a program that could not be started, and one that ended in anything but exit status 0.
void logFailedStart(const std::string& path, int error);
void logExit(const std::string& path, int exitStatus);

// Starting a program in a clean environment, independent of how it is waited for.
struct SpawnRequest {
  std::string path;
  std::vector<std::string> argumentVector;  // argv[0] included
  // Descriptors above the standard three that the output streams go to. Without one, standard
  // output is discarded, and standard error inherited.
  int output = -1;
  int errorOutput = -1;
  // In a session of its own, not only in a process group of its own.
  bool ownSession = false;
};

// Starts it in "/", with standard input empty, every other descriptor closed, default signal
// handlers, no signal blocked, and the id of the request that it runs for in its environment.
// Returns 0 with `process` set, or the errno of starting it.
int spawnProgram(const SpawnRequest& request, pid_t& process);

}  // namespace paddock
