// Request ids: unique in the lifetime of the daemon, and, by a random part, across restarts.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

namespace paddock {

class RequestIds {
 public:
  RequestIds();
  std::string next();

 private:
  std::string prefix_;
  std::atomic<std::uint64_t> counter_{0};
};

// The target of a request's path.
struct Route {
  enum class Kind { none, health, plugins, openApi, audit, requestLog, operation };
  Kind kind = Kind::none;
  std::string plugin;
  std::string operation;
  std::string request;  // the id of the request whose log is asked for
};

// The daemon's own endpoints; parameters are in braces.
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

// Parses the path of a raw request target: one of the endpoints, or "/v1/PLUGIN/OPERATION"; a query
// is ignored, percent escapes are decoded.
Route routeOf(std::string_view target);

}  // namespace paddock
