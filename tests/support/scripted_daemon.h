// A daemon for tests of its clients: answers HTTP on a Unix socket with scripted replies, and
// records the requests.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <deque>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace paddock::testing {

class ScriptedDaemon {
 public:
  struct Request {
    std::string target;  // "POST /v1/paddock_sharing/readSettings"
    std::string body;
    std::string head;  // its lines, as they were sent
  };

  // Listens on a new socket below the folder `root`, where programs expect it.
  explicit ScriptedDaemon(const std::filesystem::path& root)
      : socketPath_(root / "run/paddock/paddockd.sock") {
    std::filesystem::create_directories(socketPath_.parent_path());
    listener_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socketPath_.native().size() >= sizeof address.sun_path) ADD_FAILURE() << socketPath_;
    std::strncpy(address.sun_path, socketPath_.c_str(), sizeof address.sun_path - 1);
    const void* generic = &address;
    if (::bind(listener_, static_cast<const sockaddr*>(generic), sizeof address) != 0 ||
        ::listen(listener_, 16) != 0) {
      ADD_FAILURE() << socketPath_ << ": " << std::strerror(errno);
    }
    thread_ = std::thread([this] { serve(); });
  }
  ScriptedDaemon(const ScriptedDaemon&) = delete;
  ScriptedDaemon& operator=(const ScriptedDaemon&) = delete;
  ~ScriptedDaemon() {
    ending_ = true;
    thread_.join();
    ::close(listener_);
    ::unlink(socketPath_.c_str());
  }

  std::string socketPath() const { return socketPath_; }

  // The answers of the next requests, in order, with further header lines, each with its line end.
  // Without one a request is answered with 404.
  void answer(const std::string& body, int httpStatus = 200, const std::string& headers = {}) {
    const std::lock_guard lock(mutex_);
    answers_.push_back(wireText(body, httpStatus, headers));
  }
  // The answer of every request for this operation of the plug-in paddock_services, which is asked
  // beside what a command is about: it takes no answer of the others and is not among the requests.
  // Without one nothing is refused and all is served, of which nothing is said; an empty one is
  // that of a daemon without the plug-in.
  void answerServices(const std::string& operation, std::string body) {
    answerServices(operation, std::deque<std::string>{std::move(body)});
  }
  // The same of several requests in order, the last one's for all that come after them.
  void answerServices(const std::string& operation, std::deque<std::string> bodies) {
    const std::lock_guard lock(mutex_);
    services_[operation] = std::move(bodies);
  }
  // The bodies of the requests for them, in order.
  std::vector<std::string> servicesAsked() const {
    const std::lock_guard lock(mutex_);
    return servicesAsked_;
  }

  // Closes the next connection unanswered.
  void hangUp() {
    const std::lock_guard lock(mutex_);
    answers_.emplace_back();
  }

  std::vector<Request> requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
  }

 private:
  void serve() {
    while (!ending_) {
      pollfd ready{listener_, POLLIN, 0};
      constexpr int kMilliseconds = 20;
      if (::poll(&ready, 1, kMilliseconds) != 1) continue;
      const int connection = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (connection < 0) continue;
      converse(connection);
      ::close(connection);
    }
  }

  void converse(int connection) {
    const std::string text = receive(connection);
    const std::string answer = record(text);
    for (std::size_t sent = 0; sent < answer.size();) {
      const ssize_t count =
          ::send(connection, answer.data() + sent, answer.size() - sent, MSG_NOSIGNAL);
      if (count <= 0) return;
      sent += static_cast<std::size_t>(count);
    }
  }

  static std::size_t bodyLength(const std::string& head) {
    constexpr std::string_view kHeader = "\r\nContent-Length: ";
    const std::size_t at = head.find(kHeader);
    return at == std::string::npos ? 0 : std::stoul(head.substr(at + kHeader.size()));
  }

  static std::string receive(int connection) {
    std::string text;
    char buffer[65536];
    while (true) {
      const std::size_t end = text.find("\r\n\r\n");
      if (end != std::string::npos && text.size() >= end + 4 + bodyLength(text.substr(0, end))) {
        return text;
      }
      const ssize_t count = ::recv(connection, buffer, sizeof buffer, 0);
      if (count <= 0) return text;
      text.append(buffer, static_cast<std::size_t>(count));
    }
  }

  static std::string wireText(const std::string& body, int httpStatus,
                              const std::string& headers = {}) {
    return "HTTP/1.1 " + std::to_string(httpStatus) +
           " X\r\nContent-Type: application/json\r\nContent-Length: " +
           std::to_string(body.size()) + "\r\nConnection: close\r\n" + headers + "\r\n" + body;
  }

  std::string record(const std::string& text) {
    const std::lock_guard lock(mutex_);
    constexpr std::string_view kServices = "POST /v1/paddock_services/";
    if (text.starts_with(kServices)) {
      const std::string operation =
          text.substr(kServices.size(), text.find(' ', kServices.size()) - kServices.size());
      servicesAsked_.push_back(text.substr(text.find("\r\n\r\n") + 4));
      std::deque<std::string>& bodies = services_[operation];
      const std::string body = bodies.empty() ? std::string() : bodies.front();
      if (bodies.size() > 1) bodies.pop_front();
      if (!body.empty()) return wireText(body, 200);
      return wireText(R"({"error":"there is no such plug-in"})", 404);
    }
    requests_.push_back({text.substr(0, text.find(" HTTP/")),
                         text.substr(text.find("\r\n\r\n") + 4),
                         text.substr(0, text.find("\r\n\r\n") + 2)});
    if (answers_.empty()) {
      return "HTTP/1.1 404 X\r\nContent-Length: 24\r\nConnection: close\r\n\r\n"
             "{\"error\":\"not scripted\"}\n";
    }
    std::string answer = std::move(answers_.front());
    answers_.pop_front();
    return answer;
  }

  std::filesystem::path socketPath_;
  int listener_ = -1;
  std::atomic<bool> ending_ = false;
  mutable std::mutex mutex_;
  std::deque<std::string> answers_;
  std::vector<Request> requests_;
  std::map<std::string, std::deque<std::string>> services_{
      {"checkShare", {R"({"status":0,"refusals":[]})"}},
      {"getServed", {R"({"status":0,"sharePoints":[{"isServed":true,"sentence":""}]})"}}};
  std::vector<std::string> servicesAsked_;
  std::thread thread_;
};

}  // namespace paddock::testing
