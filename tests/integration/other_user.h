// Clients that run as other users, each in a process of its own, ended with the object.
#pragma once

#include <grp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <list>
#include <string>

#include "base/file_access.h"
#include "base/system_call.h"
#include "integration/socket_client.h"

namespace paddock::testing {

struct Account {
  uid_t user;
  gid_t group;
};

// Ends a child process, and has a pipe from and to it.
class OtherProcess {
 public:
  OtherProcess() = default;
  OtherProcess(const OtherProcess&) = delete;
  OtherProcess& operator=(const OtherProcess&) = delete;
  ~OtherProcess() {
    if (child_ <= 0) return;
    ::kill(child_, SIGKILL);
    retryOnInterrupt([this] { return ::waitpid(child_, nullptr, 0); });
  }

  // Calls `body` with the child's end in a child that has become `account`.
  template <typename Body>
  void start(const Account& account, Body body) {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) return;
    ours_ = FileDescriptor(ends[0]);
    const FileDescriptor theirs(ends[1]);
    child_ = ::fork();
    if (child_ != 0) return;
    ours_.reset();
    if (::setgroups(0, nullptr) != 0 || ::setgid(account.group) != 0 ||
        ::setuid(account.user) != 0) {
      ::_exit(1);
    }
    body(theirs.get());
    ::_exit(0);
  }

  int end() const { return ours_.get(); }

 private:
  FileDescriptor ours_;
  pid_t child_ = 0;
};

inline bool sendMessage(int end, const std::string& text) {
  return ::send(end, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

inline std::string receiveMessage(int end) {
  std::string text(64U << 10U, '\0');
  const auto count = retryOnInterrupt([&] { return ::recv(end, text.data(), text.size(), 0); });
  text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return text;
}

// Many connections that never send a request.
class Crowd {
 public:
  enum class Manner { silent, dripping };  // nothing, or a byte of a head now and then

  // Returns when all of them are established.
  Crowd(const Account& account, const std::string& socket, std::size_t count, Manner manner) {
    process_.start(account, [&](int end) { run(end, socket, count, manner); });
    connected_ = receiveMessage(process_.end()) == "connected";
  }
  bool connected() const { return connected_; }

 private:
  static void run(int end, const std::string& socket, std::size_t count, Manner manner) {
    std::list<SocketClient> clients;
    for (std::size_t made = 0; made < count; ++made) clients.emplace_back(socket);
    const bool all = clients.back().connected();
    sendMessage(end, all ? "connected" : "failed");
    // Until the object ends this process.
    std::string head = "GET /v1/health HTTP/1.1\r\nX-Long: ";
    for (std::size_t at = 0;; ++at) {
      ::poll(nullptr, 0, 200);
      if (manner == Manner::silent) continue;
      const std::string byte(1, at < head.size() ? head[at] : 'x');
      for (SocketClient& client : clients) client.send(byte);
    }
  }

  OtherProcess process_;
  bool connected_ = false;
};

// One connection that sends the requests it is given.
class OtherUser {
 public:
  OtherUser(const Account& account, const std::string& socket) {
    process_.start(account, [&socket](int end) { run(end, socket); });
  }

  // The status of the reply; 0 when the connection has ended.
  int ask(const std::string& text) const {
    if (!sendMessage(process_.end(), text)) return 0;
    const std::string status = receiveMessage(process_.end());
    return status.empty() ? 0 : std::stoi(status);
  }

 private:
  static void run(int end, const std::string& socket) {
    SocketClient client(socket);
    for (std::string text; !(text = receiveMessage(end)).empty();) {
      client.send(text);
      sendMessage(end, std::to_string(client.receive().status));
    }
  }

  OtherProcess process_;
};

}  // namespace paddock::testing
