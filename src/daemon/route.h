// What a request's path names.
#pragma once

#include <string>
#include <string_view>

namespace paddock {

struct Route {
  enum class Kind { none, health, plugins, audit, requestLog, operation };
  Kind kind = Kind::none;
  std::string plugin;
  std::string operation;
  std::string request;  // the id of the request whose log is asked for
};

// Reads the path of a request target as it was sent: "/v1/health", "/v1/plugins",
// "/v1/audit", "/v1/requests/ID/log", "/v1/PLUGIN/OPERATION"; a query is ignored, percent
// escapes are read.
Route routeOf(std::string_view target);

}  // namespace paddock
