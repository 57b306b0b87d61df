// The system's log, as syslog(3) reaches it.
#pragma once

#include "platform/logger.h"

namespace paddock::synchronizer {

// Each message is one line, with the id of the request that the program runs for, when the daemon
// has put one into the environment.
class SystemLog final : public Logger {
 public:
  SystemLog();
  void log(int priority, std::string_view text) override;
};

}  // namespace paddock::synchronizer
