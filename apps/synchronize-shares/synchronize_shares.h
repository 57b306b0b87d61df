// The program synchronize-shares, but for its streams; synchronize-shares.8 describes it.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "platform/logger.h"

namespace paddock::synchronizer {

// `words` is the whole argument vector; `root` the folder that every path is taken below, without a
// slash at its end, empty for the system itself. What is left out goes to `log`, what failed to
// `error`. Returns the exit status: 0 done, 1 not everything was brought up to date, 2 usage.
int runSynchronizeShares(const std::vector<std::string>& words, const std::string& root,
                         Logger& log, std::ostream& out, std::ostream& error);

// The system's log, as syslog(3) reaches it.

// Each message is one line, with the id of the request that the program runs for, when the daemon
// has put one into the environment.
class SystemLog final : public Logger {
 public:
  SystemLog();
  void log(int priority, std::string_view text) override;
};

}  // namespace paddock::synchronizer
