// DNS-SD services without a network. Each records its settings, and is published and withdrawn
// synchronously: its delegate is notified on the thread of the caller, before the call returns.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/net_service.h"
#include "platform/testing/call_rules.h"

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

// DNS-SD services. Making one cannot fail; a failure is a TXT record that is not taken, and a
// service that is not published and whose delegate is notified of that. Operations: createService
// (subject: the type, detail: the port), setDelegate, setTxtRecordData, publish, stop (subject: the
// type); a trace's rule with a number keeps a service from being withdrawn by `stop`.
class ForwardingNetServices final : public Forwarder<NetServices> {
 public:
  using Forwarder::Forwarder;
  std::shared_ptr<NetService> createService(const std::string& domain, const std::string& type,
                                            const std::string& name, std::uint16_t port) override;
};

}  // namespace paddock
