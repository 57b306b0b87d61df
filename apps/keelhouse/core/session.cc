#include "keelhouse/core/session.h"

#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <memory>
#include <random>
#include <system_error>
#include <thread>
#include <vector>

#include "base/text.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/socket_path.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr std::chrono::seconds kConnectTime{10};
constexpr std::chrono::milliseconds kConnectPause{50};
constexpr std::size_t kMaximumReply = std::size_t{1} << 30U;
// The name is not resolved: the socket is the address.
constexpr const char* kHost = "http://paddock";

struct CurlDeleter {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using Curl = std::unique_ptr<CURL, CurlDeleter>;
using HeaderList = std::unique_ptr<curl_slist, CurlDeleter>;

struct Exchange {
  const std::string& socketPath;
  bool tooLong = false;
  std::string reply;
  std::string tag;
};

constexpr long kPreconditionFailed = 412;

std::size_t takeReply(const char* bytes, std::size_t /*one*/, std::size_t count,
                      void* exchangePointer) {
  auto& exchange = *static_cast<Exchange*>(exchangePointer);
  if (count > kMaximumReply - exchange.reply.size()) {
    exchange.tooLong = true;
    return 0;
  }
  exchange.reply.append(bytes, count);
  return count;
}

std::size_t takeHeader(const char* bytes, std::size_t /*one*/, std::size_t count,
                       void* exchangePointer) {
  constexpr std::string_view kName = "etag:";
  const std::string_view line(bytes, count);
  if (asciiLower(line.substr(0, kName.size())) == kName) {
    const std::size_t first = line.find('"');
    const std::size_t last = line.rfind('"');
    auto& exchange = *static_cast<Exchange*>(exchangePointer);
    if (first < last && last != std::string_view::npos) {
      exchange.tag = line.substr(first, last - first + 1);
    }
  }
  return count;
}

const char* whatToDo(int error) {
  switch (error) {
    case ENOENT:
      return "is paddockd running? Start it (systemctl start paddockd), or name its socket with "
             "--root or --socket.";
    case ECONNREFUSED:
      return "paddockd has ended without removing it. Start it (systemctl start paddockd).";
    case EACCES:
      return "this user may not reach the socket.";
    case EAGAIN:
      return "paddockd takes no connection at the moment. Try again.";
    case ENAMETOOLONG:
      return "a socket's path can have 107 bytes. Name a shorter one with --root or --socket.";
    default:
      return "is paddockd running?";
  }
}

Failure unreachable(const std::string& socketPath, int error) {
  return {ExitStatus::unreachable, "cannot reach the daemon at " + socketPath + ": " +
                                       std::generic_category().message(error) + "; " +
                                       whatToDo(error)};
}

Curl makeHandle() {
  if (curl_global_init(CURL_GLOBAL_NOTHING) != CURLE_OK) {
    throw failure("libcurl cannot be used");
  }
  Curl handle(curl_easy_init());
  if (!handle) throw failure("out of memory");
  return handle;
}

HeaderList makeHeaders(const std::string& tag = {}) {
  HeaderList headers;
  // Without "Expect:" a long request would wait for a go-ahead first.
  std::vector<std::string> lines{"Content-Type: application/json", "Accept: application/json",
                                 "Expect:"};
  if (!tag.empty()) lines.push_back("If-Match: " + tag);
  for (const std::string& line : lines) {
    curl_slist* longer = curl_slist_append(headers.get(), line.c_str());
    if (longer == nullptr) throw failure("out of memory");
    static_cast<void>(headers.release());
    headers.reset(longer);
  }
  return headers;
}

void prepare(CURL* handle, Exchange& exchange, const std::string& path, curl_slist* headers) {
  curl_easy_setopt(handle, CURLOPT_UNIX_SOCKET_PATH, exchange.socketPath.c_str());
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, static_cast<long>(kConnectTime.count()));
  curl_easy_setopt(handle, CURLOPT_URL, (kHost + path).c_str());
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(handle, CURLOPT_USERAGENT, "keelhouse/" PADDOCK_VERSION);
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, takeReply);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &exchange);
  curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, takeHeader);
  curl_easy_setopt(handle, CURLOPT_HEADERDATA, &exchange);
  curl_easy_setopt(handle, CURLOPT_PROXY, "");  // nor one of the environment
  curl_easy_setopt(handle, CURLOPT_PATH_AS_IS, 1L);
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
}

