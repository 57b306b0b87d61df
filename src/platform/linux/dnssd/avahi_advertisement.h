// Keeps a service published: under the next free name on a collision, and under the host's current
// name.
//
// All functions require the lock of the poll thread, and may block (see avahi_connection.h).
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "platform/linux/dnssd/avahi_entry.h"

namespace paddock::dns_sd {

class AvahiAdvertisement {
 public:
  using Time = std::chrono::steady_clock::time_point;
  enum class State {
    pending,       // being probed, or waiting
    published,     // visible on the network
    refused,       // rejected by the daemon: `error`
    disconnected,  // the connection is no longer usable: `error`
  };

  // Precondition: `description` is valid. `changed` as in AvahiEntry.
  AvahiAdvertisement(ServiceDescription description, std::function<void()> changed);

  const ServiceDescription& description() const { return description_; }

  // Advances the publication. Precondition: the daemon is running. A refused one is retried with
  // another TXT record.
  State maintain(AvahiConnection& connection, const Data& txt, Time now);
  // Both end the publication; it can be maintained again.
  void withdraw();
  void forget();  // as in AvahiEntry

  // The name that it is published or probed under; empty before.
  const std::string& name() const { return name_; }
  int error() const { return error_; }
  // When `maintain` is due without a change of the state.
  std::optional<Time> due() const { return notBefore_; }

 private:
  State establish(AvahiConnection& connection, Time now);
  State update(const Data& txt, AvahiConnection& connection, Time now);
  bool followHostName(AvahiConnection& connection);
  void takeNextName(Time now);
  State failed(int error);

  const ServiceDescription description_;
  const std::function<void()> changed_;
  std::optional<AvahiEntry> entry_;
  Data txt_;
  std::string host_;  // the full host name that the entry was created with
  std::string base_;  // the original of `name_`
  std::string name_;
  int collisions_ = 0;
  std::optional<Time> notBefore_;
  bool refused_ = false;
  int error_ = 0;
};

}  // namespace paddock::dns_sd
