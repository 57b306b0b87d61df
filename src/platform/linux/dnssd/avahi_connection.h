// A connection to the Avahi daemon over D-Bus, or the wait for one.
//
// Everything here is called with the lock of the poll thread held. A call may take as long as D-Bus
// waits for an answer, half a minute or more. See avahi-client/client.h.
#pragma once

#include <avahi-client/client.h>

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
  // Withdraws what was published over it. Entry groups are let go of before.
  ~AvahiConnection() = default;

  // AVAHI_CLIENT_FAILURE also when there is no bus: this connection is of no use any more.
  AvahiClientState state() const { return state_; }
  // Why it failed, a number of avahi-common/error.h.
  int error() const { return error_; }
  // Null when there is no bus.
  AvahiClient* client() const { return client_.get(); }

  // The name that the host has on the network, which may be another one than it has itself: its
  // first label, and all of it. Absent when the daemon does not say.
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

}  // namespace paddock::dns_sd
