// DNS-SD publication that is switched off: services can be made and published, and nobody hears of
// them.
#pragma once

#include "platform/net_service.h"

namespace paddock {

class SilentNetServices final : public NetServices {
 public:
  std::shared_ptr<NetService> createService(const std::string& domain, const std::string& type,
                                            const std::string& name, std::uint16_t port) override;
};

}  // namespace paddock
