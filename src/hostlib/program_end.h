// What is the same for every program: which arguments it can take, and how its end is reported.
#pragma once

#include <string>
#include <vector>

namespace paddock {

// EINVAL when the path or an argument holds a NUL, which would cut it short; otherwise 0.
int argumentError(const std::string& path, const std::vector<std::string>& arguments);

// The exit status, or 128 + the signal that ended it, of wait(2)'s status.
int exitStatusOf(int waitStatus);

// A line in the log for a program that could not be started, and for one that ended in anything
// but exit status 0.
void logFailedStart(const std::string& path, int error);
void logExit(const std::string& path, int exitStatus);

}  // namespace paddock
