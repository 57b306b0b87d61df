// Starting a program in a clean state, however it is to be waited for.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace paddock {

struct SpawnRequest {
  std::string path;
  std::vector<std::string> argumentVector;  // argv[0] included
  // Descriptors above the standard three that the output streams go to. Without one, standard
  // output goes nowhere, and standard error where this process's goes.
  int output = -1;
  int errorOutput = -1;
  // In a session of its own, and not only in a process group of its own.
  bool ownSession = false;
};

// Starts it in "/", with standard input empty, every other descriptor closed, default signal
// handlers, no signal blocked, and the id of the request that it runs for in its environment. 0 and
// its process, or the errno that kept it from starting.
int spawnProgram(const SpawnRequest& request, pid_t& process);

}  // namespace paddock
