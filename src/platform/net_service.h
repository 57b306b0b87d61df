// A service advertised over DNS-SD (RFC 6763), and who hears of its fate.
#pragma once

#include <memory>

#include "base/value.h"

namespace paddock {

class NetService {
 public:
  // Withdraws the service when it is still advertised.
  virtual ~NetService() = default;
};

// Called on a thread of the DNS-SD service; the callee may not wait for it.
class NetServiceDelegate {
 public:
  virtual ~NetServiceDelegate() = default;
  virtual void netServiceWillPublish(NetService& sender) = 0;
  virtual void netServiceDidNotPublish(NetService& sender, const Dictionary& errors) = 0;
  virtual void netServiceDidStop(NetService& sender) = 0;
};

// Who keeps the advertisement of the share points. Any thread may call.
class NetServiceOwner {
 public:
  virtual ~NetServiceOwner() = default;
  // Null when nothing is advertised.
  virtual std::shared_ptr<NetService> netService() const = 0;
  // Keeps the new service, then lets go of the old one.
  virtual void setNetService(std::shared_ptr<NetService> service) = 0;
};

}  // namespace paddock
