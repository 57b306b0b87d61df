#include "daemon/http/http_server.h"

#include <fcntl.h>
#include <malloc.h>
#include <microhttpd.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <utility>

#include "base/text.h"
#include "daemon/http/exchange.h"
#include "daemon/http/head_reader.h"
#include "paddock/sys_logger.h"

namespace paddock {
namespace {

constexpr std::size_t kWaitingConnections = 64;
// Connections of nested programs come on top; the library must never be what refuses one.
constexpr std::size_t kReserveForPrograms = 1024;
constexpr std::size_t kConnectionMemory = 64U << 10U;
constexpr std::size_t kThreadStack = 1U << 20U;
constexpr std::size_t kBig = 1U << 20U;
constexpr auto kBodyPatience = std::chrono::seconds(5);

constexpr const char* kBusy = "too many connections";
constexpr const char* kStopping = "the daemon is being stopped";

int descriptorOf(MHD_Connection* connection) {
  const auto* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
  return info != nullptr ? info->connect_fd : -1;
}

struct MhdResponseDeleter {
  void operator()(MHD_Response* response) const { MHD_destroy_response(response); }
};
using ResponsePointer = std::unique_ptr<MHD_Response, MhdResponseDeleter>;

ResponsePointer makeResponse(Reply reply, const std::string& id) {
  auto body = std::make_unique<std::string>(std::move(reply.body));
  ResponsePointer response(MHD_create_response_from_buffer_with_free_callback_cls(
      body->size(), body->data(),
      [](void* text) { delete static_cast<std::string*>(text); },  // NOLINT: released below
      body.get()));
  if (!response) throw std::bad_alloc();
  (void)body.release();
  const auto add = [&response](const char* name, const std::string& value) {
    MHD_add_response_header(response.get(), name, value.c_str());
  };
  add(MHD_HTTP_HEADER_CONTENT_TYPE, std::string(contentTypeOf(reply.form)));
  add("X-Request-Id", id);
  if (!reply.allow.empty()) add(MHD_HTTP_HEADER_ALLOW, reply.allow);
  if (!reply.etag.empty()) add(MHD_HTTP_HEADER_ETAG, reply.etag);
  if (reply.close) add(MHD_HTTP_HEADER_CONNECTION, "close");
  return response;
}

}  // namespace

struct HttpServer::Connection {
  Connection(HttpServer& owner, const Acceptor::Arrival& arrival)
      : server(owner),
        peer(arrival.peer),
        accepted(arrival.time),
        place(owner.limits_, arrival.peer.uid) {}
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  // While the socket is still open.
  ~Connection() {
    if (socket >= 0) server.deadlines_.clear(socket);
  }

  // The next head has to be there by then. Programs that a request waits for have their own limit.
  void expectHead(HeadDeadlines::Clock::time_point deadline) const {
    if (!nested()) server.deadlines_.set(socket, deadline);
  }
  // Asked anew each time: a connection may outlive the program's run.
  bool nested() const { return isAlwaysAdmitted(peer.process); }

  HttpServer& server;
  Peer peer;
  HeadDeadlines::Clock::time_point accepted;
  ConnectionPlace place;
  int socket = -1;  // once the library has it
};

struct HttpServer::Request {
  Request(HttpServer& owner, const Connection& connection, RequestHead head)
      : server(owner), exchange(owner.service_, connection.peer, std::move(head)) {}
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;
  ~Request() {
    if (entered) server.gate_.leave(complete);
  }

  bool enter(bool nested) {
    entered = server.gate_.enter(nested);
    return entered;
  }
  void bodyComplete() {
    server.gate_.bodyComplete();
    complete = true;
  }

  HttpServer& server;
  Exchange exchange;
  bool entered = false;
  bool complete = false;
  bool drain = false;
  std::optional<Reply> reply;  // known before the request's end
  std::size_t size = 0;        // of the body and its reply
};

// What the library calls. No exception may reach it.
struct HttpCallbacks {
  using Connection = HttpServer::Connection;
  using Request = HttpServer::Request;

  static Connection* connectionOf(MHD_Connection* connection) {
    const auto* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
    return info != nullptr ? static_cast<Connection*>(info->socket_context) : nullptr;
  }