int connectError(CURL* handle) {
  long error = 0;
  curl_easy_getinfo(handle, CURLINFO_OS_ERRNO, &error);
  // libcurl reports no errno when the listener's queue is full.
  return error != 0 ? static_cast<int>(error) : EAGAIN;
}

// Nothing has been sent when connecting fails, so that it can be retried.
CURLcode performPatiently(CURL* handle) {
  const auto end = std::chrono::steady_clock::now() + kConnectTime;
  while (true) {
    const CURLcode code = curl_easy_perform(handle);
    const bool queueFull = code == CURLE_COULDNT_CONNECT && connectError(handle) == EAGAIN;
    if (!queueFull || std::chrono::steady_clock::now() > end) return code;
    std::this_thread::sleep_for(kConnectPause);
  }
}

Failure transferFailure(CURL* handle, const Exchange& exchange, CURLcode code) {
  if (code == CURLE_COULDNT_CONNECT) return unreachable(exchange.socketPath, connectError(handle));
  if (exchange.tooLong) return failure("the daemon's reply is longer than 1 GiB");
  if (code == CURLE_GOT_NOTHING) return failure("the daemon closed the connection unanswered");
  return failure(std::string("the exchange with the daemon failed: ") + curl_easy_strerror(code));
}

std::string errorText(const std::optional<Value>& body) {
  const Dictionary* reply = body ? body->dictionary() : nullptr;
  const std::string* text = reply != nullptr ? reply->string("error") : nullptr;
  return text != nullptr ? *text : "no explanation";
}

Dictionary readReply(long httpStatus, const std::string& text, ForeignLineBreaks& lineBreaks) {
  std::string error;
  auto body = wire::parseJson(text, error);
  if (body) lineBreaks.add(*body);
  if (httpStatus != 200) {
    throw Refusal(httpStatus, "the daemon refused the request (HTTP " + std::to_string(httpStatus) +
                                  "): " + errorText(body));
  }
  if (!body) throw failure("the daemon's reply cannot be read: " + error);
  if (body->dictionary() == nullptr) throw failure("the daemon's reply is no dictionary");
  return std::move(*body->dictionary());
}

std::string requestIdOf(CURL* handle) {
  curl_header* header = nullptr;
  const CURLHcode code = curl_easy_header(handle, "X-Request-Id", 0, CURLH_HEADER, -1, &header);
  return code == CURLHE_OK ? header->value : "";
}

// The HTTP status.
long perform(CURL* handle, Exchange& exchange, std::string& requestId) {
  const CURLcode code = performPatiently(handle);
  if (code != CURLE_OK) throw transferFailure(handle, exchange, code);
  requestId = requestIdOf(handle);
  long httpStatus = 0;
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &httpStatus);
  return httpStatus;
}

std::string escapeSegment(CURL* handle, std::string_view segment) {
  // libcurl takes a length of 0 for "measure it".
  if (segment.empty()) return {};
  char* escaped = curl_easy_escape(handle, segment.data(), static_cast<int>(segment.size()));
  if (escaped == nullptr) throw failure("out of memory");
  std::string result = escaped;
  curl_free(escaped);
  return result;
}

// Of the operations that keelhouse requests. The status of a run is polled, and changes nothing
// visible.
constexpr std::array<std::string_view, 11> kChanging = {
    "writeSettings", "startPropagate", "canAuthDSNode", "putRecord",  "deleteRecord", "setPassword",
    "setModeBits",   "makeComplete",   "setLimits",     "setEnabled", "setStrict"};

bool mayChange(std::string_view operation) {
  return std::find(kChanging.begin(), kChanging.end(), operation) != kChanging.end();
}

