#include "daemon/http/http_server.h"

#include <fcntl.h>
#include <malloc.h>
#include <microhttpd.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <vector>

#include "base/system_call.h"
#include "base/text.h"
#include "daemon/http/exchange.h"
#include "paddock/run_program.h"
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
constexpr auto kPauseWithoutDescriptors = std::chrono::milliseconds(50);

constexpr const char* kBusy = "too many connections";
constexpr const char* kStopping = "the daemon is being stopped";

std::string header(MHD_Connection* connection, const char* name) {
  const char* value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
  return value != nullptr ? value : "";
}

// The values of the field's lines, in their order.
std::vector<std::string> headers(MHD_Connection* connection, std::string_view name) {
  struct Search {
    std::string_view name;
    std::vector<std::string> values;
  } search{name, {}};
  MHD_get_connection_values(
      connection, MHD_HEADER_KIND,
      [](void* closure, MHD_ValueKind, const char* key, const char* value) {
        auto& wanted = *static_cast<Search*>(closure);
        if (asciiLower(key) == asciiLower(wanted.name))
          wanted.values.emplace_back(value != nullptr ? value : "");
        return MHD_YES;
      },
      &search);
  return std::move(search.values);
}

// The field's lines, joined as one list; absent when there is none.
std::optional<std::string> listHeader(MHD_Connection* connection, std::string_view name) {
  std::optional<std::string> list;
  for (const std::string& value : headers(connection, name)) {
    list = list ? *list + ", " + value : value;
  }
  return list;
}

// UINT64_MAX for what is larger; absent for what is no number.
std::optional<std::uint64_t> lengthOf(const std::string& text) {
  std::uint64_t length = 0;
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, length);
  if (read.ptr != end || read.ec == std::errc::invalid_argument) return std::nullopt;
  return read.ec == std::errc::result_out_of_range ? UINT64_MAX : length;
}

// The library goes by the first of several.
void readLengths(MHD_Connection* connection, RequestHead& head) {
  const auto texts = headers(connection, MHD_HTTP_HEADER_CONTENT_LENGTH);
  if (texts.empty()) return;
  const auto first = lengthOf(texts.front());
  head.contentLength = first.value_or(0);
  for (const std::string& text : texts) {
    if (!first || lengthOf(text) != first) head.lengthsDiffer = true;
  }
}

