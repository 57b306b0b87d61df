// The administration socket.
#pragma once

#include <sys/types.h>

#include <optional>
#include <stdexcept>
#include <string>

#include "base/file_access.h"
#include "daemon/daemon_options.h"

namespace paddock {

// Credentials of the peer of a Unix-socket connection.
struct Peer {
  uid_t uid = 0;
  gid_t gid = 0;
  pid_t process = 0;
  std::optional<uid_t> loginUser = {};  // login uid, kept across later uid changes
  friend bool operator==(const Peer&, const Peer&) = default;
};

// As of connect(2); nullopt when the socket does not provide them. Without the login user, whose
// lookup takes longer than all the rest.
std::optional<Peer> credentialsOf(int socket);
// nullopt where the kernel keeps none (CONFIG_AUDIT), and for a process that no login started.
std::optional<uid_t> loginUserOf(pid_t process);

// Why the socket cannot be created; the text is for the administrator.
class SocketError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A listening Unix socket of mode 0666, exclusive to this daemon. A stale one of an earlier daemon
// is replaced; a live daemon, something else at the path and a path that is too long are errors and
// leave everything as it is. The socket's name is removed at the end. One that was passed, and
// listens there, is taken instead; its name is left to whoever made it.
class ListeningSocket {
 public:
  // Throws SocketError.
  explicit ListeningSocket(const Paths& paths, FileDescriptor passed = {});
  ListeningSocket(const ListeningSocket&) = delete;
  ListeningSocket& operator=(const ListeningSocket&) = delete;
  ~ListeningSocket();

  int get() const { return socket_.get(); }

 private:
  std::string path_;  // empty: the name is not ours
  FileDescriptor lock_;
  FileDescriptor socket_;
};

}  // namespace paddock
