// The administration socket.
#pragma once

#include <stdexcept>
#include <string>

#include "base/file_descriptor.h"
#include "daemon/paths.h"

namespace paddock {

// Why the socket cannot be had; the text is for the administrator.
class SocketError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A listening Unix socket of mode 0666 that no other daemon has. What a daemon that is gone left
// behind is replaced; a live daemon, something else at the path and a path that is too long are
// errors and leave everything as it is. The socket's name is removed at the end.
class ListeningSocket {
 public:
  // Throws SocketError.
  explicit ListeningSocket(const Paths& paths);
  ListeningSocket(const ListeningSocket&) = delete;
  ListeningSocket& operator=(const ListeningSocket&) = delete;
  ~ListeningSocket();

  int get() const { return socket_.get(); }

 private:
  std::string path_;
  FileDescriptor lock_;
  FileDescriptor socket_;
};

}  // namespace paddock