  // What a connection's thread is about; null in the others.
  struct Current {
    HttpServer* server = nullptr;
    MHD_Connection* connection = nullptr;
    Request* request = nullptr;  // once its head is read
  };
  static thread_local Current current;

  // The request line is there. Paths are unescaped by ourselves: a NUL in one must not end it.
  static std::size_t keepEscapes(void* closure, MHD_Connection* connection, char* text) {
    current = {static_cast<HttpServer*>(closure), connection, nullptr};
    return std::strlen(text);
  }

  // The library refuses by itself what is no HTTP, with a page for browsers. It says so here first,
  // and so our reply goes out before it, and is the last that does.
  [[gnu::format(printf, 2, 0)]] static void log(void* /*closure*/, const char* format,
                                                va_list arguments) {
    constexpr std::string_view kRefusal = "Error processing request (HTTP response code is ";
    std::array<char, 512> text{};
    (void)std::vsnprintf(text.data(), text.size(), format, arguments);
    const std::string_view message(text.data());
    if (current.server == nullptr || !message.starts_with(kRefusal)) return;
    const auto status = parseInteger(message.substr(kRefusal.size(), 3));
    try {
      if (status) refuseForm(static_cast<int>(*status));
    } catch (const std::exception& error) {
      logMessage(3, std::string("request given up: ") + error.what());
    }
  }

  static void notifyConnection(void* closure, MHD_Connection* connection, void** context,
                               MHD_ConnectionNotificationCode code) {
    auto& server = *static_cast<HttpServer*>(closure);
    if (code == MHD_CONNECTION_NOTIFY_CLOSED) {
      delete static_cast<Connection*>(*context);  // NOLINT: the library kept it for us
      *context = nullptr;
      return;
    }
    const MutexLock lock(server.arrivingMutex_);
    const auto found = server.arriving_.find(descriptorOf(connection));
    if (found == server.arriving_.end()) return;
    Connection* const arrived = found->second.release();
    *context = arrived;
    server.arriving_.erase(found);
    arrived->socket = descriptorOf(connection);
    arrived->expectHead(arrived->accepted + HeadDeadlines::kHead);
    MHD_set_connection_option(connection, MHD_CONNECTION_OPTION_TIMEOUT,
                              server.service_.configuration.current()->idleSeconds);
  }

  static MHD_Result access(void* closure, MHD_Connection* connection, const char* target,
                           const char* method, const char* /*version*/, const char* data,
                           std::size_t* size, void** context) {
    try {
      auto& server = *static_cast<HttpServer*>(closure);
      if (*context == nullptr) return begin(server, connection, target, method, context);
      auto& request = *static_cast<Request*>(*context);
      if (*size == 0) return finish(connection, request);
      const auto reply = request.exchange.receive({data, *size});
      request.size += *size;
      *size = 0;
      return reply ? refuseWhileReceiving(server, connection, request, *reply) : MHD_YES;
    } catch (const std::exception& error) {
      logMessage(3, std::string("request given up: ") + error.what());
      return MHD_NO;
    }
  }

  static void completed(void* /*closure*/, MHD_Connection* connection, void** context,
                        MHD_RequestTerminationCode /*code*/) {
    const std::unique_ptr<Request> request(static_cast<Request*>(*context));
    *context = nullptr;
    current.request = nullptr;
    if (!request) return;
    const bool stranger = request->exchange.rights() == Rights::nothing;
    if (request->drain) {
      request->server.drainer_.add(
          FileDescriptor(::fcntl(descriptorOf(connection), F_DUPFD_CLOEXEC, 3)), stranger);
    }
    // Whoever has rights may be idle before.
    const auto idle = std::chrono::seconds(
        stranger ? 0U : request->server.service_.configuration.current()->idleSeconds);
    if (const Connection* owner = connectionOf(connection))
      owner->expectHead(HeadDeadlines::Clock::now() + idle + HeadDeadlines::kHead);
    // Freed memory goes back to the system, or those of one big request would be held for ever.
    if (request->size >= kBig) ::malloc_trim(0);
  }

