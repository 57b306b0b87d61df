// Maintains a connection to the Avahi daemon, and re-establishes it on failure, with back-off.
//
// Belongs to one thread, which holds the lock of the poll thread in every call unless noted
// otherwise.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <set>
#include <string>

#include "base/mutex.h"
#include "platform/linux/dnssd/avahi_connection.h"

namespace paddock {
class Logger;
}

namespace paddock {

// Exponential back-off between failed attempts: each pause is twice the previous, up to the
// longest.
class BackOff {
 public:
  // 0 < first <= longest.
  BackOff(std::chrono::milliseconds first, std::chrono::milliseconds longest)
      : first_(first), longest_(longest), next_(first) {}

  // The pause before the next attempt.
  std::chrono::milliseconds pause() {
    const auto pause = next_;
    next_ = pause > longest_ / 2 ? longest_ : pause * 2;
    return pause;
  }
  // To be called after a successful attempt.
  void reset() { next_ = first_; }

 private:
  std::chrono::milliseconds first_;
  std::chrono::milliseconds longest_;
  std::chrono::milliseconds next_;
};

}  // namespace paddock

namespace paddock::dns_sd {

class DnsSdLog;

class AvahiLink {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // `changed` is called after each change of the connection's state, as in AvahiConnection.
  AvahiLink(DnsSdLog& log, BackOff pauses, std::function<void()> changed);

  // The poll thread, started with the first call; null when that fails. Without the lock.
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
  // Closes it, with its own error when it has failed, else with this one, and starts the pause. Its
  // entries must have been forgotten before.
  void drop(int error);
  void close() { connection_.reset(); }
  // The time of the next connection attempt.
  Time retry() const { return retry_; }
  // To be called when the daemon was found running.
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

// Log of DNS-SD, for a thread that may outlive the logger.
class DnsSdLog {
 public:
  // Null: nothing is logged. The logger must live until `close`.
  explicit DnsSdLog(Logger* logger) : logger_(logger) {}

  // Thread-safe.
  void log(int priority, const std::string& text);
  // Nothing is logged afterwards. Waits for a line that is being logged.
  void close();

  // A warning that is not repeated until the failure has ended. These belong to one thread.
  void warnOnce(const std::string& text);
  // Whether there was any.
  bool troubleIsOver();

 private:
  Mutex mutex_;
  Logger* logger_ PADDOCK_GUARDED_BY(mutex_);
  std::set<std::string> warned_;
};

}  // namespace paddock::dns_sd
