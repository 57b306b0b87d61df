// Reading what a program writes, both streams at the same time, until it ends.
#pragma once

#include <chrono>
#include <string>

#include "hostlib/child_process.h"

namespace paddock {

// Keeps at most `limit` bytes per stream and drops the rest, so that the program never blocks on
// a full pipe. Returns true once the program has ended: what others who inherited its streams
// write later is not waited for. False when it had not ended at `deadline`.
bool readUntilEnd(ChildProcess& child, std::chrono::steady_clock::time_point deadline,
                  std::size_t limit, std::string& output, std::string& errorOutput);

}  // namespace paddock
