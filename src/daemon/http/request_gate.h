// Counts the requests that are under way, and closes for the end of the daemon.
//
// Once closed, only requests of programs that running requests wait for are let in, because those
// requests could not be answered otherwise.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace paddock {

class RequestGate {
 public:
  // Lets a request in, unless the gate is closed and the request is not `nested`.
  bool enter(bool nested);
  // The request's body is complete: from here on it is waited for without a limit.
  void bodyComplete();
  // The request is answered, or over. `complete`: bodyComplete was called for it.
  void leave(bool complete);

  void close();
  bool closed() const;
  // Waits until every request that is in is answered; for those whose body is still on its way
  // only `patience` long.
  void waitUntilEmpty(std::chrono::milliseconds patience);

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool closed_ = false;
  std::size_t receiving_ = 0;
  std::size_t running_ = 0;
};

}  // namespace paddock
