// Services advertised over DNS-SD (RFC 6763), and who hears of their fate.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "base/value.h"

namespace paddock {

class NetServiceDelegate;

// One service. Its operations return at once, whether or not a DNS-SD service is there: it is
// published, and published again when that service comes back, in the background. A name that
// another host has is replaced by the next free one ("NAME #2"). Any thread may call, one at a
// time.
class NetService {
 public:
  // Withdraws the service when it is still advertised. No callback runs during or after it.
  virtual ~NetService() = default;

  // Who is told of its fate; null: nobody. The caller keeps the delegate alive until it has set
  // another one, or until the service is destroyed.
  virtual void setDelegate(NetServiceDelegate* delegate) = 0;
  // The TXT record, as `dataFromTxtRecordDictionary` makes it; of a service that is published, too.
  // False when the data is no TXT record; the old one is then kept.
  virtual bool setTxtRecordData(const Data& data) = 0;
  virtual void publish() = 0;
  // Withdraws it. It can be published again.
  virtual void stop() = 0;
};

// Called on a thread of the DNS-SD service; the callee may not wait for it, nor destroy the
// service.
class NetServiceDelegate {
 public:
  virtual ~NetServiceDelegate() = default;
  virtual void netServiceWillPublish(NetService& sender) = 0;
  virtual void netServiceDidNotPublish(NetService& sender, const Dictionary& errors) = 0;
  virtual void netServiceDidStop(NetService& sender) = 0;
};

class NetServices {
 public:
  virtual ~NetServices() = default;
  // A service that is not published yet. An empty domain is the default one, an empty name the
  // host's. Never null; what is wrong with the arguments is told to the delegate when it is
  // published.
  virtual std::shared_ptr<NetService> createService(const std::string& domain,
                                                    const std::string& type,
                                                    const std::string& name,
                                                    std::uint16_t port) = 0;
};

// Who keeps the advertisement of the share points. Any thread may call.
class NetServiceOwner : public NetServiceDelegate {
 public:
  // Null when nothing is advertised.
  virtual std::shared_ptr<NetService> netService() const = 0;
  // Keeps the new service, then lets go of the old one.
  virtual void setNetService(std::shared_ptr<NetService> service) = 0;
  // Held while the advertisement is renewed, from looking for what is advertised to publishing it.
  virtual std::mutex& renewalMutex() = 0;
};

}  // namespace paddock
