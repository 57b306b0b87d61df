// What the last requests logged, for the people who made them.
//
// A request is known from its beginning to its end, and then as one of the last `kKeptRequests`;
// those of callers without rights are counted apart, so that they push out nobody else's. Memory is
// bounded: a request keeps `kRequestBytes` of lines, of which information and debug messages take
// at most half, so that they leave room for errors. Any thread may call.
#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace paddock {

struct LoggedLine {
  std::chrono::system_clock::time_point time;
  int priority = 0;  // of syslog(3)
  std::string text;
};

struct LoggedRequest {
  uid_t user = 0;  // who made it
  // In their order. Where lines were left out, the last one says how many.
  std::vector<LoggedLine> lines;
};

class RequestLog {
 public:
  static constexpr std::size_t kKeptRequests = 1000;
  static constexpr std::size_t kRequestBytes = 16U << 10U;
  static constexpr std::size_t kLineBytes = 4U << 10U;

  // From now on lines of the request are taken. Those of a request that a program of `parent` made
  // belong to `parent` as well.
  void begin(const std::string& id, uid_t user, const std::string& parent = {});
  // The request is answered. `stranger`: its caller has no rights.
  void end(const std::string& id, bool stranger);

  // Of a request that is not known the line is dropped.
  void add(const std::string& id, int priority, const std::string& text);

  // Nothing for a request that is not known, or not any more.
  std::optional<LoggedRequest> find(const std::string& id) const;

 private:
  struct Entry {
    LoggedRequest request;
    std::string parent;
    std::size_t bytes = 0;
    std::size_t leftOut = 0;
    std::chrono::system_clock::time_point lastLeftOut;
  };

  static void keep(Entry& entry, LoggedLine line);

  mutable std::mutex mutex_;
  std::unordered_map<std::string, Entry> entries_;
  std::array<std::deque<std::string>, 2> ended_;  // oldest first; the second: of strangers
};

// "error", "warning", "info" or "debug".
std::string_view levelOfPriority(int priority);

}  // namespace paddock
