// Ends connections whose next request does not get its head together in time.
//
// The HTTP library counts the time since the last byte, which somebody who sends one now and then
// renews for ever; these deadlines are fixed. Any thread.
#pragma once

#include <chrono>
#include <map>
#include <mutex>

namespace paddock {

class HeadDeadlines {
 public:
  using Clock = std::chrono::steady_clock;

  // What the head of a request may take in all.
  static constexpr std::chrono::seconds kHead{10};

  // The socket must be open until `clear`.
  void set(int socket, Clock::time_point deadline);
  // The head is there, or the connection is over.
  void clear(int socket);
  // Shuts down the sockets whose deadline has passed.
  void endOverdue(Clock::time_point now);

 private:
  std::mutex mutex_;
  std::map<int, Clock::time_point> deadlines_;
};

}  // namespace paddock
