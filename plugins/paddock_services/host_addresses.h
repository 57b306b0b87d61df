// The addresses of a host, resolved within a time limit.
#pragma once

#include <chrono>
#include <map>
#include <set>
#include <string>

namespace paddock {

struct HostAddresses {
  enum class Outcome { found, none, late };
  Outcome outcome = Outcome::none;
  std::set<std::string> addresses;  // as numbers: "192.0.2.1", "2001:db8::1"
  std::string reason;               // of `none`: the resolver's own
};

// As getaddrinfo(3) resolves the name, or the number itself. `late`: the resolver has not answered
// within `limit`; it continues in the background, and its answer is discarded. Thread-safe.
HostAddresses addressesOfHost(const std::string& host, std::chrono::milliseconds limit);

// Resolves each host once, all of them within one time limit: once it has expired, hosts are `late`
// immediately, except numeric addresses. Not thread-safe.
class HostResolver {
 public:
  explicit HostResolver(std::chrono::milliseconds each = std::chrono::seconds(3),
                        std::chrono::milliseconds all = std::chrono::seconds(10))
      : each_(each), left_(all) {}

  const HostAddresses& of(const std::string& host);

 private:
  const std::chrono::milliseconds each_;
  std::chrono::milliseconds left_;
  std::map<std::string, HostAddresses> known_;
};

}  // namespace paddock
