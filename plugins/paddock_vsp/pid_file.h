// Files in which a server notes its process.
#pragma once

#include <string>

namespace paddock {

// Whether the process runs whose number stands in the first line of the file, links followed. A
// file that is missing, cannot be read, is no regular file, is longer than 4 KiB or does not begin
// with a process' number (decimal, blanks around it) names none; a zombie does not run. Never
// blocks, and sends no signal.
bool processOfPidFileRuns(const std::string& path);

}  // namespace paddock
