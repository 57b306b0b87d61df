// A service that is kept published: under the next free name when another has its name, and under
// the host's present name.
//
// Everything here is called with the lock of the poll thread held, and may take long, as
// avahi_connection.h says.
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
    pending,       // it is probed for, or there is something to wait for
    published,     // others see it
    refused,       // the daemon does not take it: `error`
    disconnected,  // the connection is of no use any more: `error`
  };

  // `description` has nothing wrong. `changed` as AvahiEntry has it.
  AvahiAdvertisement(ServiceDescription description, std::function<void()> changed);

  const ServiceDescription& description() const { return description_; }

  // Does what there is to do; the daemon is running. One that was refused is tried again with
  // another TXT record.
  State maintain(AvahiConnection& connection, const Data& txt, Time now);
  // Both end the publication; it can be maintained again.
  void withdraw();
  void forget();  // as AvahiEntry has it

  // Under which it is published or probed for; empty before.
  const std::string& name() const { return name_; }
  int error() const { return error_; }
  // When there is something to do without a change of the state.
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
  std::string host_;  // all of the host's name that the entry was made with
  std::string base_;  // the name that `name_` began as
  std::string name_;
  int collisions_ = 0;
  std::optional<Time> notBefore_;
  bool refused_ = false;
  int error_ = 0;
};

}  // namespace paddock::dns_sd
