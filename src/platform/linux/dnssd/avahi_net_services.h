// DNS-SD publication through the Avahi daemon.
//
// The service names what it advertises after the host as Avahi calls it, and follows it when Avahi
// gives the host another name. While there is no bus or no daemon it waits for them, and publishes
// again when they come back. `netServiceDidNotPublish` is told of what will not get better by
// waiting: "error", a text, and "errorCode", a number of avahi-common/error.h.
#pragma once

#include <chrono>
#include <memory>

#include "platform/net_service.h"

namespace paddock {

class Logger;

namespace dns_sd {
class AvahiPublisher;
}

struct AvahiNetServicesOptions {
  // Null: nothing is logged. It outlives the services.
  Logger* logger = nullptr;
  // How long it is waited before the bus is tried again: twice as long each time, up to the
  // longest.
  std::chrono::milliseconds firstPause = std::chrono::seconds(1);
  std::chrono::milliseconds longestPause = std::chrono::seconds(30);
};

class AvahiNetServices final : public NetServices {
 public:
  // Does not look for the daemon, nor start a thread, before a service is published.
  explicit AvahiNetServices(AvahiNetServicesOptions options);
  // Withdraws every service; no delegate is called and nothing is logged afterwards. Waits a moment
  // for a daemon that answers, a quarter of a second, and not for one that does not.
  ~AvahiNetServices() override;

  std::shared_ptr<NetService> createService(const std::string& domain, const std::string& type,
                                            const std::string& name, std::uint16_t port) override;

 private:
  std::shared_ptr<dns_sd::AvahiPublisher> publisher_;
};

}  // namespace paddock
