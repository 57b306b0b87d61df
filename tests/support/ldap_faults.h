// Servers that misbehave, for tests of what talks to directory servers.
#pragma once

#include <string>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "base/file_access.h"

namespace paddock {

// The size of the first LDAP message (BER, definite length) in the bytes; 0 when it is not whole.
std::size_t ldapMessageSize(const std::string& bytes);

// Listens on a port of the loopback interface.
class LoopbackListener {
 public:
  LoopbackListener();
  int port() const { return port_; }
  int get() const { return socket_.get(); }
  std::string uri(const std::string& scheme = "ldap") const {
    return scheme + "://127.0.0.1:" + std::to_string(port_);
  }

 private:
  FileDescriptor socket_;
  int port_ = 0;
};

// Accepts every connection, sends it some bytes, and then stays silent until it ends.
class TalkingServer {
 public:
  explicit TalkingServer(std::string words);
  ~TalkingServer();
  std::string uri() const { return listener_.uri(); }
  int connections() const { return connections_; }

 private:
  void serve();

  LoopbackListener listener_;
  const std::string words_;
  std::atomic<bool> stop_{false};
  std::atomic<int> connections_{0};
  std::thread thread_;
};

// A proxy between a client and a server on a Unix socket: counts the messages of the client, and
// breaks the connection at one of them.
class CuttingProxy {
 public:
  enum class Cut {
    request,  // the message does not reach the server
    answer,   // it does, and its answers do not reach the client
  };

  explicit CuttingProxy(std::string serverPath);
  ~CuttingProxy();
  std::string uri() const { return listener_.uri(); }

  // Breaks at message `number` (from 1, counted from now on, over all connections). With `forGood`,
  // every later connection is closed at once. Waits first for the end of those that there are,
  // whose last words would count: the clients have closed them.
  void cutAt(int number, Cut cut, bool forGood);
  // Called on a thread of the proxy's when it breaks: before the request is dropped, or when the
  // server has answered it. Set before `cutAt`.
  void onCut(std::function<void()> called) { called_ = std::move(called); }
  // Never breaks, until the next `cutAt`.
  void heal();
  // Whether it has broken since the last `cutAt`.
  bool hasCut() const { return hasCut_; }

 private:
  void awaitEnds() const;
  void acceptAll();
  void carry(FileDescriptor client);
  // Whether the client's message is forwarded to the server.
  bool admit();

  LoopbackListener listener_;
  const std::string serverPath_;
  std::atomic<bool> stop_{false};
  std::atomic<int> messages_{0};
  std::atomic<int> cutNumber_{0};
  std::atomic<Cut> cut_{Cut::request};
  std::atomic<bool> forGood_{false};
  std::atomic<bool> hasCut_{false};
  std::atomic<int> carrying_{0};
  std::function<void()> called_ = [] {};
  std::thread thread_;
};

}  // namespace paddock