// Each conflict means that another client has succeeded, so that this suffices for many clients.
constexpr int kAttempts = 200;

// Random, so that clients that collided do not collide again.
void pauseAfter(int attempt) {
  constexpr int kStep = 5;
  constexpr int kLongest = 100;
  std::random_device random;
  std::uniform_int_distribution<int> milliseconds(0, std::min(kStep * (attempt + 1), kLongest));
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds(random)));
}

void checkSocketPath(const std::string& path) {
  if (!fitsSocketAddress(path)) throw unreachable(path, ENAMETOOLONG);
}

}  // namespace

std::optional<TaggedReply> DaemonClient::send(std::string_view plugin, std::string_view operation,
                                              std::string_view json, const std::string& tag) const {
  checkSocketPath(socketPath_);
  const Curl handle = makeHandle();
  const HeaderList headers = makeHeaders(tag);
  Exchange exchange{socketPath_, false, {}, {}};
  const std::string path =
      "/v1/" + escapeSegment(handle.get(), plugin) + "/" + escapeSegment(handle.get(), operation);
  prepare(handle.get(), exchange, path, headers.get());
  curl_easy_setopt(handle.get(), CURLOPT_POST, 1L);
  curl_easy_setopt(handle.get(), CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(json.size()));
  curl_easy_setopt(handle.get(), CURLOPT_POSTFIELDS, json.data());
  const long httpStatus = perform(handle.get(), exchange, lastRequestId_);
  if (httpStatus == kPreconditionFailed && !tag.empty()) return std::nullopt;
  return TaggedReply{readReply(httpStatus, exchange.reply, lineBreaks_), exchange.tag};
}

Dictionary DaemonClient::post(std::string_view plugin, std::string_view operation,
                              std::string_view json) const {
  return send(plugin, operation, json, {})->body;
}

std::optional<TaggedReply> DaemonClient::callTagged(std::string_view plugin,
                                                    std::string_view operation,
                                                    const Dictionary& request,
                                                    const std::string& tag) const {
  auto reply = send(plugin, operation, wire::writeJson(request), tag);
  if (reply && mayChange(operation) && !lastRequestId_.empty())
    changeIds_.push_back(lastRequestId_);
  return reply;
}

Dictionary DaemonClient::call(std::string_view plugin, std::string_view operation,
                              const Dictionary& request) const {
  return callTagged(plugin, operation, request)->body;
}

Dictionary DaemonClient::get(const std::string& path) const { return fetch(path, lastRequestId_); }

std::vector<LogLine> DaemonClient::requestLog(const std::string& id) const {
  std::string requestId;
  const Dictionary reply = fetch("/v1/requests/" + id + "/log", requestId);
  const Array* list = reply.array("lines");
  if (list == nullptr) throw failure("the daemon's reply has no lines of the request's log");
  std::vector<LogLine> lines;
  for (const Value& entry : *list) {
    const Dictionary* line = entry.dictionary();
    if (line == nullptr) continue;
    const auto text = [line](const char* key) {
      const std::string* found = line->string(key);
      return found != nullptr ? *found : std::string();
    };
    lines.push_back({text("time"), text("level"), text("text")});
  }
  return lines;
}

Dictionary DaemonClient::fetch(const std::string& path, std::string& requestId) const {
  checkSocketPath(socketPath_);
  const Curl handle = makeHandle();
  const HeaderList headers = makeHeaders();
  Exchange exchange{socketPath_, false, {}, {}};
  prepare(handle.get(), exchange, path, headers.get());
  const long httpStatus = perform(handle.get(), exchange, requestId);
  return readReply(httpStatus, exchange.reply, lineBreaks_);
}

void repeatUntilUndisturbed(const std::string& action,
                            const std::function<bool(int number)>& attempt) {
  for (int number = 0; number < kAttempts; ++number) {
    if (attempt(number)) return;
    pauseAfter(number);
  }
  throw failure(action + ": others changed it " + std::to_string(kAttempts) +
                " times while this was tried; nothing was changed\nTry again.");
}

}  // namespace paddock::keelhouse
