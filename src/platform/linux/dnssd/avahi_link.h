// Keeps a connection to the Avahi daemon: makes it, and makes another one when it fails, after a
// pause that grows.
//
// Of one thread, which holds the lock of the poll thread in every call but those that say
// otherwise.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "platform/linux/dnssd/avahi_connection.h"
#include "platform/linux/dnssd/avahi_poll_thread.h"
#include "platform/linux/dnssd/back_off.h"

namespace paddock::dns_sd {

class DnsSdLog;

class AvahiLink {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // `changed` is called after each change of the connection's state, as AvahiConnection says.
  AvahiLink(DnsSdLog& log, BackOff pauses, std::function<void()> changed);

  // The poll thread, started with the first call; null when it cannot be. Without the lock.
  AvahiPollThread* pollThread();
  // Ends the poll thread. There is no connection any more. Without the lock.
  void end() { poll_.reset(); }

  // Connects when there is no connection and the pause is over.
  void connect(Time now);
  // AVAHI_CLIENT_FAILURE when there is none, or it has failed.
  AvahiClientState state() const;
  bool isConnected() const { return connection_.has_value(); }
  // Precondition: there is one.
  AvahiConnection& connection() { return *connection_; }
  // Ends it, because of its own error when it has failed, else of this one, and begins the pause.
  // What was published over it was forgotten before.
  void drop(int error);
  void close() { connection_.reset(); }
  // When it may be connected again.
  Time retry() const { return retry_; }
  // After a call that found the daemon running.
  void noteRunning();

 private:
  void pauseAfter(const std::string& reason);

  DnsSdLog& log_;
  BackOff pauses_;
  const std::function<void()> changed_;
  std::optional<AvahiPollThread> poll_;
  std::optional<AvahiConnection> connection_;
  Time retry_{};
};

}  // namespace paddock::dns_sd
