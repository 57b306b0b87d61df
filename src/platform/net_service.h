// Services advertised over DNS-SD (RFC 6763), and their delegates.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/mutex.h"
#include "base/value.h"

namespace paddock {

class NetServiceDelegate;

// One service. Its operations return at once, whether or not a DNS-SD service is there: it is
// published, and published again when that service comes back, in the background. A name that
// another host has is replaced by the next free one ("NAME #2"). Calls from any thread, but not
// concurrently.
class NetService {
 public:
  // Withdraws the service when it is still advertised. No callback runs during or after it.
  virtual ~NetService() = default;

  // The delegate that is notified of its state; may be null. It must live until another one is set,
  // or until the service is destroyed.
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
  // host's. Never null; invalid arguments are reported to the delegate on publication.
  virtual std::shared_ptr<NetService> createService(const std::string& domain,
                                                    const std::string& type,
                                                    const std::string& name,
                                                    std::uint16_t port) = 0;
};

// The owner of the share points' advertisement. Thread-safe.
class NetServiceOwner : public NetServiceDelegate {
 public:
  // Null when nothing is advertised.
  virtual std::shared_ptr<NetService> netService() const = 0;
  // Stores the new service, then releases the old one.
  virtual void setNetService(std::shared_ptr<NetService> service) = 0;
  // Held while the advertisement is renewed, from searching the share points to publishing.
  virtual Mutex& renewalMutex() = 0;
};

// The data of a DNS-SD service's TXT record (RFC 6763, section 6).

// The longest "KEY=VALUE", in bytes.
inline constexpr std::size_t kMaximumTxtString = 255;
// The longest record: what fits into the largest packet of Ethernet, of 9,000 bytes.
inline constexpr std::size_t kMaximumTxtRecord = 8900;

// The bytes of one string of a record, "KEY=VALUE" with its length.
std::size_t txtStringSize(std::string_view key, std::string_view value);
// Whether "KEY=VALUE" fits into one string of a TXT record.
bool fitsTxtString(std::string_view key, std::string_view value);

// One string per key, "sys" first and the others in the order of their keys, in which the digits at
// the end count as a number ("dk2" before "dk10"): its length in one byte, the key, "=" and the
// bytes of the value, which is data or text. An entry that is neither, or does not fit, is left
// out; a key is printable ASCII without "=".
Data dataFromTxtRecordDictionary(const Dictionary& entries);

// The strings of a TXT record; false when the data is none: a string that is longer than what is
// left.
bool stringsOfTxtRecord(const Data& data, std::vector<std::string>& strings);

}  // namespace paddock
