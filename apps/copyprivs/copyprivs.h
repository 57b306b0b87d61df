// The program copyprivs; see its manual page.
#pragma once

#include <atomic>
#include <ostream>
#include <string>
#include <vector>

namespace paddock::copyprivs {

// `words` is the argument vector, `root` the folder that the program is installed below (empty for
// the system's). The run ends early when `stop` becomes true. Returns the exit status.
int runCopyPrivs(const std::vector<std::string>& words, const std::string& root,
                 const std::atomic<bool>& stop, std::ostream& out, std::ostream& error);

}  // namespace paddock::copyprivs
