// What a request's path names.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace paddock {

struct Route {
  enum class Kind { none, health, plugins, openApi, audit, requestLog, operation };
  Kind kind = Kind::none;
  std::string plugin;
  std::string operation;
  std::string request;  // the id of the request whose log is asked for
};

// The daemon's own endpoints; what a caller puts in stands in braces.
struct Endpoint {
  std::string_view path;
  Route::Kind kind;
};
inline constexpr std::array kEndpoints = {
    Endpoint{"/v1/audit", Route::Kind::audit},
    Endpoint{"/v1/health", Route::Kind::health},
    Endpoint{"/v1/openapi.json", Route::Kind::openApi},
    Endpoint{"/v1/plugins", Route::Kind::plugins},
    Endpoint{"/v1/requests/{request}/log", Route::Kind::requestLog},
};

// Reads the path of a request target as it was sent: one of the endpoints, or
// "/v1/PLUGIN/OPERATION"; a query is ignored, percent escapes are read.
Route routeOf(std::string_view target);

}  // namespace paddock
