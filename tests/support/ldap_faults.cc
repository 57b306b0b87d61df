#include "support/ldap_faults.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace paddock {

namespace {

constexpr int kPollMilliseconds = 20;

bool isReadable(int descriptor, int milliseconds) {
  pollfd waited{descriptor, POLLIN, 0};
  return ::poll(&waited, 1, milliseconds) > 0;
}

FileDescriptor acceptFrom(int listener) {
  return FileDescriptor(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
}

void sendAll(int descriptor, const std::string& bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t count =
        ::send(descriptor, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) return;
    sent += static_cast<std::size_t>(count);
  }
}

// What can be read now; empty at the end.
std::string receiveSome(int descriptor) {
  std::array<char, 65536> buffer{};
  const ssize_t count = ::recv(descriptor, buffer.data(), buffer.size(), 0);
  return count > 0 ? std::string(buffer.data(), static_cast<std::size_t>(count)) : std::string();
}

FileDescriptor connectTo(const std::string& path) {
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    return {};
  return socket;
}

}  // namespace

std::size_t ldapMessageSize(const std::string& bytes) {
  if (bytes.size() < 2) return 0;
  const auto byte = [&](std::size_t at) { return static_cast<std::uint8_t>(bytes[at]); };
  std::size_t head = 2;
  std::size_t length = byte(1);
  if (length >= 0x80) {
    const std::size_t count = length - 0x80;
    if (bytes.size() < head + count) return 0;
    length = 0;
    for (std::size_t at = 0; at < count; ++at) length = length << 8U | byte(head + at);
    head += count;
  }
  return bytes.size() >= head + length ? head + length : 0;
}

LoopbackListener::LoopbackListener() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  constexpr int kBacklog = 64;
  if (::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      ::getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
      ::listen(socket_.get(), kBacklog) != 0)
    throw std::runtime_error("the loopback cannot be listened on");
  port_ = ntohs(address.sin_port);
}

TalkingServer::TalkingServer(std::string words)
    : words_(std::move(words)), thread_([this] { serve(); }) {}

TalkingServer::~TalkingServer() {
  stop_ = true;
  thread_.join();
}

void TalkingServer::serve() {
  std::vector<FileDescriptor> open;
  while (!stop_) {
    if (!isReadable(listener_.get(), kPollMilliseconds)) continue;
    open.push_back(acceptFrom(listener_.get()));
    ++connections_;
    sendAll(open.back().get(), words_);
  }
}

CuttingProxy::CuttingProxy(std::string serverPath)
    : serverPath_(std::move(serverPath)), thread_([this] { acceptAll(); }) {}

CuttingProxy::~CuttingProxy() {
  stop_ = true;
  thread_.join();
  awaitEnds();
}

void CuttingProxy::awaitEnds() const {
  while (carrying_ > 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void CuttingProxy::cutAt(int number, Cut cut, bool forGood) {
  awaitEnds();
  messages_ = 0;
  hasCut_ = false;
  cut_ = cut;
  forGood_ = forGood;
  cutNumber_ = number;
}

void CuttingProxy::heal() {
  cutNumber_ = 0;
  hasCut_ = false;
}

void CuttingProxy::acceptAll() {
  while (!stop_) {
    if (!isReadable(listener_.get(), kPollMilliseconds)) continue;
    FileDescriptor client = acceptFrom(listener_.get());
    if (hasCut_ && forGood_) continue;
    ++carrying_;
    std::thread([this, moved = std::make_shared<FileDescriptor>(std::move(client))] {
      carry(std::move(*moved));
      --carrying_;
    }).detach();
  }
}

bool CuttingProxy::admit() {
  if (++messages_ != cutNumber_) return true;
  hasCut_ = true;
  if (cut_ == Cut::answer) return true;
  called_();
  return false;
}

void CuttingProxy::carry(FileDescriptor client) {
  const FileDescriptor server = connectTo(serverPath_);
  std::string pending;
  bool mute = false;
  while (!stop_ && server) {
    std::array<pollfd, 2> waited{{{client.get(), POLLIN, 0}, {server.get(), POLLIN, 0}}};
    ::poll(waited.data(), waited.size(), kPollMilliseconds);
    if (waited[1].revents != 0) {
      const std::string bytes = receiveSome(server.get());
      if (mute) called_();  // the server has answered, which does not reach the client
      if (bytes.empty() || mute) return;
      sendAll(client.get(), bytes);
    }
    if (waited[0].revents == 0) continue;
    const std::string bytes = receiveSome(client.get());
    if (bytes.empty()) return;
    pending += bytes;
    for (std::size_t size = ldapMessageSize(pending); size > 0; size = ldapMessageSize(pending)) {
      const bool cutBefore = hasCut_;
      if (!admit()) return;
      mute = mute || (!cutBefore && hasCut_);
      sendAll(server.get(), pending.substr(0, size));
      pending.erase(0, size);
    }
  }
}

}  // namespace paddock
