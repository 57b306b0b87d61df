#include "paddock_services/host_addresses.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <future>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

namespace paddock {

namespace {

struct AddressListDeleter {
  void operator()(addrinfo* list) const { ::freeaddrinfo(list); }
};

HostAddresses resolve(const std::string& host) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* first = nullptr;
  const int error = ::getaddrinfo(host.c_str(), nullptr, &hints, &first);
  const std::unique_ptr<addrinfo, AddressListDeleter> list(first);
  HostAddresses result;
  if (error != 0) {
    result.reason = ::gai_strerror(error);
    return result;
  }
  for (const addrinfo* one = list.get(); one != nullptr; one = one->ai_next) {
    std::array<char, NI_MAXHOST> text{};
    if (::getnameinfo(one->ai_addr, one->ai_addrlen, text.data(), text.size(), nullptr, 0,
                      NI_NUMERICHOST) == 0)
      result.addresses.emplace(text.data());
  }
  result.outcome = HostAddresses::Outcome::found;
  return result;
}

bool isNumber(const std::string& host) {
  std::array<unsigned char, sizeof(in6_addr)> address{};
  return ::inet_pton(AF_INET, host.c_str(), address.data()) == 1 ||
         ::inet_pton(AF_INET6, host.c_str(), address.data()) == 1;
}

}  // namespace

HostAddresses addressesOfHost(const std::string& host, std::chrono::milliseconds limit) {
  // The promise belongs to the thread, which may outlive this call.
  std::promise<HostAddresses> promise;
  std::future<HostAddresses> answer = promise.get_future();
  try {
    std::thread([host, promise = std::move(promise)]() mutable {
      promise.set_value(resolve(host));
    }).detach();
  } catch (const std::system_error&) {
    return {HostAddresses::Outcome::late, {}, {}};
  }
  if (answer.wait_for(limit) == std::future_status::ready) return answer.get();
  return {HostAddresses::Outcome::late, {}, {}};
}

const HostAddresses& HostResolver::of(const std::string& host) {
  const auto known = known_.find(host);
  if (known != known_.end()) return known->second;
  if (isNumber(host)) return known_[host] = resolve(host);
  const auto start = std::chrono::steady_clock::now();
  HostAddresses found = left_.count() > 0 ? addressesOfHost(host, std::min(each_, left_))
                                          : HostAddresses{HostAddresses::Outcome::late, {}, {}};
  left_ -= std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 start);
  return known_[host] = std::move(found);
}

}  // namespace paddock
