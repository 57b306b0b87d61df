// Runs a program and waits for it, with a time limit.
//
// It runs in "/" and stays in the process group of this process, so that who ends that ends both.
// Its standard input is empty, it has the default signals, and nothing of this process's but its
// environment.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace paddock {

struct BoundedOutcome {
  // 0: it ran; otherwise the errno of starting it, or ETIMEDOUT when it was ended.
  int status = 0;
  std::string output;
  std::string errorOutput;
  int exitStatus = 0;  // 128 + the number of the signal that ended it
};

// Runs the executable at `path`, with that for argv[0] and `arguments` behind it. Of each output
// stream at most `limit` bytes are kept; the rest is read and dropped. ENOENT is there no such
// program. Thread-safe.
BoundedOutcome runBoundedProgram(const std::string& path, const std::vector<std::string>& arguments,
                                 std::chrono::milliseconds patience, std::size_t limit);

}  // namespace paddock
