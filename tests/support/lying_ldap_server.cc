#include "support/lying_ldap_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>

namespace paddock {

namespace {

constexpr int kPollMilliseconds = 20;
constexpr std::chrono::milliseconds kBetweenDrops{50};

bool awaitEvent(int descriptor, short event) {
  pollfd awaited{descriptor, event, 0};
  return ::poll(&awaited, 1, kPollMilliseconds) > 0;
}

bool sendWhole(int descriptor, const std::string& bytes, const std::atomic<bool>& stop) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    if (stop) return false;
    if (!awaitEvent(descriptor, POLLOUT)) continue;
    const ssize_t count =
        ::send(descriptor, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0 && errno != EAGAIN) return false;
    if (count > 0) sent += static_cast<std::size_t>(count);
  }
  return true;
}

// --- BER

constexpr char kInteger = 0x02;
constexpr char kOctets = 0x04;
constexpr char kEnumerated = 0x0a;
constexpr char kSequence = 0x30;
constexpr char kSet = 0x31;

std::string element(char tag, const std::string& content) {
  std::string length;
  for (std::size_t left = content.size(); left > 0; left >>= 8U)
    length.insert(length.begin(), static_cast<char>(left & 0xFFU));
  const bool isShort = content.size() < 0x80;
  std::string text(1, tag);
  if (isShort)
    text += static_cast<char>(content.size());
  else
    text += static_cast<char>(0x80U | length.size()) + length;
  return text + content;
}

std::string number(char tag, int value) {
  std::string bytes;
  do {
    bytes.insert(bytes.begin(), static_cast<char>(value & 0xFF));
    value >>= 8;
  } while (value > 0);
  if ((bytes.front() & 0x80) != 0) bytes.insert(bytes.begin(), '\0');
  return element(tag, bytes);
}

std::string message(int request, const std::string& operation, const std::string& controls = {}) {
  return element(kSequence, number(kInteger, request) + operation + controls);
}

std::string result(char tag, int code, const std::string& diagnostic) {
  return element(tag,
                 number(kEnumerated, code) + element(kOctets, "") + element(kOctets, diagnostic));
}

// The message id and the tag of the operation of a request that is whole.
std::pair<int, unsigned char> headOf(const std::string& request) {
  const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(request.at(at)); };
  std::size_t at = byte(1) < 0x80 ? 2 : 2 + (byte(1) & 0x7FU);
  const std::size_t size = byte(at + 1);
  int id = 0;
  for (std::size_t digit = 0; digit < size; ++digit) id = id << 8 | byte(at + 2 + digit);
  return {id, byte(at + 2 + size)};
}

}  // namespace

namespace ldap_messages {

std::string entry(int request, const std::string& dn, const std::vector<Attribute>& attributes) {
  std::string list;
  for (const auto& [name, values] : attributes) {
    std::string set;
    for (const std::string& value : values) set += element(kOctets, value);
    list += element(kSequence, element(kOctets, name) + element(kSet, set));
  }
  return message(request, element(0x64, element(kOctets, dn) + element(kSequence, list)));
}

std::string reference(int request, const std::string& uri) {
  return message(request, element(0x73, element(kOctets, uri)));
}

std::string searchDone(int request, const std::string& cookie) {
  std::string controls;
  if (!cookie.empty()) {
    const std::string page = element(kSequence, number(kInteger, 0) + element(kOctets, cookie));
    const std::string control = element(kOctets, "1.2.840.113556.1.4.319") + element(kOctets, page);
    controls = element(static_cast<char>(0xa0), element(kSequence, control));
  }
  return message(request, result(0x65, 0, ""), controls);
}

std::string bindDone(int request, int code, const std::string& diagnostic) {
  return message(request, result(0x61, code, diagnostic));
}

}  // namespace ldap_messages

LyingLdapServer::LyingLdapServer(Answer onSearch, Answer onBind)
    : onSearch_(std::move(onSearch)),
      onBind_(std::move(onBind)),
      thread_([this] { acceptAll(); }) {}

LyingLdapServer::~LyingLdapServer() {
  stop_ = true;
  thread_.join();
  for (std::thread& one : serving_) one.join();
}

void LyingLdapServer::acceptAll() {
  while (!stop_) {
    if (!awaitEvent(listener_.get(), POLLIN)) continue;
    const auto client = std::make_shared<FileDescriptor>(
        ::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    serving_.emplace_back([this, client] { serve(*client); });
  }
}

void LyingLdapServer::serve(const FileDescriptor& client) {
  const Send send = [&](const std::string& bytes) { return sendWhole(client.get(), bytes, stop_); };
  std::string pending;
  std::array<char, 65536> buffer{};
  while (!stop_) {
    if (!awaitEvent(client.get(), POLLIN)) continue;
    const ssize_t count = ::recv(client.get(), buffer.data(), buffer.size(), 0);
    if (count <= 0) return;
    pending.append(buffer.data(), static_cast<std::size_t>(count));
    for (std::size_t size = ldapMessageSize(pending); size > 0; size = ldapMessageSize(pending)) {
      answer(pending.substr(0, size), send);
      pending.erase(0, size);
    }
  }
}

void LyingLdapServer::answer(const std::string& request, const Send& send) {
  constexpr unsigned char kBind = 0x60;
  constexpr unsigned char kSearch = 0x63;
  const auto [id, operation] = headOf(request);
  if (operation == kSearch) {
    ++searches_;
    onSearch_(id, send);
  } else if (operation == kBind && onBind_) {
    onBind_(id, send);
  } else if (operation == kBind) {
    send(ldap_messages::bindDone(id, 0, ""));
  }
}

DrippingProxy::DrippingProxy(int serverPort)
    : serverPort_(serverPort), thread_([this] { acceptAll(); }) {}

DrippingProxy::~DrippingProxy() {
  stop_ = true;
  thread_.join();
  for (std::thread& one : carrying_) one.join();
}

void DrippingProxy::acceptAll() {
  while (!stop_) {
    if (!awaitEvent(listener_.get(), POLLIN)) continue;
    const auto client = std::make_shared<FileDescriptor>(
        ::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    carrying_.emplace_back([this, client] { carry(*client); });
  }
}

bool DrippingProxy::passOn(int from, int to, bool slowly) const {
  std::array<char, 65536> buffer{};
  const ssize_t count = ::recv(from, buffer.data(), slowly ? 1 : buffer.size(), 0);
  if (count <= 0) return false;
  if (slowly) std::this_thread::sleep_for(kBetweenDrops);
  return sendWhole(to, std::string(buffer.data(), static_cast<std::size_t>(count)), stop_);
}

void DrippingProxy::carry(const FileDescriptor& client) {
  const FileDescriptor server(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(serverPort_));
  if (::connect(server.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    return;
  while (!stop_) {
    std::array<pollfd, 2> awaited{{{client.get(), POLLIN, 0}, {server.get(), POLLIN, 0}}};
    ::poll(awaited.data(), awaited.size(), kPollMilliseconds);
    if (awaited[0].revents != 0 && !passOn(client.get(), server.get(), false)) return;
    if (awaited[1].revents != 0 && !passOn(server.get(), client.get(), drips_)) return;
  }
}

}  // namespace paddock
