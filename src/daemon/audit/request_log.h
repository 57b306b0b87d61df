// Log lines of the latest requests, for their callers.
//
// A request is known from its beginning to its end, and then as one of the last `kKeptRequests`;
// those of callers without rights are counted separately, so that they do not evict others. Memory
// is bounded: a request keeps `kRequestBytes` of lines, of which information and debug messages
// take at most half, so that they leave room for errors. Thread-safe.
#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/mutex.h"

namespace paddock {

struct LoggedLine {
  std::chrono::system_clock::time_point time;
  int priority = 0;  // of syslog(3)
  std::string text;
};

struct LoggedRequest {
  uid_t user = 0;  // its caller
  // In order. Where lines were omitted, the last one gives their number.
  std::vector<LoggedLine> lines;
};

class RequestLog {
 public:
  static constexpr std::size_t kKeptRequests = 1000;
  static constexpr std::size_t kRequestBytes = 16U << 10U;
  static constexpr std::size_t kLineBytes = 4U << 10U;

  // Starts collecting lines of the request. Those of a request sent by a program of `parent` belong
  // to `parent` as well.
  void begin(const std::string& id, uid_t user, const std::string& parent = {});
  // The request is answered. `stranger`: its caller has no rights.
  void end(const std::string& id, bool stranger);

  // The line of an unknown request is dropped.
  void add(const std::string& id, int priority, const std::string& text);

  // nullopt for a request that is unknown or was evicted.
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

  mutable Mutex mutex_;
  std::unordered_map<std::string, Entry> entries_ PADDOCK_GUARDED_BY(mutex_);
  // Oldest first; the second: of strangers.
  std::array<std::deque<std::string>, 2> ended_ PADDOCK_GUARDED_BY(mutex_);
};

// "error", "warning", "info" or "debug".
std::string_view levelOfPriority(int priority);

}  // namespace paddock
