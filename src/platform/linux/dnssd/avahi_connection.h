// A connection to the Avahi daemon over D-Bus, established or pending.
//
// All functions require the lock of the poll thread. A call may block until the D-Bus timeout, half
// a minute or more. See avahi-client/client.h.
#pragma once

#include <avahi-client/client.h>
#include <avahi-common/thread-watch.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace paddock::dns_sd {

class AvahiConnection {
 public:
  // Connects to the bus; the daemon need not be there yet. `changed` is called after each change of
  // the state, on the poll thread or in a call; it may not call back.
  AvahiConnection(const AvahiPoll* poll, std::function<void()> changed);
  AvahiConnection(const AvahiConnection&) = delete;
  AvahiConnection& operator=(const AvahiConnection&) = delete;
  // Withdraws what was published over it. Entry groups must be released before.
  ~AvahiConnection() = default;

  // AVAHI_CLIENT_FAILURE also when there is no bus: this connection is no longer usable.
  AvahiClientState state() const { return state_; }
  // Why it failed, a number of avahi-common/error.h.
  int error() const { return error_; }
  // Null when there is no bus.
  AvahiClient* client() const { return client_.get(); }

  // The host's name on the network, which may differ from its own: its first label, and the full
  // name. nullopt when the daemon does not report it.
  std::optional<std::string> hostName();
  std::optional<std::string> fullHostName();

 private:
  struct Free {
    void operator()(AvahiClient* client) const { avahi_client_free(client); }
  };

  static void stateChanged(AvahiClient* client, AvahiClientState state, void* connection);

  const std::function<void()> changed_;
  AvahiClientState state_ = AVAHI_CLIENT_CONNECTING;
  int error_ = 0;
  std::unique_ptr<AvahiClient, Free> client_;
};

// The event loop of Avahi's client library, on a thread of its own.
//
// Its lock is held around every call of the library, and is held while the library calls back; it
// meets the BasicLockable requirements. See avahi-common/thread-watch.h.
class AvahiPollThread {
 public:
  // Throws std::runtime_error when the thread cannot be created.
  AvahiPollThread();
  AvahiPollThread(const AvahiPollThread&) = delete;
  AvahiPollThread& operator=(const AvahiPollThread&) = delete;
  // Waits for a running callback. Must not be called with the lock held, nor from a callback.
  ~AvahiPollThread();

  void lock();
  void unlock();

  const AvahiPoll* api();

 private:
  struct Free {
    void operator()(AvahiThreadedPoll* poll) const { avahi_threaded_poll_free(poll); }
  };
  std::unique_ptr<AvahiThreadedPoll, Free> poll_;
};

}  // namespace paddock::dns_sd
