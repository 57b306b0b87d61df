#include "integration/socket_client.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "base/system_call.h"
#include "base/text.h"
#include "wire/json.h"
#include "wire/property_list.h"

namespace paddock::testing {
namespace {

constexpr auto kPatience = std::chrono::seconds(60);
constexpr std::string_view kHeadEnd = "\r\n\r\n";

Response parseHead(std::string_view head) {
  Response response;
  std::size_t line = head.find("\r\n");
  response.status = static_cast<int>(parseInteger(head.substr(9, 3)).value_or(0));
  while (line != std::string_view::npos && line + 2 < head.size()) {
    head.remove_prefix(line + 2);
    line = head.find("\r\n");
    const std::string_view text = head.substr(0, line);
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) continue;
    const std::size_t value = text.find_first_not_of(' ', colon + 1);
    response.headers[asciiLower(text.substr(0, colon))] =
        value == std::string_view::npos ? "" : std::string(text.substr(value));
  }
  return response;
}

}  // namespace

std::string Response::header(const std::string& name) const {
  const auto found = headers.find(name);
  return found != headers.end() ? found->second : std::string();
}

Dictionary Response::dictionary() const {
  std::string ignored;
  auto value = header("content-type") == "application/x-plist"
                   ? wire::parsePropertyList(body, ignored)
                   : wire::parseJson(body, ignored);
  return value && value->dictionary() != nullptr ? *value->dictionary() : Dictionary();
}

std::string Response::error() const {
  const Dictionary parsed = dictionary();
  const std::string* text = parsed.string("error");
  return text != nullptr ? *text : std::string();
}

SocketClient::SocketClient(const std::string& path)
    : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(&address.sun_path[0], path.c_str(),
              std::min(path.size(), sizeof address.sun_path - 1));
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);
  if (retryOnInterrupt([this, generic] {
        return ::connect(socket_.get(), generic, sizeof(sockaddr_un));
      }) != 0) {
    socket_.reset();
  }
}

bool SocketClient::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const auto sent = retryOnInterrupt(
        [this, bytes] { return ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL); });
    if (sent < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

bool SocketClient::fill(std::chrono::steady_clock::time_point deadline) {
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  pollfd watched{socket_.get(), POLLIN, 0};
  if (left.count() <= 0 || retryOnInterrupt([&watched, left] {
                             return ::poll(&watched, 1, static_cast<int>(left.count()));
                           }) <= 0) {
    return false;
  }
  std::array<char, 65536> block{};
  const auto count = retryOnInterrupt(
      [this, &block] { return ::recv(socket_.get(), block.data(), block.size(), 0); });
  if (count <= 0) return false;
  received_.append(block.data(), static_cast<std::size_t>(count));
  return true;
}

Response SocketClient::receive(std::chrono::seconds patience, bool hasBody) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  std::size_t end = received_.find(kHeadEnd);
  while (end == std::string::npos) {
    if (!fill(deadline)) return {};
    end = received_.find(kHeadEnd);
  }
  Response response = parseHead(std::string_view(received_).substr(0, end));
  received_.erase(0, end + kHeadEnd.size());
  if (!hasBody) return response;
  const auto length =
      static_cast<std::size_t>(parseInteger(response.header("content-length")).value_or(0));
  while (received_.size() < length) {
    if (!fill(deadline)) return {};
  }
  response.body = received_.substr(0, length);
  received_.erase(0, length);
  return response;
}

bool SocketClient::ready(std::chrono::milliseconds patience) const {
  pollfd watched{socket_.get(), POLLIN, 0};
  const int wait = static_cast<int>(patience.count());
  return retryOnInterrupt([&watched, wait] { return ::poll(&watched, 1, wait); }) > 0;
}

bool SocketClient::ends(std::chrono::seconds patience) {
  if (!ready(patience)) return false;
  char byte = 0;
  return ::recv(socket_.get(), &byte, 1, 0) <= 0;
}

std::string requestText(const std::string& method, const std::string& target,
                        const std::string& body, const std::string& headers) {
  std::string text = method + " " + target + " HTTP/1.1\r\nHost: paddock\r\n" + headers;
  if (!body.empty()) text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  return text + "\r\n" + body;
}

Response request(const std::string& socket, const std::string& method, const std::string& target,
                 const std::string& body, const std::string& headers) {
  SocketClient client(socket);
  if (!client.connected()) return {};
  client.send(requestText(method, target, body, headers));
  return client.receive(kPatience, method != "HEAD");
}

Response requestAs(uid_t user, gid_t group, const std::string& socket, const std::string& text,
                   const std::vector<gid_t>& furtherGroups) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return {};
  FileDescriptor reading(ends[0]);
  FileDescriptor writing(ends[1]);
  const pid_t child = ::fork();
  if (child == 0) {
    if (::setgroups(furtherGroups.size(), furtherGroups.data()) != 0 || ::setgid(group) != 0 ||
        ::setuid(user) != 0) {
      ::_exit(1);
    }
    SocketClient client(socket);
    if (!client.connected()) ::_exit(2);
    client.send(text);
    const Response response = client.receive();
    std::string raw = "HTTP/1.1 " + std::to_string(response.status) + " x\r\n";
    for (const auto& [name, value] : response.headers) {
      raw.append(name).append(": ").append(value).append("\r\n");
    }
    raw.append("\r\n" + response.body);
    const auto written = ::write(writing.get(), raw.data(), raw.size());
    ::_exit(written == static_cast<ssize_t>(raw.size()) ? 0 : 3);
  }
  writing.reset();
  std::string raw;
  std::array<char, 4096> block{};
  ssize_t count = 0;
  while ((count = retryOnInterrupt(
              [&] { return ::read(reading.get(), block.data(), block.size()); })) > 0) {
    raw.append(block.data(), static_cast<std::size_t>(count));
  }
  int status = 0;
  retryOnInterrupt([child, &status] { return ::waitpid(child, &status, 0); });
  const std::size_t end = raw.find(kHeadEnd);
  if (end == std::string::npos) return {};
  Response response = parseHead(std::string_view(raw).substr(0, end));
  response.body = raw.substr(end + kHeadEnd.size());
  return response;
}

}  // namespace paddock::testing
