// A program that is run and waited for, and ended when it takes too long.
//
// It stays in the process group of this process, so that who ends that ends both. Its standard
// input is empty, it has the default signals, and nothing of this process's but its environment.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "platform/program_runner.h"

namespace paddock {

// Runs the executable at `path`, with that for argv[0] and `arguments` behind it. Of each output
// stream at most `limit` bytes are kept; the rest is read and dropped. The outcome's status is
// ENOENT when there is no such program, ETIMEDOUT when it was ended. Any thread may call.
ProgramOutcome runBoundedProgram(const std::string& path, const std::vector<std::string>& arguments,
                                 std::chrono::milliseconds patience, std::size_t limit);

}  // namespace paddock