RequestHead readHead(MHD_Connection* connection, const char* target, const char* method) {
  RequestHead head{method, target, header(connection, MHD_HTTP_HEADER_CONTENT_TYPE),
                   header(connection, MHD_HTTP_HEADER_ACCEPT)};
  readLengths(connection, head);
  if (const char* limit = MHD_lookup_connection_value(connection, MHD_GET_ARGUMENT_KIND, "limit"))
    head.limit = limit;
  head.chunked = !header(connection, MHD_HTTP_HEADER_TRANSFER_ENCODING).empty();
  head.ifMatch = listHeader(connection, MHD_HTTP_HEADER_IF_MATCH);
  return head;
}

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
      [](void* text) { delete static_cast<std::string*>(text); },  // NOLINT: handed over below
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
  Connection(ConnectionLimits& limits, const Peer& who) : peer(who), place(limits, who.uid) {}

  // Asked anew each time: a connection may outlive the program's run.
  bool nested() const { return isRunningProgram(peer.process); }

  Peer peer;
  ConnectionPlace place;
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
    const std::scoped_lock lock(server.arrivingMutex_);
    const auto found = server.arriving_.find(descriptorOf(connection));
    if (found == server.arriving_.end()) return;
    *context = found->second.release();
    server.arriving_.erase(found);
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
      const bool taken = request.exchange.receive({data, *size});
      request.size += *size;
      *size = 0;
      return taken ? MHD_YES : refuseWhileReceiving(server, connection, request);
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
    if (request->drain) {
      request->server.drainer_.add(
          FileDescriptor(::fcntl(descriptorOf(connection), F_DUPFD_CLOEXEC, 3)));
    }
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
    const bool nested = owner->nested();
    std::optional<Reply> reply;
    if (!nested && !owner->place.take()) {
      reply = request.exchange.refuseBusy(kBusy);
    } else if (!request.enter(nested)) {
      reply = request.exchange.refuseBusy(kStopping);
    } else {
      reply = request.exchange.judge();
    }
    if (!reply) return MHD_YES;
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
        std::string("the request is no HTTP that can be read: ") + whyUnreadable(status);
    HttpServer& server = *current.server;
    FileDescriptor socket(::fcntl(descriptorOf(current.connection), F_DUPFD_CLOEXEC, 3));
    if (current.request != nullptr) {
      Exchange& exchange = current.request->exchange;
      server.drainer_.answer(std::move(socket),
                             rawResponse(exchange.refuseForm(status, why), exchange.id()));
    } else if (const Connection* owner = connectionOf(current.connection)) {
      server.answerUnasked(std::move(socket), owner->peer, status, why);
    }
  }

  static std::string whyUnreadable(int status) {
    for (const std::string& length : headers(current.connection, MHD_HTTP_HEADER_CONTENT_LENGTH)) {
      if (!lengthOf(length)) return "Content-Length is no number";
    }
    return MHD_get_reason_phrase_for(static_cast<unsigned>(status));
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
                                         Request& request) {
    server.drainer_.answer(FileDescriptor(::fcntl(descriptorOf(connection), F_DUPFD_CLOEXEC, 3)),
                           rawResponse(request.exchange.tooLong(), request.exchange.id()));
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
      listener_(listener),
      limits_(service.configuration.current()->connections,
              service.configuration.current()->connectionsPerUser, kWaitingConnections),
      stop_(::eventfd(0, EFD_CLOEXEC)) {
  if (!stop_) throw systemError(errno, "eventfd", "");
  startLibrary();
  acceptor_ = std::thread([this] { acceptUntilStopped(); });
}

void HttpServer::startLibrary() {
  // Above whatever the configuration may come to say.
  const auto limit =
      static_cast<unsigned>(kMostConnectionsConfigured + kWaitingConnections + kReserveForPrograms);
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
}

void HttpServer::close() { gate_.close(); }

HttpServer::~HttpServer() {
  close();
  gate_.waitUntilEmpty(kBodyPatience);
  const std::uint64_t one = 1;
  (void)retryOnInterrupt([this, &one] { return ::write(stop_.get(), &one, sizeof one); });
  acceptor_.join();
  MHD_stop_daemon(library_);
}

void HttpServer::acceptUntilStopped() {
  for (;;) {
    std::array<pollfd, 2> watched{{{stop_.get(), POLLIN, 0}, {listener_, POLLIN, 0}}};
    retryOnInterrupt([&watched] { return ::poll(watched.data(), watched.size(), -1); });
    if (watched[0].revents != 0) return;
    acceptOne();
  }
}

void HttpServer::acceptOne() {
  FileDescriptor socket(::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (socket) {
    try {
      place(std::move(socket));
    } catch (const std::exception& error) {
      logMessage(3, std::string("connection given up: ") + error.what());
    }
    return;
  }
  if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
    logMessage(3, systemError(errno, "accept", "").what());
    std::this_thread::sleep_for(kPauseWithoutDescriptors);
  }
}

void HttpServer::place(FileDescriptor socket) {
  const auto peer = peerOf(socket.get());
  if (!peer) return;
  auto connection = std::make_unique<Connection>(limits_, *peer);
  if (connection->nested() || connection->place.take() || connection->place.wait()) {
    hand(std::move(socket), std::move(connection));
  } else {
    answerUnasked(std::move(socket), *peer, 503, kBusy);
  }
}

void HttpServer::hand(FileDescriptor socket, std::unique_ptr<Connection> connection) {
  const int number = socket.release();
  {
    const std::scoped_lock lock(arrivingMutex_);
    arriving_[number] = std::move(connection);
  }
  sockaddr_storage address{};
  address.ss_family = AF_UNIX;
  const MHD_Result added = MHD_add_connection(
      library_, number, reinterpret_cast<const sockaddr*>(&address), sizeof(sa_family_t));
  if (added == MHD_YES) return;
  // The library has closed the socket.
  logMessage(3, "connection not taken by the HTTP library");
  const std::scoped_lock lock(arrivingMutex_);
  arriving_.erase(number);
}

void HttpServer::answerUnasked(FileDescriptor socket, const Peer& peer, int status,
                               std::string_view why) {
  const std::string id = service_.ids.next();
  service_.requestLog.begin(id, peer.uid);
  service_.requestLog.end(id, true);
  drainer_.answer(std::move(socket), rawResponse(makeError(status, why, BodyForm::json), id));
}

}  // namespace paddock
