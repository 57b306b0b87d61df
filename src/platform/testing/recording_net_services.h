// DNS-SD services that nobody hears of. Each keeps what it was told, and is published and withdrawn
// at once: its delegate is told on the thread of the caller, before the call returns.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/net_service.h"

namespace paddock {

class RecordingNetServices : public NetServices {
 public:
  struct Service {
    std::string domain;
    std::string type;
    std::string name;
    std::uint16_t port = 0;
    std::optional<Data> txtRecord;
    NetServiceDelegate* delegate = nullptr;
    bool isPublished = false;
    bool isGone = false;  // destroyed
  };

  RecordingNetServices();
  ~RecordingNetServices() override;

  // A type that is no "_NAME._tcp" or "_NAME._udp", and a port of 0, cannot be published.
  std::shared_ptr<NetService> createService(const std::string& domain, const std::string& type,
                                            const std::string& name, std::uint16_t port) override;

  // Every service that was ever made, in order, as it is now.
  std::vector<Service> services() const;
  // Those that are published now.
  std::vector<Service> published() const;

  struct State;

 private:
  std::shared_ptr<State> state_;
};

}  // namespace paddock
