#include "privileges/module_logger.h"

#include <string>

#include "platform/logger.h"
#include "platform/services.h"

namespace paddock {

SysLogger& get_logger(std::string_view function) {
  static SysLogger logger(
      [](int priority, const std::string& line) { services().logger->log(priority, line); });
  logger.setPrefix(std::string("paddock_sharing:").append(function));
  return logger;
}

}  // namespace paddock
