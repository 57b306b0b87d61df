// The module's one logger.
#pragma once

#include <string_view>

#include "paddock/sys_logger.h"

namespace paddock {

// The logger, made on first use, its prefix set to "paddock_sharing:" and the function's name. It
// writes to the platform's logger. The prefix is the calling thread's and stays until the next
// call, so each message asks for the logger anew.
SysLogger& get_logger(std::string_view function);

}  // namespace paddock
