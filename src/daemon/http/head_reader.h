// The head of a request as the HTTP library has read it.
#pragma once

#include <string>

#include "daemon/http/exchange.h"

struct MHD_Connection;

namespace paddock {

RequestHead readHead(MHD_Connection* connection, const char* target, const char* method);

// The reason for which the library refuses, with this status, a malformed request.
std::string whyUnreadable(MHD_Connection* connection, int status);

}  // namespace paddock
