// HTTP over a Unix socket, spoken byte by byte, so that a test says exactly what is sent.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/file_access.h"
#include "base/value.h"

namespace paddock::testing {

struct Response {
  int status = 0;  // 0: the connection ended before a response was there
  std::map<std::string, std::string> headers;  // names in lower case
  std::string body;

  std::string header(const std::string& name) const;
  // The body as a dictionary; empty when it is none.
  Dictionary dictionary() const;
  // Its "error".
  std::string error() const;
};

class SocketClient {
 public:
  // Connects; `connected` says whether that succeeded.
  explicit SocketClient(const std::string& path);
  bool connected() const { return static_cast<bool>(socket_); }

  // Sends all of it; false when the other side stopped reading.
  bool send(std::string_view bytes);
  // Reads one response. An interim one (100) is given like any other. `hasBody`: false for the
  // reply to a HEAD, which has a length and no body.
  Response receive(std::chrono::seconds patience = std::chrono::seconds(60), bool hasBody = true);
  // Whether something to receive, or the end, comes within that time.
  bool ready(std::chrono::milliseconds patience) const;
  // Whether the other side ends the connection within that time.
  bool ends(std::chrono::seconds patience);

 private:
  bool fill(std::chrono::steady_clock::time_point deadline);

  FileDescriptor socket_;
  std::string received_;
};

// A request as most are: with a host, a body with its length, and what `headers` has (each with
// its line end).
std::string requestText(const std::string& method, const std::string& target,
                        const std::string& body = {}, const std::string& headers = {});

// One request on a connection of its own.
Response request(const std::string& socket, const std::string& method, const std::string& target,
                 const std::string& body = {}, const std::string& headers = {});

// The same by another user, in a process of its own with these groups beside its primary one. Needs
// root.
Response requestAs(uid_t user, gid_t group, const std::string& socket, const std::string& text,
                   const std::vector<gid_t>& furtherGroups = {});

}  // namespace paddock::testing
