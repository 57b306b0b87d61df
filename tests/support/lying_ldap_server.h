// A directory server that sends scripted answers, and a proxy that slows down a real one.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/ldap_faults.h"

namespace paddock {

// Messages of a server (RFC 4511), as they go over the connection.
namespace ldap_messages {

using Attribute = std::pair<std::string, std::vector<std::string>>;

std::string entry(int request, const std::string& dn, const std::vector<Attribute>& attributes);
std::string reference(int request, const std::string& uri);
// The end of a search, with what the next page is asked for with; empty: there is none.
std::string searchDone(int request, const std::string& cookie = {});
// A bind that ends in the result.
std::string bindDone(int request, int result, const std::string& diagnostic);

}  // namespace ldap_messages

class LyingLdapServer {
 public:
  // Sends bytes to the client; false when it no longer receives them.
  using Send = std::function<bool(const std::string& bytes)>;
  // Answers the request with this message id.
  using Answer = std::function<void(int request, const Send& send)>;

  // Each connection has a thread of its own. Every bind succeeds unless `onBind` answers it.
  explicit LyingLdapServer(Answer onSearch, Answer onBind = nullptr);
  LyingLdapServer(const LyingLdapServer&) = delete;
  LyingLdapServer& operator=(const LyingLdapServer&) = delete;
  // Also ends threads that send endlessly.
  ~LyingLdapServer();

  std::string uri() const { return listener_.uri(); }
  int searches() const { return searches_; }

 private:
  void acceptAll();
  void serve(const FileDescriptor& client);
  void answer(const std::string& request, const Send& send);

  LoopbackListener listener_;
  const Answer onSearch_;
  const Answer onBind_;
  std::atomic<bool> stop_{false};
  std::atomic<int> searches_{0};
  std::vector<std::thread> serving_;
  std::thread thread_;
};

// Forwards bytes between clients and a server on a port of the loopback interface. While it drips,
// the server's output arrives a byte at a time.
class DrippingProxy {
 public:
  explicit DrippingProxy(int serverPort);
  DrippingProxy(const DrippingProxy&) = delete;
  DrippingProxy& operator=(const DrippingProxy&) = delete;
  ~DrippingProxy();

  std::string uri(const std::string& scheme) const { return listener_.uri(scheme); }
  void drip() { drips_ = true; }

 private:
  void acceptAll();
  void carry(const FileDescriptor& client);
  bool passOn(int from, int to, bool slowly) const;

  LoopbackListener listener_;
  const int serverPort_;
  std::atomic<bool> stop_{false};
  std::atomic<bool> drips_{false};
  std::vector<std::thread> carrying_;
  std::thread thread_;
};

}  // namespace paddock
