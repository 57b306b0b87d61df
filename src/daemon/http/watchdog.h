// Proves at intervals that requests are answered.
//
// A thread makes a request at the served socket, as any client does: through the queue of
// connections, the acceptor, the HTTP library and an exchange. Only its answer is a sign of life,
// so that none comes when any of these hangs. The request is one that no plug-in takes part in and
// no lock of one is needed for: an operation may take as long as it needs.
#pragma once

#include <sys/un.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>

#include "daemon/idle_clock.h"

namespace paddock {

class Watchdog {
 public:
  using Clock = std::chrono::steady_clock;

  // `path`: of the served socket, short enough to be one. `limit`: the time within which `alive` is
  // to be called; a request is made four times as often, and has half of it. A failed one is
  // logged.
  Watchdog(const std::string& path, std::chrono::microseconds limit, std::function<void()> alive);
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;
  // Gives a running request up.
  ~Watchdog() { stopping_ = true; }

 private:
  void prove();
  // Why the request is not answered; empty when it is.
  std::string faultOf(Clock::time_point deadline) const;
  std::string connectTo(int socket, Clock::time_point deadline) const;
  std::string faultOfReply(int socket, Clock::time_point deadline) const;
  bool mayWait(Clock::time_point deadline) const;

  const std::chrono::microseconds limit_;
  const std::function<void()> alive_;
  const sockaddr_un address_;
  std::atomic<bool> stopping_ = false;
  // Last: its thread uses the others.
  IdleClock clock_;
};

}  // namespace paddock
