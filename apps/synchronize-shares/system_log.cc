#include "synchronize-shares/system_log.h"

#include <syslog.h>

#include <cstdlib>

#include "base/printable.h"

namespace paddock::synchronizer {

SystemLog::SystemLog() { ::openlog("synchronize-shares", LOG_PID, LOG_DAEMON); }

void SystemLog::log(int priority, std::string_view text) {
  std::string line(text);
  if (const char* request = std::getenv("PADDOCK_REQUEST_ID"))
    line.append(" [request ").append(request).append("]");
  ::syslog(LOG_DAEMON | priority, "%s", printable(line).c_str());
}

}  // namespace paddock::synchronizer
