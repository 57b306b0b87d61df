// The configured command that is told of changes: [indexing] command, see docs/indexing.md.
#pragma once

#include <string>

namespace paddock {

// Starts the command with the path and its new search level behind its own arguments, and does not
// wait for it: an indexer takes its time, and the settings lock is held. Without a command nothing
// is started. A command that cannot be started is logged, and no more.
void run_indexing_command(const std::string& path, const std::string& level);

}  // namespace paddock
