// DNS-SD publication through the Avahi daemon.
//
// Services are named after the host name of Avahi, and renamed when Avahi changes that. While there
// is no bus or no daemon it waits for them, and republishes when they come back.
// `netServiceDidNotPublish` reports permanent errors: "error", a text, and "errorCode", a number of
// avahi-common/error.h.
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
  // Null: nothing is logged. Must outlive the services.
  Logger* logger = nullptr;
  // Pause before the bus is retried: doubled each time, up to the longest.
  std::chrono::milliseconds firstPause = std::chrono::seconds(1);
  std::chrono::milliseconds longestPause = std::chrono::seconds(30);
};

class AvahiNetServices final : public NetServices {
 public:
  // Neither connects to the daemon nor starts a thread before a service is published.
  explicit AvahiNetServices(AvahiNetServicesOptions options);
  // Withdraws every service; no delegate is called and nothing is logged afterwards. Waits up to a
  // quarter of a second for a daemon that answers, and not for one that does not.
  ~AvahiNetServices() override;

  std::shared_ptr<NetService> createService(const std::string& domain, const std::string& type,
                                            const std::string& name, std::uint16_t port) override;

 private:
  std::shared_ptr<dns_sd::AvahiPublisher> publisher_;
};

// Disabled DNS-SD publication: services can be created and published, without any effect.
class SilentNetServices final : public NetServices {
 public:
  std::shared_ptr<NetService> createService(const std::string& domain, const std::string& type,
                                            const std::string& name, std::uint16_t port) override;
};

}  // namespace paddock
