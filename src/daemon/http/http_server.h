// Serves the listening socket: one thread accepts (Acceptor), one thread per connection answers.
//
// The HTTP library handles the connections that this class has accepted and placed; its own limit
// is above the daemon's. Programs that a running request waits for are always admitted, so that
// their requests are answered however many others are waiting.
#pragma once

#include <map>
#include <memory>
#include <string_view>

#include "base/file_access.h"
#include "base/mutex.h"
#include "daemon/http/acceptor.h"
#include "daemon/http/admission.h"
#include "daemon/http/drainer.h"
#include "daemon/http/head_deadlines.h"
#include "daemon/service.h"

struct MHD_Daemon;

namespace paddock {

class HttpServer {
 public:
  // Starts serving. `listener` must stay open as long as this object lives. Throws
  // std::runtime_error when the HTTP library cannot be started.
  HttpServer(Service& service, int listener);
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;
  // Closes, and ends all connections.
  ~HttpServer();

  // Applies the limits of the service's configuration after it has changed.
  void changeLimits();

  // From now on, requests are refused, except those of programs that a running request waits for
  // and of this process. Returns when the running ones are answered.
  void close();

 private:
  friend struct HttpCallbacks;
  struct Connection;
  struct Request;

  void startLibrary();
  Acceptor::Door door();
  // False when there is no place for one with these rights.
  bool take(Acceptor::Arrival& arrival, Rights rights);
  void hand(FileDescriptor socket, std::unique_ptr<Connection> connection);
  // For a connection that is not taken, or whose request is malformed.
  void answerUnasked(FileDescriptor socket, const Peer& peer, bool stranger, int status,
                     std::string_view why);
  AccessPolicy policy() const;

  Service& service_;
  ConnectionLimits limits_;
  RequestGate gate_;
  bool waited_ = false;
  Drainer drainer_;
  HeadDeadlines deadlines_;
  // Accepted connections on their way into the library, by descriptor.
  Mutex arrivingMutex_;
  std::map<int, std::unique_ptr<Connection>> arriving_ PADDOCK_GUARDED_BY(arrivingMutex_);
  MHD_Daemon* library_ = nullptr;
  Acceptor acceptor_;
};

}  // namespace paddock