 private:
  static MHD_Result begin(HttpServer& server, MHD_Connection* connection, const char* target,
                          const char* method, void** context) {
    Connection* owner = connectionOf(connection);
    if (owner == nullptr) return MHD_NO;
    auto created = std::make_unique<Request>(server, *owner, readHead(connection, target, method));
    Request& request = *created;
    *context = created.release();
    current.request = &request;
    server.deadlines_.clear(owner->socket);
    const bool nested = owner->nested();
    const Rights rights = request.exchange.rights();
    // They may be others than when the connection was made.
    server.acceptor_.rights().note(owner->peer.uid, rights);
    const bool fits = nested || owner->place.take(rights);
    std::optional<Reply> reply;
    if (!fits && !owner->place.rights()) {
      reply = request.exchange.refuseBusy(kBusy);
    } else if (!request.enter(nested)) {
      reply = request.exchange.refuseBusy(kStopping);
    } else {
      reply = request.exchange.judge();
    }
    if (!reply) return MHD_YES;
    if (!fits) reply->close = true;
    if (!request.exchange.head().hasBody()) {
      // Sent when the library has seen the end of the request, so that the connection stays.
      request.reply = std::move(reply);
      return MHD_YES;
    }
    request.drain = true;
    reply->close = true;
    return send(connection, request, std::move(*reply));
  }

  static void refuseForm(int status) {
    const std::string why =
        "the request is no HTTP that can be read: " + whyUnreadable(current.connection, status);
    HttpServer& server = *current.server;
    FileDescriptor socket(::fcntl(descriptorOf(current.connection), F_DUPFD_CLOEXEC, 3));
    if (current.request != nullptr) {
      Exchange& exchange = current.request->exchange;
      server.drainer_.answer(std::move(socket),
                             rawResponse(exchange.refuseForm(status, why), exchange.id()));
      return;
    }
    const Connection* owner = connectionOf(current.connection);
    if (owner == nullptr) return;
    const Peer& peer = owner->peer;
    if (owner->place.rights() != Rights::nothing) {
      server.answerUnasked(std::move(socket), peer, false, status, why);
    } else {
      server.answerUnasked(std::move(socket), peer, true, 403,
                           server.policy().refusal(peer.uid, Rights::viewing));
    }
  }

  static MHD_Result finish(MHD_Connection* connection, Request& request) {
    if (request.reply) return send(connection, request, std::move(*request.reply));
    request.bodyComplete();
    // The time that an operation takes is not idle time.
    MHD_set_connection_option(connection, MHD_CONNECTION_OPTION_TIMEOUT, 0U);
    Reply reply = request.exchange.finish();
    MHD_set_connection_option(connection, MHD_CONNECTION_OPTION_TIMEOUT,
                              request.server.service_.configuration.current()->idleSeconds);
    if (request.server.gate_.closed()) reply.close = true;
    return send(connection, request, std::move(reply));
  }

  // In the middle of a body the library sends nothing, so the reply goes out beside it.
  static MHD_Result refuseWhileReceiving(HttpServer& server, MHD_Connection* connection,
                                         Request& request, const Reply& reply) {
    server.drainer_.answer(FileDescriptor(::fcntl(descriptorOf(connection), F_DUPFD_CLOEXEC, 3)),
                           rawResponse(reply, request.exchange.id()));
    return MHD_NO;
  }

