// The program quotascan, but for its streams; quotascan.8 describes it.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace paddock::quotascan {

// `words` is the whole argument vector. With `onTerminal`, `error` is a terminal and shows how far
// the run is. Returns the exit status: 0 done, 1 something was not brought up to date, 2 usage.
int runQuotascan(const std::vector<std::string>& words, std::ostream& out, std::ostream& error,
                 bool onTerminal);

}  // namespace paddock::quotascan
