// Ends connections whose next request head is not complete in time.
//
// The HTTP library's timeout restarts with each byte, so that a slow sender never reaches it; these
// deadlines are fixed. Thread-safe.
#pragma once

#include <chrono>
#include <map>

#include "base/mutex.h"

namespace paddock {

class HeadDeadlines {
 public:
  using Clock = std::chrono::steady_clock;

  // Total time for the head of a request.
  static constexpr std::chrono::seconds kHead{10};

  // The socket must be open until `clear`.
  void set(int socket, Clock::time_point deadline);
  // The head is complete, or the connection has ended.
  void clear(int socket);
  // Shuts down the sockets with an expired deadline.
  void endOverdue(Clock::time_point now);

 private:
  Mutex mutex_;
  std::map<int, Clock::time_point> deadlines_ PADDOCK_GUARDED_BY(mutex_);
};

}  // namespace paddock