  static MHD_Result send(MHD_Connection* connection, Request& request, Reply reply) {
    request.size += reply.body.size();
    const auto status = static_cast<unsigned>(reply.status);
    const RequestIdScope scope(request.exchange.id());
    logMessage(7, request.exchange.head().method + " " + request.exchange.head().target + ": " +
                      std::to_string(reply.status));
    const ResponsePointer response = makeResponse(std::move(reply), request.exchange.id());
    return MHD_queue_response(connection, status, response.get());
  }
};

thread_local HttpCallbacks::Current HttpCallbacks::current;

HttpServer::HttpServer(Service& service, int listener)
    : service_(service),
      limits_(service.configuration.current()->connections,
              service.configuration.current()->connectionsPerUser, kWaitingConnections),
      acceptor_(
          listener, [this](uid_t user) { return policy().rightsOf(user); }, door()) {
  service_.memory.change(service_.configuration.current()->memoryBytes);
  startLibrary();
  acceptor_.start();
}

void HttpServer::startLibrary() {
  // Above whatever the configuration may come to say.
  const auto limit =
      static_cast<unsigned>(kMostConnectionsConfigured + ConnectionLimits::kStrangers +
                            kWaitingConnections + kReserveForPrograms);
  library_ = MHD_start_daemon(
      MHD_USE_THREAD_PER_CONNECTION | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_POLL |
          MHD_USE_NO_LISTEN_SOCKET | MHD_USE_ITC | MHD_USE_ERROR_LOG,
      0, nullptr, nullptr, &HttpCallbacks::access, this, MHD_OPTION_EXTERNAL_LOGGER,
      &HttpCallbacks::log, nullptr, MHD_OPTION_CONNECTION_LIMIT, limit,
      MHD_OPTION_CONNECTION_TIMEOUT, service_.configuration.current()->idleSeconds,
      MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionMemory, MHD_OPTION_THREAD_STACK_SIZE,
      kThreadStack, MHD_OPTION_NOTIFY_COMPLETED, &HttpCallbacks::completed, this,
      MHD_OPTION_NOTIFY_CONNECTION, &HttpCallbacks::notifyConnection, this,
      MHD_OPTION_UNESCAPE_CALLBACK, &HttpCallbacks::keepEscapes, this, MHD_OPTION_END);
  if (library_ == nullptr) throw std::runtime_error("the HTTP library cannot be started");
}

void HttpServer::changeLimits() {
  const auto configuration = service_.configuration.current();
  limits_.change(configuration->connections, configuration->connectionsPerUser);
  service_.memory.change(configuration->memoryBytes);
  acceptor_.rights().forget();
}

void HttpServer::close() {
  gate_.close();
  if (!std::exchange(waited_, true)) gate_.waitUntilEmpty(kBodyPatience);
}

HttpServer::~HttpServer() {
  close();
  acceptor_.stop();
  MHD_stop_daemon(library_);
}

Acceptor::Door HttpServer::door() {
  return {
      .take = [this](Acceptor::Arrival& arrival, Rights rights) { return take(arrival, rights); },
      .refuse =
          [this](Acceptor::Arrival arrival, Rights rights, const std::string& why) {
            const bool stranger = rights == Rights::nothing;
            answerUnasked(std::move(arrival.socket), arrival.peer, stranger, 503, why);
          },
      .tick = [this](Acceptor::Clock::time_point now) { deadlines_.endOverdue(now); }};
}

AccessPolicy HttpServer::policy() const {
  const auto configuration = service_.configuration.current();
  return {configuration->adminGroup, configuration->viewGroup};
}

bool HttpServer::take(Acceptor::Arrival& arrival, Rights rights) {
  auto connection = std::make_unique<Connection>(*this, arrival);
  ConnectionPlace& place = connection->place;
  const bool stranger = rights == Rights::nothing;
  if (!connection->nested() && !place.take(rights) && (stranger || !place.wait())) return false;
  hand(std::move(arrival.socket), std::move(connection));
  return true;
}

void HttpServer::hand(FileDescriptor socket, std::unique_ptr<Connection> connection) {
  const int number = socket.release();
  {
    const MutexLock lock(arrivingMutex_);
    arriving_[number] = std::move(connection);
  }
  sockaddr_storage address{};
  address.ss_family = AF_UNIX;
  const MHD_Result added = MHD_add_connection(
      library_, number, reinterpret_cast<const sockaddr*>(&address), sizeof(sa_family_t));
  if (added == MHD_YES) return;
  // The library has closed the socket.
  logMessage(3, "connection not taken by the HTTP library");
  const MutexLock lock(arrivingMutex_);
  arriving_.erase(number);
}

void HttpServer::answerUnasked(FileDescriptor socket, const Peer& peer, bool stranger, int status,
                               std::string_view why) {
  const std::string id = service_.ids.next();
  service_.requestLog.begin(id, peer.uid);
  service_.requestLog.end(id, true);
  drainer_.answer(std::move(socket), rawResponse(makeError(status, why, BodyForm::json), id),
                  stranger);
}

}  // namespace paddock
