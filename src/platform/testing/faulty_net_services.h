// DNS-SD services that fail as a FaultPlan says. See faulty_services.h.
#pragma once

#include "platform/net_service.h"
#include "platform/testing/faulty_platform.h"

namespace paddock {

// Making a service cannot fail; what is done with it can: "netService.setTxtRecordData" and
// "netService.publish".
class FaultyNetServices : public FaultyForwarder<NetServices> {
 public:
  FaultyNetServices(NetServices& wrapped, FaultPlan& plan)
      : FaultyForwarder(wrapped, plan), plan_(plan) {}
  std::shared_ptr<NetService> createService(const std::string& domain, const std::string& type,
                                            const std::string& name, std::uint16_t port) override;

 private:
  FaultPlan& plan_;
};

}  // namespace paddock
