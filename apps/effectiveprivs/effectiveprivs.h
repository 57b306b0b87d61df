// What a user may do with a file or folder.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace paddock::effectiveprivs {

// Runs the program with the argument vector `words`, in the tree below `root`, which is empty for
// the system itself. Returns the exit status. Of a run that fails, nothing is on `out`.
int runEffectiveprivs(const std::vector<std::string>& words, const std::string& root,
                      std::ostream& out, std::ostream& error);

}  // namespace paddock::effectiveprivs
